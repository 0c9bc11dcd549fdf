// vxcam cfb: listings and bytes compared with an independent reader, changes
// verified by it, failures that leave files as they were, damaged files,
// concurrent and case-variant changes, and what edits keep of a file.

#include "containers/cfbtesttools.h"
#include "qtprinters.h"
#include "vxcamrunner.h"

#include <QFileInfo>
#include <QProcess>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

using namespace cfbtest;

static VxcamRun cfb(const QStringList &arguments, bool json = false)
{
    return runVxcam((json ? QStringList{"--json", "cfb"} : QStringList{"cfb"}) + arguments);
}

TEST(VxcamCfb, ListingsMatchTheIndependentReader)
{
    for (const char *name : {"gsf-mixed.ole", "writer.doc"}) {
        const QString file = fixture(QLatin1String(name));
        const VxcamRun run = cfb({"ls", file}, true);
        ASSERT_EQ(run.exitCode, 0) << run.err.constData();
        // Our listing in the independent reader's form: streams by the bytes cat gives.
        Listing ours;
        for (const QJsonObject &o : run.jsonLines()) {
            const QString path = o.value(QStringLiteral("path")).toString();
            const QString kind = o.value(QStringLiteral("kind")).toString();
            const QString clsid = o.value(QStringLiteral("clsid")).toString();
            EXPECT_EQ(o.keys(), (QStringList{"clsid", "file", "kind", "path", "size"})) << qPrintable(path);
            if (path == QLatin1String("/"))
                ours.insert(path, QStringLiteral("root ") + clsid);
            else if (kind == QLatin1String("storage"))
                ours.insert(path, storageEntry(clsid));
            else {
                const QByteArray bytes = cfb({"cat", file, path}).out;
                EXPECT_EQ(o.value(QStringLiteral("size")).toInt(), bytes.size()) << qPrintable(path);
                ours.insert(path, streamEntry(bytes, clsid));
            }
        }
        EXPECT_EQ(difference(ours, olefileListing(file)), QString()) << name;
    }
    // The human listing is an indented tree, control characters escaped, the root's class shown.
    const QString mixed = QString::fromUtf8(cfb({"ls", fixture(QStringLiteral("gsf-mixed.ole"))}).out);
    EXPECT_TRUE(mixed.startsWith(QStringLiteral("/\n")) && mixed.contains(QRegularExpression(QStringLiteral(
        "\n  docs/\n(    .*\n)*    small4095\\.bin +4095\n")))) << qPrintable(mixed);
    const QString word = QString::fromUtf8(cfb({"ls", fixture(QStringLiteral("writer.doc"))}).out);
    EXPECT_TRUE(word.contains(QStringLiteral("\\x01CompObj"))) << qPrintable(word);
    EXPECT_TRUE(word.section(QLatin1Char('\n'), 0, 0).endsWith("{00020906-0000-0000-c000-000000000046}"));
}

TEST(VxcamCfb, CatWritesTheStreamBytesAndInfoTheHeader)
{
    const QString file = fixture(QStringLiteral("writer.doc"));
    const Listing theirs = olefileListing(file);
    ASSERT_FALSE(theirs.contains(QStringLiteral("!error"))) << qPrintable(theirs.value(QStringLiteral("!error")));
    const char *const paths[][2] = {{"/WordDocument", "/WordDocument"}, {"1Table", "/1Table"},
                                    {"/\\x01CompObj", "/\x01" "CompObj"}};
    for (const auto &path : paths) {
        const VxcamRun run = cfb({"cat", file, QLatin1String(path[0])});
        ASSERT_EQ(run.exitCode, 0) << path[0] << ": " << run.err.constData();
        EXPECT_EQ(streamEntry(run.out), theirs.value(QLatin1String(path[1]))) << path[0];
    }

    EXPECT_EQ(cfb({"info", file}).out, file.toUtf8() + ":\n"
              "  sector size 512 (b_shift 9), small blocks 64 (s_shift 6), threshold 4096\n"
              "  num_bat 1, dirent_start 15, sbat_start 2, num_sbat 1, mbat_start 4294967294, num_mbat 0\n"
              "  directory entries 8 (1 unused), BAT entries 128 (112 free), SBAT entries 128 (37 free)\n"
              "  sub-type: 17 (ft_doc) by class identifier\n");
    const QJsonObject json = QJsonDocument::fromJson(cfb({"info", fixture("calc.xls")}, true).out).object();
    EXPECT_TRUE(json.value(QStringLiteral("cfb_subtype")) == 21 && json.value(QStringLiteral("sector_size")) == 512)
        << QJsonDocument(json).toJson().constData();
}

