#include "fixtures/fixtures.h"
#include "qtprinters.h"
#include "vxcamrunner.h"

#include <QDataStream>
#include <QDir>
#include <QHash>
#include <QPair>
#include <gtest/gtest.h>

#include <sys/resource.h>

// The command's own job: arguments, output forms, exit status, error lines,
// and what a run costs. What the answers are is the identification unit's
// tests' business.

namespace {

// Each file's object must hold every key of its expected object, with that value.
void expectObjects(const VxcamRun &run, const QList<QPair<QString, const char *>> &expected)
{
    QHash<QString, QJsonObject> byPath;
    for (const QJsonObject &object : run.jsonLines())
        byPath.insert(object.value(QStringLiteral("path")).toString(), object);
    for (const auto &file : expected) {
        const QJsonObject want = QJsonDocument::fromJson(file.second).object(), got = byPath.value(file.first);
        ASSERT_FALSE(want.isEmpty()) << file.second;
        for (auto key = want.begin(); key != want.end(); ++key)
            EXPECT_TRUE(got.value(key.key()) == key.value())
                << file.first.toStdString() << ": " << key.key().toStdString() << " in "
                << QJsonDocument(got).toJson(QJsonDocument::Compact).constData();
    }
}

// A file of `size` bytes that starts with `lead` and is a hole after it.
QString sparseFile(const QTemporaryDir &dir, const char *name, const QByteArray &lead, qint64 size)
{
    QFile file(dir.filePath(QLatin1String(name)));
    if (!file.open(QIODevice::WriteOnly) || file.write(lead) != lead.size() || !file.resize(size))
        return QString();
    return file.fileName();
}

// A zip archive of nothing but a central directory of `members` names of 100
// characters (their records point at no data) and its end record: listing it
// takes memory, reading it nothing else.
QByteArray bareDirectory(int members)
{
    QByteArray archive;
    QDataStream out(&archive, QIODevice::WriteOnly);
    out.setByteOrder(QDataStream::LittleEndian);
    for (int i = 0; i < members; ++i) {
        const QByteArray name = QByteArray::number(i).rightJustified(100, 'n');
        out << quint32(0x02014b50) << quint16(20) << quint16(20) << quint16(0) << quint16(0) << quint32(0)
            << quint32(0) << quint32(0) << quint32(0) << quint16(name.size()) << quint16(0) << quint16(0)
            << quint16(0) << quint16(0) << quint32(0) << quint32(0);
        out.writeRawData(name.constData(), name.size());
    }
    const quint32 size = quint32(archive.size());
    out << quint32(0x06054b50) << quint16(0) << quint16(0) << quint16(0xffff) << quint16(0xffff) << size
        << quint32(0) << quint16(0);
    return archive;
}

} // namespace

// Bad inputs are one line each, naming the file, and the other files are still
// reported; an empty file is reported as empty, not as an error.
TEST(VxcamIdentify, JsonLinesForEveryFileAndErrorsForTheBadOnes)
{
    QTemporaryDir dir;
    const QString gzip = fixturePath(QStringLiteral("archives/sample.gz"));
    const QString text = fileIn(dir, "notes.doc", "just some words\n");
    const QString empty = fileIn(dir, "empty.bin", QByteArray());
    const QString missing = dir.filePath(QStringLiteral("absent.zip"));
    const VxcamRun run = runVxcam({"--json", "identify", gzip, missing, dir.path(), text, empty});
    EXPECT_EQ(run.exitCode, 1) << "a file that cannot be read fails the run";
    EXPECT_EQ(QString::fromUtf8(run.err), "vxcam: " + dir.path() + ": is a directory (use -r to walk it)\n"
              "vxcam: " + missing + ": no such file\n");
    const QList<QJsonObject> lines = run.jsonLines();
    ASSERT_EQ(lines.size(), 5);
    EXPECT_EQ(lines.value(1).keys(), (QStringList{"archive_method", "archive_type", "camera", "description", "evidence",
                                                  "extension", "path", "type", "type_name"}))
        << "the first file's object, after the directory's error";
    expectObjects(run, {
        {gzip, R"({"type":257,"type_name":"ft_gzip","description":"gzip compressed data","evidence":"signature",
            "archive_type":257,"archive_method":"signature match","camera":"libfileidentifier.so"})"},
        {text, R"({"type":0,"type_name":"ft_unknown","description":"text","evidence":"none","extension_type":17})"},
        {missing, R"({"error":"no such file"})"},
        {dir.path(), R"j({"error":"is a directory (use -r to walk it)"})j"},
        {empty, R"({"type":0,"description":"empty","empty":true,"evidence":"none"})"},
    });
}

