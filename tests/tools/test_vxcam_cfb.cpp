// vxcam cfb: listings and bytes compared with an independent reader, changes
// verified by it, and failures that leave files as they were.

#include "containers/cfbtesttools.h"
#include "qtprinters.h"
#include "vxcamrunner.h"

#include <gtest/gtest.h>

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
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files).size(), 3) << "no temporary file is left";
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
    const VxcamRun all = cfb({"cat", file, "--all"});
    EXPECT_EQ(all.exitCode, 0) << all.err.left(500).constData();
}
