// Writes a small set of sample files for trying vxcam: one per kind of file
// the framework tells apart, all made here from known bytes.

#include "buffers/MemoryBuffer.h"
#include "containers/ZipUtils.h"
#include "containers/pole.h"

#include <QDir>
#include <QFile>

#include <cstdio>
#include <functional>
#include <stdexcept>
#include <string>

namespace {

using Maker = std::function<void(MemoryBuffer &)>;

void putBytes(MemoryBuffer &b, std::initializer_list<unsigned char> bytes)
{
    for (unsigned char c : bytes)
        b.putUInt8(c);
}

void putText(MemoryBuffer &b, const char *text)
{
    std::string s(text);
    b.putString(s);
}

// A gzip member holding the empty string.
void gzipSample(MemoryBuffer &b)
{
    putBytes(b, {0x1f, 0x8b, 0x08, 0x00, 0, 0, 0, 0, 0x00, 0x03, 0x03, 0x00, 0, 0, 0, 0, 0, 0, 0, 0});
}

// A bzip2 stream holding the empty string.
void bzip2Sample(MemoryBuffer &b)
{
    putBytes(b, {'B', 'Z', 'h', '9', 0x17, 0x72, 0x45, 0x38, 0x50, 0x90, 0, 0, 0, 0});
}

// One ustar header for an empty file, then the two zero blocks that end an archive.
void tarSample(MemoryBuffer &b)
{
    MemoryBuffer header(512);
    std::string name = "hello.txt", mode = "0000644", ids = "0000000", size = "00000000000",
                mtime = "00000000000", magic = std::string("ustar\0" "00", 8);
    header.putString(name, 0, MBSeekStart);
    header.putString(mode, 100, MBSeekStart);
    header.putString(ids, 108, MBSeekStart);
    header.putString(ids, 116, MBSeekStart);
    header.putString(size, 124, MBSeekStart);
    header.putString(mtime, 136, MBSeekStart);
    std::string type = "0";
    header.putString(type, 156, MBSeekStart);
    header.putString(magic, 257, MBSeekStart);
    unsigned sum = 8 * ' ';
    for (size_t i = 0; i < 512; ++i)
        if (i < 148 || i >= 156)
            sum += header.getBuffer()[i];
    char field[8];
    std::snprintf(field, sizeof field, "%06o", sum);
    std::string checksum(field, 7);
    checksum += ' ';
    header.putString(checksum, 148, MBSeekStart);
    b.putMemoryBuffer(&header);
    MemoryBuffer end(1024);
    b.putMemoryBuffer(&end);
}

void textSample(MemoryBuffer &b) { putText(b, "Plain text: no archive, no document.\n"); }

// A zip archive of the given members (name, content).
void zipSample(MemoryBuffer &b, std::initializer_list<std::pair<const char *, const char *>> members)
{
    ZipUtils::Zip zip;
    if (!zip.open(4096))
        throw std::runtime_error("cannot create a zip archive");
    for (const auto &[name, content] : members)
        zip.addEntry(QString::fromLatin1(name), QByteArray(content));
    if (!zip.copyZipFileToBuffer(&b))
        throw std::runtime_error("cannot finish a zip archive");
}

// The parts every Office Open XML package carries, plus the main part.
void packageSample(MemoryBuffer &b, const char *mainPart)
{
    zipSample(b, {{"[Content_Types].xml", "<Types/>"}, {"_rels/.rels", "<Relationships/>"}, {mainPart, "<root/>"}});
}

// A compound file holding the main stream of a Word 97-2003 document.
void compoundSample(MemoryBuffer &b)
{
    POLE::Storage storage(&b);
    if (!storage.open(true, true))
        throw std::runtime_error("cannot create a compound file");
    MemoryBuffer stream;
    putText(stream, "not really a Word document body");
    storage.addEntry(QStringLiteral("/WordDocument"), &stream);
    storage.addEntry(QStringLiteral("/1Table"), &stream);
    storage.flush();
    storage.close();
}

const struct
{
    const char *name;
    Maker make;
} kSamples[] = {
    {"empty-string.gz", gzipSample},
    {"empty-string.bz2", bzip2Sample},
    {"one-file.tar", tarSample},
    {"notes.txt", textSample},
    {"signature-only.7z", [](MemoryBuffer &b) { putBytes(b, {'7', 'z', 0xbc, 0xaf, 0x27, 0x1c, 0, 4}); }},
    {"signature-only.rar", [](MemoryBuffer &b) { putBytes(b, {'R', 'a', 'r', '!', 0x1a, 0x07, 0x01, 0}); }},
    {"report.pdf", [](MemoryBuffer &b) { putText(b, "%PDF-1.4\n%%EOF\n"); }},
    {"two-files.zip", [](MemoryBuffer &b) { zipSample(b, {{"a.txt", "first"}, {"docs/b.txt", "second"}}); }},
    {"letter.docx", [](MemoryBuffer &b) { packageSample(b, "word/document.xml"); }},
    {"budget.xlsx", [](MemoryBuffer &b) { packageSample(b, "xl/workbook.xml"); }},
    {"slides.pptx", [](MemoryBuffer &b) { packageSample(b, "ppt/presentation.xml"); }},
    {"memo.doc", compoundSample},
};

} // namespace

int main(int argc, char *argv[])
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s DIRECTORY\n", argv[0]);
        return 2;
    }
    const QDir dir(QString::fromLocal8Bit(argv[1]));
    if (!dir.mkpath(QStringLiteral("."))) {
        std::fprintf(stderr, "cannot create %s\n", argv[1]);
        return 1;
    }
    try {
        for (const auto &sample : kSamples) {
            MemoryBuffer buffer;
            sample.make(buffer);
            QFile file(dir.filePath(QString::fromLatin1(sample.name)));
            buffer.writeToFile(file);
        }
    } catch (const std::exception &e) {
        std::fprintf(stderr, "%s\n", e.what());
        return 1;
    }
    return 0;
}
