// The signature checks over real files made by independent tools (see
// tests/fixtures/identify/make.sh) and over look-alikes made by hand.

#include "signatures.h"

#include "fixtures/fixtures.h"

#include <QDataStream>
#include <gtest/gtest.h>

namespace {

const char *const kSignature = "signature match";
const char *const kStructure = "structure match";

struct Answer
{
    ft_t type;
    std::string reason;
};

Answer identify(const QByteArray &bytes)
{
    const char *reason = "untouched";
    const ft_t type = Signatures::identify(reinterpret_cast<const unsigned char *>(bytes.constData()),
                                           size_t(bytes.size()), &reason);
    return {type, reason};
}

// Little-endian fields, for headers laid out by hand.
QByteArray le(std::initializer_list<quint32> words, int width)
{
    QByteArray out;
    QDataStream stream(&out, QIODevice::WriteOnly);
    stream.setByteOrder(QDataStream::LittleEndian);
    for (quint32 w : words)
        width == 2 ? stream << quint16(w) : stream << w;
    return out;
}

} // namespace

// Every prefix of a real file is that type or none: never another type, and
// never a read past what it was given (the sanitizer build checks that).
TEST(Signatures, RealFilesAndEveryPrefixOfThem)
{
    const struct
    {
        const char *fixture;
        ft_t type;
        const char *reason;
    } cases[] = {
        {"identify/text.pdf", ft_pdf, kSignature},       {"identify/image.png", ft_png, kSignature},
        {"identify/image.jpg", ft_jpeg, kSignature},     {"identify/image.gif", ft_gif, kSignature},
        {"identify/image.bmp", ft_bmp, kStructure},      {"identify/image.tif", ft_tiff, kSignature},
        {"identify/drawing.emf", ft_emf, kSignature},    {"identify/drawing.wmf", ft_wmf, kSignature},
        {"identify/word.rtf", ft_rtf, kSignature},       {"identify/program.exe", ft_pe, kSignature},
        {"identify/object.macho", ft_macho, kSignature}, {"identify/program.elf", ft_elf, kSignature},
        {"identify/object64.obj", ft_coff, kStructure},  {"identify/object32.obj", ft_coff, kStructure},
        {"identify/movie.mp4", ft_mp4, kSignature},      {"identify/sound.m4a", ft_mp4, kSignature},
        {"identify/tagged.mp3", ft_mp3, kSignature},     {"identify/frames.mp3", ft_mp3, kStructure},
        {"identify/sound.wav", ft_wav, kSignature},      {"identify/movie.mpg", ft_mpeg, kSignature},
        {"identify/types.xml", ft_xml, kSignature},
        // Containers are other questions' business.
        {"identify/word.docx", ft_unknown, "untouched"}, {"identify/word.doc", ft_unknown, "untouched"},
        {"archives/sample.gz", ft_unknown, "untouched"}, {"archives/ustar.tar", ft_unknown, "untouched"},
    };
    for (const auto &c : cases) {
        const QByteArray bytes = readFixture(c.fixture);
        ASSERT_FALSE(bytes.isEmpty()) << c.fixture;
        const Answer answer = identify(bytes);
        EXPECT_EQ(answer.type, c.type) << c.fixture;
        EXPECT_EQ(answer.reason, c.reason) << c.fixture;
        for (int length = 0; length < std::min(bytes.size(), 4096); ++length) {
            const ft_t type = identify(bytes.left(length)).type;
            EXPECT_TRUE(type == c.type || type == ft_unknown) << c.fixture << " cut at " << length << ": " << type;
        }
    }
}

TEST(Signatures, LookAlikesAreNotTaken)
{
    const QByteArray frame = QByteArray::fromHex("fffb10c4") + QByteArray(100, 'x'); // 104 bytes, MPEG-1 layer 3
    QByteArray section = QByteArray(".text\0\0\0", 8) + QByteArray(32, '\0');
    const QByteArray coffHeader = le({0x8664, 1}, 2) + le({0, 0, 0}, 4) + le({0, 0}, 2);
    const QByteArray mz = "MZ" + QByteArray(0x3a, '\0');
    const struct
    {
        const char *what;
        QByteArray bytes;
        ft_t type;
    } cases[] = {
        {"nothing", QByteArray(), ft_unknown},
        {"plain text", "just some words\n", ft_unknown},
        {"a Java class file", QByteArray::fromHex("cafebabe00000034") + QByteArray(32, '\0'), ft_unknown},
        {"a universal binary of two", QByteArray::fromHex("cafebabe00000002") + QByteArray(32, '\0'), ft_macho},
        {"MZ without a PE header", mz + le({0x40}, 4) + "not a PE", ft_unknown},
        {"MZ pointing past the end", mz + le({0x7fffffff}, 4) + "PE\0\0", ft_unknown},
        {"MZ and a PE header", mz + le({0x40}, 4) + QByteArray("PE\0\0\x64\x86", 6), ft_pe},
        {"BM and text", "BMP files are pictures", ft_unknown},
        {"%PDF- without a version", "%PDF-x", ft_unknown},
        {"JPEG start without a marker", QByteArray::fromHex("ffd8ffff00"), ft_unknown},
        {"an AVI file", "RIFF\x10\0\0\0AVI LIST", ft_unknown},
        {"an MPEG pack header, which reads as a box of an odd size", QByteArray::fromHex("000001ba66747970") + "ID5B"
         + QByteArray(8, '\0'), ft_mpeg},
        {"an ID3 tag, which reads as a box of 1 GB", QByteArray("ID3\x04" "ftypisom\0\0\2m\0\xaa/\xaa", 20), ft_mp3},
        {"a QuickTime movie", QByteArray("\0\0\0\x14" "ftypqt  \0\0\0\0qt  ", 20), ft_unknown},
        {"one MPEG audio frame then text", frame + "and then text", ft_unknown},
        {"two MPEG audio frames", frame + frame, ft_mp3},
        {"ID3 with a size byte over 127", QByteArray("ID3\x04\0\0\0\0\x80\0", 10), ft_unknown},
        {"a Windows metafile without the placeable header",
         le({1, 9, 0x300, 0x100, 0, 0x40, 0, 0, 0}, 2), ft_wmf},
        {"an EMF header without its signature", le({1, 88}, 4) + QByteArray(40, '\0'), ft_unknown},
        {"an XML processing instruction that is not the declaration", "<?xml-stylesheet href='a'?>", ft_unknown},
        {"XML after a byte order mark", "\xef\xbb\xbf<?xml version=\"1.0\"?><a/>", ft_xml},
        {"UTF-16 XML", QByteArray("\xff\xfe<\0?\0x\0m\0l\0 \0", 14), ft_xml},
        {"a COFF object", coffHeader + section, ft_coff},
        {"a COFF header with an optional header", le({0x8664, 1, 0, 0, 0, 0, 0xf0, 0}, 2) + section, ft_unknown},
        {"a COFF section without a name", coffHeader + QByteArray(40, '\0'), ft_unknown},
        {"a COFF section table past the end", coffHeader + section.left(20), ft_unknown},
        {"a COFF section pointing into the headers",
         coffHeader + section.left(20) + le({8, 0}, 4) + QByteArray(12, '\0'), ft_unknown},
    };
    for (const auto &c : cases)
        EXPECT_EQ(identify(c.bytes).type, c.type) << c.what;
    EXPECT_EQ(Signatures::identify(nullptr, 10, nullptr), ft_unknown);
}