TEST(VxcamIdentify, HumanLinesDetailsAndDirectoryWalk)
{
    QTemporaryDir dir;
    ASSERT_TRUE(QDir(dir.path()).mkpath(QStringLiteral("sub")));
    const QString file = dir.filePath(QStringLiteral("sub/d.bin"));
    ASSERT_TRUE(QFile::copy(fixturePath(QStringLiteral("identify/word.docx")), file));
    const QString empty = fileIn(dir, "e.txt", QByteArray());
    const VxcamRun run = runVxcam({"identify", "-r", dir.path()});
    EXPECT_EQ(run.exitCode, 0) << run.err.constData();
    EXPECT_EQ(QString::fromUtf8(run.out),
              empty + ": empty\n" + file + ": Microsoft Word Document [ft_docx], by structure\n");

    const VxcamRun verbose = runVxcam({"identify", "--verbose", file});
    EXPECT_EQ(QString::fromUtf8(verbose.out), file + ": Microsoft Word Document [ft_docx], by structure\n"
              "  Office Open XML package: ft_docx\n  extension: .bin (ft_binary)\n");
    EXPECT_EQ(runVxcam({"identify"}).exitCode, 2) << "no files is a usage error";
}

// Plug-in directories of the test's own. The xls test camera of tests/plugins
// answers 21 (main type) and 780 (sub-type) for buffers starting "XLS", and
// 21 for the extension "xls".
TEST(VxcamIdentify, OnlyThePluginsOfTheDirectoryAreAsked)
{
    QTemporaryDir plugins, files;
    const QString missing = plugins.filePath(QStringLiteral("missing"));
    const QString gzip = fileIn(files, "packed.gz", QByteArray::fromHex("1f8b0800"));
    ASSERT_TRUE(QFile::copy(QStringLiteral(VX_TEST_MODULE_NOT_A_PLUGIN), plugins.filePath(QStringLiteral("plain.so"))));
    const QString empty = plugins.path();
    for (const auto &c : {qMakePair(missing, QStringLiteral("vxcam: identify: no plug-in directory %1\n").arg(missing)),
                          qMakePair(empty, QStringLiteral("vxcam: identify: no camera plug-ins in %1\n").arg(empty))}) {
        const VxcamRun run = runVxcam({"--plugins", c.first, "identify", gzip});
        EXPECT_EQ(run.exitCode, 1) << c.second.toStdString();
        EXPECT_EQ(QString::fromUtf8(run.err), c.second);
        EXPECT_TRUE(run.out.isEmpty()) << "no file is reported";
    }

    ASSERT_TRUE(QFile::copy(QStringLiteral(VX_TEST_MODULE_XLS), plugins.filePath(QStringLiteral("xls.so")))
                && QFile::copy(QStringLiteral(VX_FILEIDENTIFIER_MODULE), plugins.filePath("libfileidentifier.so")));
    const QString sheet = fileIn(files, "sheet.bin", "XLS and more");
    const QString named = fileIn(files, "named.xls", "plain words");
    const VxcamRun run = runVxcam({"--json", "--plugins", plugins.path(), "identify", sheet, named, gzip});
    EXPECT_EQ(run.exitCode, 0) << run.err.constData();
    expectObjects(run, {
        {sheet, R"({"type":21,"evidence":"signature","camera":"xls.so"})"},
        {named, R"({"type":0,"evidence":"none","extension_type":21})"},
        {gzip, R"({"type":257,"camera":"libfileidentifier.so"})"},
    });
}