TEST(VxcamCfb, NewAddRmMakeFilesTheIndependentReaderReads)
{
    QTemporaryDir dir;
    const QString file = dir.filePath(QStringLiteral("made.cfb"));
    const QString big = fileIn(dir, QStringLiteral("big.bin"), pattern(20000, 1));
    const QString small = fileIn(dir, QStringLiteral("small.bin"), pattern(300, 2));

    ASSERT_EQ(cfb({"new", file}).exitCode, 0);
    EXPECT_EQ(verifyWritten(readFile(file), {}), QString());
    const QStringList changes[] = {{"add", file, "/data/big", big}, {"add", file, "notes", small},
                                   {"add", file, "/gone", small}};
    for (const QStringList &change : changes)
        ASSERT_EQ(cfb(change).exitCode, 0) << qPrintable(change.join(QLatin1Char(' ')));
    // Replacing a longer stream leaves exactly the new bytes.
    const VxcamRun replaced = cfb({"add", file, "/data/big", small}, true);
    ASSERT_EQ(replaced.exitCode, 0) << replaced.err.constData();
    EXPECT_EQ(QJsonDocument::fromJson(replaced.out).object().value(QStringLiteral("size")).toInt(), 300);
    ASSERT_EQ(cfb({"rm", file, "/gone"}).exitCode, 0);
    EXPECT_EQ(verifyWritten(readFile(file), {{"/data/big", pattern(300, 2)}, {"/notes", pattern(300, 2)}}, {"/data"}),
              QString());
    ASSERT_EQ(cfb({"rm", file, "/data"}).exitCode, 0);
    EXPECT_EQ(verifyWritten(readFile(file), {{"/notes", pattern(300, 2)}}), QString());
}

TEST(VxcamCfb, FailuresAreOneLineAndLeaveFilesAlone)
{
    QTemporaryDir dir;
    const QByteArray original = readFile(fixture(QStringLiteral("gsf-mixed.ole")));
    const QString file = fileIn(dir, QStringLiteral("keep.cfb"), original);
    const QString source = fileIn(dir, QStringLiteral("src"), "abc");
    const QString text = fileIn(dir, QStringLiteral("text.txt"), "not a compound file");
    const QString absent = dir.filePath(QStringLiteral("absent"));
    const struct { QStringList arguments; int exitCode; const char *message; } cases[] = {
        {{"cat", file, "/missing"}, 1, "no stream /missing"},
        {{"cat", text, "/x"}, 1, "not a compound file"},
        {{"rm", file, "/"}, 1, "the root cannot be removed"},
        {{"rm", file, "/missing"}, 1, "no entry /missing"},
        {{"add", file, "/docs", source}, 1, "/docs is a storage"},
        {{"add", file, "/readme.txt/under", source}, 1, "cannot store"},
        {{"add", file, "/" + QString(40, QLatin1Char('n')), source}, 1, "max length for name is 31 chars"},
        {{"add", file, "/x", absent}, 1, "no such file"},
        {{"new", file}, 1, "already exists"},
        {{"cat", file}, 2, "cat takes 2 argument(s)"},
        {{"cat", file, "/readme.txt", "--all"}, 2, "cat --all takes FILE only"},
        {{"ls", file, "--all"}, 2, "--all goes with cat only"},
        {{"ls", "--bogus", file}, 2, "unknown option --bogus"},
        {{"frob", file}, 2, "unknown verb frob"},
        {{}, 2, "missing verb"},
    };
    for (const auto &c : cases) {
        const VxcamRun run = cfb(c.arguments);
        const QString what = c.arguments.join(QLatin1Char(' '));
        EXPECT_EQ(run.exitCode, c.exitCode) << qPrintable(what);
        EXPECT_TRUE(run.err.contains(c.message) && run.oneErrorLine()) << qPrintable(what) << ": " << run.err.data();
        EXPECT_TRUE(readFile(file) == original && readFile(text) == "not a compound file")
            << qPrintable(what) << " changed a file";
    }
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden).size(), 3) << "no temporary file is left";
}

TEST(VxcamCfb, ADirectoryOfOneLongSiblingChainIsListedInOnePass)
{
    // 100 000 streams, each the right sibling of the one before: every
    // lookup that walks the chain makes a listing take minutes.
    const int count = 100000;
    std::vector<BuiltStream> streams;
    for (int i = 0; i < count; ++i)
        streams.push_back({QStringLiteral("s%1").arg(i, 6, 10, QLatin1Char('0')), QByteArray()});
    QTemporaryDir dir;
    const QString file = fileIn(dir, QStringLiteral("chain.cfb"), buildCompoundFile(streams, 12).bytes);
    const VxcamRun ls = cfb({"ls", file});
    ASSERT_EQ(ls.exitCode, 0) << ls.err.left(500).constData();
    EXPECT_EQ(ls.out.count('\n'), count + 1);
    EXPECT_TRUE(QString::fromUtf8(ls.out.right(100)).contains(QRegularExpression("\n  s099999 +0\n$")));
}

namespace {

// Runs a shell line with $VXCAM set, for redirections and limits.
VxcamRun shell(const QString &line)
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("VXCAM"), QStringLiteral(VXCAM_PATH));
    process.setProcessEnvironment(environment);
    process.start(QStringLiteral("/bin/sh"), {"-c", line});
    VxcamRun run;
    if (process.waitForFinished(60000) && process.exitStatus() == QProcess::NormalExit)
        run.exitCode = process.exitCode();
    run.out = process.readAllStandardOutput();
    run.err = process.readAllStandardError();
    return run;
}

QString quoted(const QString &path) { return "'" + path + "'"; }

} // namespace

TEST(VxcamCfb, DamagedFilesAreReportedAndNeverPadded)
{
    QTemporaryDir dir;
    const QByteArray big = pattern(9000, 1);
    const BuiltFile built = buildCompoundFile({{"small", pattern(300, 2)}, {"big", big}});
    const QString cut = fileIn(dir, "cut.cfb", built.bytes.left(built.bytes.size() - 1500));
    const VxcamRun cat = cfb({"cat", cut, "big"});
    EXPECT_EQ(cat.exitCode, 1);
    EXPECT_TRUE(big.startsWith(cat.out) && cat.out.size() < big.size()) << cat.out.size();
    EXPECT_TRUE(cat.oneErrorLine() && cat.err.contains(": /big: damaged: sector ")) << cat.err.constData();

    const VxcamRun ls = cfb({"ls", cut}, true);
    EXPECT_EQ(ls.exitCode, 1);
    EXPECT_TRUE(ls.out.contains("\"damage\":\"sector")) << ls.out.constData();

    const QString head = fileIn(dir, "head.doc", readFile(fixture("writer.doc")).left(513));
    const VxcamRun short513 = cfb({"ls", head});
    EXPECT_EQ(short513.exitCode, 1);
    EXPECT_TRUE(short513.err.contains("damaged: the allocation table lies partly beyond the end of the file"))
        << short513.err.constData();

    // A root entry of the wrong type: every stream is still listed, and the type named.
    QByteArray stream2 = built.bytes;
    stream2[built.dirEntryOffset(0) + 66] = 2;
    const QString wrongRoot = fileIn(dir, "root.cfb", stream2);
    const VxcamRun root = cfb({"ls", wrongRoot});
    EXPECT_EQ(root.exitCode, 1);
    EXPECT_TRUE(root.out.contains("  small ") && root.out.contains("  big ")) << root.out.constData();
    EXPECT_TRUE(root.oneErrorLine() && root.err.contains("the root entry has type 2")) << root.err.constData();
}

TEST(VxcamCfb, ConcurrentAddsAreAllKept)
{
    QTemporaryDir dir;
    const QString file = dir.filePath("shared.cfb");
    ASSERT_EQ(cfb({"new", file}).exitCode, 0);
    QMap<QString, QByteArray> expected;
    std::vector<std::unique_ptr<QProcess>> runs;
    for (int i = 0; i < 8; ++i) {
        const QByteArray data = pattern(1000 + i * 1500, i); // small and big streams
        expected.insert(QStringLiteral("/s%1").arg(i), data);
        const QString source = fileIn(dir, QStringLiteral("src%1").arg(i), data);
        runs.push_back(std::make_unique<QProcess>());
        runs.back()->start(QStringLiteral(VXCAM_PATH), {"cfb", "add", file, QStringLiteral("s%1").arg(i), source});
    }
    for (auto &run : runs) {
        ASSERT_TRUE(run->waitForFinished(60000));
        EXPECT_EQ(run->exitCode(), 0) << run->readAllStandardError().constData();
    }
    EXPECT_EQ(verifyWritten(readFile(file), expected), QString());
}