// Only the head of a file is read, and for containers what their kind needs:
// the peak memory of the whole process stays small however large the file.
TEST(VxcamIdentify, MemoryStaysSmallWhateverTheFileSize)
{
    QTemporaryDir dir;
    const qint64 size = qint64(4) << 30;
    const QString gzip = sparseFile(dir, "big.gz", QByteArray::fromHex("1f8b0800000000000003"), size);
    const QString zip = sparseFile(dir, "big.zip", "PK\x03\x04", size);
    const QString cfb = sparseFile(dir, "big.doc", QByteArray::fromHex("d0cf11e0a1b11ae1"), size);
    if (gzip.isEmpty() || zip.isEmpty() || cfb.isEmpty())
        GTEST_SKIP() << "no room for sparse files of 4 GiB in " << dir.path().toStdString();
    const VxcamRun run = runVxcam({"identify", gzip, zip, cfb});
    EXPECT_EQ(run.exitCode, 0) << run.err.constData();
    EXPECT_EQ(QString::fromUtf8(run.out), gzip + ": gzip compressed data [ft_gzip], by signature\n" + zip
              + ": ZIP archive [ft_zip], by signature\n" + cfb + ": compound file [ft_cfb], by signature\n");
    // The largest resident size of the children this test process waited for: vxcam's.
    rusage usage{};
    ASSERT_EQ(getrusage(RUSAGE_CHILDREN, &usage), 0);
    EXPECT_LT(usage.ru_maxrss, 64 * 1024) << "peak resident memory of vxcam identify, in KiB";
}

// A file whose identification runs out of memory is reported on its own line,
// and the files after it still are: the batch goes on.
TEST(VxcamIdentify, AFileThatRunsOutOfMemoryDoesNotStopTheBatch)
{
    if (kSanitized)
        GTEST_SKIP() << "the address sanitizer cannot run under a data-size limit";
    QTemporaryDir dir;
    const QString before = fileIn(dir, "a.gz", QByteArray::fromHex("1f8b0800"));
    const QString directory = fileIn(dir, "b.zip", bareDirectory(150000));
    const QString after = fileIn(dir, "c.gz", QByteArray::fromHex("1f8b0800"));
    // Enough for vxcam and any ordinary file, not for listing 150 000 members.
    for (const int limitMiB : {24, 96}) {
        const QString command = QStringLiteral("ulimit -d %1 && exec \"$0\" \"$@\"").arg(limitMiB * 1024);
        QProcess process;
        process.start(QStringLiteral("sh"), {"-c", command, QStringLiteral(VXCAM_PATH), "identify", before, directory,
                                             after});
        ASSERT_TRUE(process.waitForFinished(60000));
        const QString out = QString::fromUtf8(process.readAllStandardOutput());
        const QString err = QString::fromUtf8(process.readAllStandardError());
        EXPECT_EQ(process.exitStatus(), QProcess::NormalExit) << limitMiB;
        EXPECT_TRUE(out.startsWith(before + ": gzip compressed data")) << limitMiB << " MiB: " << out.toStdString();
        EXPECT_TRUE(out.contains(after + ": gzip compressed data")) << limitMiB << " MiB: " << out.toStdString();
        EXPECT_TRUE(out.contains(directory + ": ZIP archive")
                    || err == "vxcam: " + directory + ": out of memory while identifying it\n")
            << limitMiB << " MiB: " << err.toStdString();
        EXPECT_EQ(process.exitCode(), err.isEmpty() ? 0 : 1) << limitMiB;
    }
}