TEST(VxcamCfb, NamesDifferingOnlyInCaseAreOneName)
{
    QTemporaryDir dir;
    const QString file = dir.filePath("case.cfb");
    ASSERT_EQ(cfb({"new", file}).exitCode, 0);
    const struct { const char *path; QByteArray data; const char *stored; } adds[] = {
        {"Foo", "first", "/Foo"},     {"FOO", "second", "/Foo"}, {"/Dir/x", "x", "/Dir/x"},
        {"/DIR/X", "", "/Dir/x"},     {"foo", "last", "/Foo"},   {"/dir/Y", "y", "/Dir/Y"},
    };
    for (const auto &add : adds) {
        const VxcamRun run = cfb({"add", file, add.path, fileIn(dir, "src", add.data)}, true);
        ASSERT_EQ(run.exitCode, 0) << add.path << ": " << run.err.constData();
        EXPECT_EQ(run.jsonLines().value(0).value("added").toString(), QLatin1String(add.stored)) << add.path;
    }
    EXPECT_EQ(verifyWritten(readFile(file), {{"/Foo", "last"}, {"/Dir/x", ""}, {"/Dir/Y", "y"}}, {"/Dir"}), QString());
    EXPECT_EQ(cfb({"cat", file, "dir/y"}).out, "y");
    ASSERT_EQ(cfb({"rm", file, "FOO"}).exitCode, 0);
    EXPECT_EQ(verifyWritten(readFile(file), {{"/Dir/x", ""}, {"/Dir/Y", "y"}}, {"/Dir"}), QString());

    // A file from elsewhere with two such names: only the exact one is found.
    const QString twice = fileIn(dir, "twice.cfb", buildCompoundFile({{"Data", "1"}, {"DATA", "2"}}).bytes);
    EXPECT_EQ(cfb({"cat", twice, "DATA"}).out, "2");
    const VxcamRun ambiguous = cfb({"cat", twice, "data"});
    EXPECT_EQ(ambiguous.exitCode, 1);
    EXPECT_TRUE(ambiguous.err.contains("/data matches several entries: /Data, /DATA")) << ambiguous.err.constData();
}

TEST(VxcamCfb, EditsKeepModeOwnerAndLinksAndZeroWhatTheyRemove)
{
    QTemporaryDir dir;
    const QString file = fileIn(dir, "kept.cfb", readFile(fixture("gsf-mixed.ole")));
    const QString link = dir.filePath("link.cfb");
    ASSERT_EQ(::link(QFile::encodeName(file).constData(), QFile::encodeName(link).constData()), 0);
    ASSERT_EQ(chmod(QFile::encodeName(file).constData(), 0640), 0);
    const bool root = geteuid() == 0;
    if (root) {
        ASSERT_EQ(chown(QFile::encodeName(file).constData(), 4321, 4321), 0);
    }
    const QByteArray secret = QByteArray("top secret ").repeated(500);
    ASSERT_EQ(cfb({"add", file, "/secret", fileIn(dir, "s", secret)}).exitCode, 0);
    ASSERT_EQ(cfb({"add", file, "/empty too", fileIn(dir, "e", QByteArray())}).exitCode, 0);
    ASSERT_EQ(cfb({"rm", link, "/secret"}).exitCode, 0) << "through the other name";
    ASSERT_EQ(cfb({"rm", file, "/readme.txt"}).exitCode, 0);
    EXPECT_TRUE(readFile(link) == readFile(file)) << "both names see every change";
    EXPECT_FALSE(readFile(file).contains("top secret")) << "nothing removed can be read back";
    EXPECT_FALSE(readFile(file).contains(QByteArray("r\0e\0a\0d\0m\0e\0", 12)));
    struct stat after{};
    ASSERT_EQ(stat(QFile::encodeName(file).constData(), &after), 0);
    EXPECT_EQ(after.st_mode & 07777, 0640u);
    EXPECT_EQ(after.st_nlink, 2u);
    if (root) {
        EXPECT_TRUE(after.st_uid == 4321 && after.st_gid == 4321);
    }

    // A file with one name is replaced, with its mode; a symbolic link to it stays one.
    const QString single = fileIn(dir, "single.cfb", readFile(fixture("gsf-mixed.ole")));
    const QString symlink = dir.filePath("symlink.cfb");
    ASSERT_TRUE(QFile::link(single, symlink));
    ASSERT_EQ(chmod(QFile::encodeName(single).constData(), 0444), 0);
    ASSERT_EQ(cfb({"rm", symlink, "/empty"}).exitCode, 0);
    EXPECT_TRUE(QFileInfo(symlink).isSymLink());
    ASSERT_EQ(stat(QFile::encodeName(single).constData(), &after), 0);
    EXPECT_EQ(after.st_mode & 07777, 0444u);
    Listing expected = olefileListing(fixture("gsf-mixed.ole"));
    expected.remove("/empty");
    EXPECT_EQ(difference(olefileListing(single), expected), QString());
}

TEST(VxcamCfb, FailedWritesAreReportedInTheSystemsWords)
{
    QTemporaryDir dir;
    const QByteArray original = readFile(fixture("gsf-mixed.ole"));
    const QString file = fileIn(dir, "full.cfb", original);
    const QString big = fileIn(dir, "big", pattern(200000, 1));
    // Files may not grow past 64 KiB: the changed copy cannot be written.
    const VxcamRun add = shell("trap '' XFSZ; ulimit -f 64; exec \"$VXCAM\" cfb add " + quoted(file) + " /big " +
                               quoted(big));
    EXPECT_EQ(add.exitCode, 1);
    EXPECT_TRUE(add.out.isEmpty()) << "no \"added\" for a change that is not there: " << add.out.constData();
    EXPECT_TRUE(add.oneErrorLine() && add.err.contains("File too large")) << add.err.constData();
    EXPECT_TRUE(readFile(file) == original);
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden).size(), 2) << "no temporary file is left";

    for (const QString &arguments : {QStringLiteral("cat %1 /big9000.bin"), QStringLiteral("cat %1 --all"),
                                     QStringLiteral("ls %1")}) {
        const VxcamRun run = shell("exec \"$VXCAM\" cfb " + arguments.arg(quoted(file)) + " > /dev/full");
        EXPECT_EQ(run.exitCode, 1) << qPrintable(arguments);
        EXPECT_TRUE(run.err.contains("standard output: No space left on device")) << run.err.constData();
    }
}

TEST(VxcamCfb, CatAllAndExtractGiveEveryStream)
{
    QTemporaryDir dir;
    const QString file = fixture("gsf-mixed.ole");
    // In the order ls lists them.
    QByteArray expected;
    for (const char *path : {"/big9000.bin", "/docs/exact4096.bin", "/docs/small4095.bin", "/empty", "/readme.txt"})
        expected += cfb({"cat", file, path}).out;
    EXPECT_TRUE(cfb({"cat", file, "--all"}).out == expected);

    const QString out = dir.filePath("out");
    const VxcamRun extract = cfb({"extract", file, out});
    ASSERT_EQ(extract.exitCode, 0) << extract.err.constData();
    EXPECT_EQ(extract.out, file.toUtf8() + ": 5 streams extracted into " + out.toUtf8() + "\n");
    EXPECT_TRUE(readFile(out + "/docs/small4095.bin") == cfb({"cat", file, "/docs/small4095.bin"}).out);
    EXPECT_TRUE(QFileInfo(out + "/empty").isFile() && QFileInfo(out + "/empty").size() == 0);
    const VxcamRun verbose = runVxcam({"--verbose", "cfb", "extract", file, out});
    EXPECT_TRUE(verbose.out.contains("/docs/exact4096.bin -> " + out.toUtf8() + "/docs/exact4096.bin (4096 bytes)\n"))
        << verbose.out.constData();

    // Names that could lead elsewhere are escaped; a link planted where a
    // folder goes is not followed.
    std::vector<BuiltStream> odd{{"..", "dots"}, {"\x01" "CompObj", "obj"}, {"a\\b", "slash"}};
    const QString hostile = fileIn(dir, "odd.cfb", buildCompoundFile(odd).bytes);
    const QString target = dir.filePath("target");
    const VxcamRun names = cfb({"extract", hostile, target}, true);
    ASSERT_EQ(names.exitCode, 0) << names.err.constData();
    QStringList files = QDir(target).entryList(QDir::Files);
    files.sort();
    EXPECT_EQ(files, (QStringList{"\\x01CompObj", "\\x2e\\x2e", "a\\x5cb"}));
    EXPECT_TRUE(readFile(target + "/\\x2e\\x2e") == "dots");

    const QString outside = dir.filePath("outside");
    ASSERT_TRUE(QDir().mkpath(outside) && QDir().mkpath(dir.filePath("trap")));
    ASSERT_TRUE(QFile::link(outside, dir.filePath("trap/docs")));
    const VxcamRun trapped = cfb({"extract", file, dir.filePath("trap")});
    EXPECT_EQ(trapped.exitCode, 1);
    EXPECT_TRUE(trapped.err.contains("docs: exists and is not a folder")) << trapped.err.constData();
    EXPECT_TRUE(QDir(outside).isEmpty()) << "nothing lands outside the directory";
}
