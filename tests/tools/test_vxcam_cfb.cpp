// vxcam cfb through the built program: listings and bytes compared with an
// independent reader, changes verified by it, and failures that leave files
// as they were.

#include "containers/cfbtesttools.h"
#include "qtprinters.h"
#include "vxcamrunner.h"

#include <QJsonDocument>
#include <gtest/gtest.h>

using namespace cfbtest;

namespace {

struct Outcome
{
    int exitCode = -1;
    QByteArray out;
    QString err;
    QList<QJsonObject> json;
};

Outcome vxcam(const QStringList &args)
{
    const VxcamRun run = runVxcam(args);
    return Outcome{run.exitCode, run.out, QString::fromUtf8(run.err), run.jsonLines()};
}

} // namespace

TEST(VxcamCfb, JsonListingMatchesTheIndependentReader)
{
    for (const char *name : {"gsf-mixed.ole", "writer.doc"}) {
        const QString file = fixture(QString::fromLatin1(name));
        const Outcome r = vxcam({QStringLiteral("--json"), QStringLiteral("cfb"), QStringLiteral("ls"), file});
        ASSERT_EQ(r.exitCode, 0) << qPrintable(r.err);
        const Listing theirs = olefileListing(file);
        ASSERT_TRUE(theirs.ok) << qPrintable(theirs.error);
        const QList<QJsonObject> lines = r.json;
        ASSERT_EQ(lines.size(), theirs.entries.size() + 1) << "every entry and the root";
        EXPECT_EQ(lines.first().value(QStringLiteral("path")).toString(), QStringLiteral("/"));
        EXPECT_EQ(olefileStyle(lines.first().value(QStringLiteral("clsid")).toString()), theirs.rootClsid);
        for (const QJsonObject &o : lines.mid(1)) {
            const QString path = o.value(QStringLiteral("path")).toString();
            ASSERT_TRUE(theirs.entries.contains(path)) << qPrintable(path);
            const Entry &e = theirs.entries.value(path);
            EXPECT_EQ(o.value(QStringLiteral("kind")).toString(), e.kind) << qPrintable(path);
            EXPECT_EQ(qint64(o.value(QStringLiteral("size")).toDouble()), e.size) << qPrintable(path);
            EXPECT_EQ(olefileStyle(o.value(QStringLiteral("clsid")).toString()), e.clsid) << qPrintable(path);
        }
    }
}

TEST(VxcamCfb, HumanListingIsATree)
{
    const Outcome r = vxcam({QStringLiteral("cfb"), QStringLiteral("ls"), fixture(QStringLiteral("gsf-mixed.ole"))});
    ASSERT_EQ(r.exitCode, 0) << qPrintable(r.err);
    const QStringList lines = QString::fromUtf8(r.out).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    EXPECT_EQ(lines.first(), QStringLiteral("/"));
    EXPECT_TRUE(lines.contains(QStringLiteral("  docs/")));
    const int at = lines.indexOf(QRegularExpression(QStringLiteral("^    small4095\\.bin +4095$")));
    EXPECT_GT(at, lines.indexOf(QStringLiteral("  docs/"))) << qPrintable(lines.join(QLatin1Char('\n')));

    const Outcome word = vxcam({QStringLiteral("cfb"), QStringLiteral("ls"), fixture(QStringLiteral("writer.doc"))});
    EXPECT_TRUE(QString::fromUtf8(word.out).contains(QStringLiteral("\\x01CompObj"))) << "control characters are escaped";
    EXPECT_TRUE(QString::fromUtf8(word.out).startsWith(QStringLiteral("/"))) ;
    EXPECT_TRUE(QString::fromUtf8(word.out).section(QLatin1Char('\n'), 0, 0).endsWith(QStringLiteral("{00020906-0000-0000-c000-000000000046}")));
}

TEST(VxcamCfb, CatWritesTheStreamBytes)
{
    const QString file = fixture(QStringLiteral("writer.doc"));
    const Listing theirs = olefileListing(file);
    ASSERT_TRUE(theirs.ok) << qPrintable(theirs.error);
    for (const char *path : {"/WordDocument", "1Table", "/\\x01CompObj"}) {
        const Outcome r = vxcam({QStringLiteral("cfb"), QStringLiteral("cat"), file, QString::fromLatin1(path)});
        ASSERT_EQ(r.exitCode, 0) << path << ": " << qPrintable(r.err);
        QString key = QString::fromLatin1(path).replace(QStringLiteral("\\x01"), QString(QChar(1)));
        if (!key.startsWith(QLatin1Char('/')))
            key.prepend(QLatin1Char('/'));
        EXPECT_EQ(sha256(r.out), theirs.entries.value(key).sha256) << path;
    }
}

TEST(VxcamCfb, InfoShowsHeaderStatsAndSubType)
{
    struct Case
    {
        const char *file;
        int subtype;
        const char *reason;
    };
    for (const Case &c : {Case{"writer.doc", 17, "class identifier"}, Case{"calc.xls", 21, "structure match"},
                          Case{"gsf-mixed.ole", 0, ""}}) {
        const Outcome r = vxcam({QStringLiteral("--json"), QStringLiteral("cfb"), QStringLiteral("info"), fixture(QString::fromLatin1(c.file))});
        ASSERT_EQ(r.exitCode, 0) << qPrintable(r.err);
        const QJsonObject o = QJsonDocument::fromJson(r.out).object();
        EXPECT_EQ(o.value(QStringLiteral("sector_size")).toInt(), 512) << c.file;
        EXPECT_EQ(o.value(QStringLiteral("threshold")).toInt(), 4096) << c.file;
        EXPECT_GE(o.value(QStringLiteral("num_bat")).toInt(), 1) << c.file;
        EXPECT_EQ(o.value(QStringLiteral("bat_entries")).toInt(), 128 * o.value(QStringLiteral("num_bat")).toInt()) << c.file;
        EXPECT_EQ(o.value(QStringLiteral("cfb_subtype")).toInt(), c.subtype) << c.file;
        EXPECT_EQ(o.value(QStringLiteral("cfb_subtype_reason")).toString(), QString::fromLatin1(c.reason)) << c.file;
    }
    const Outcome human = vxcam({QStringLiteral("cfb"), QStringLiteral("info"), fixture(QStringLiteral("writer.doc"))});
    EXPECT_TRUE(QString::fromUtf8(human.out).contains(QStringLiteral("sub-type: 17 (ft_doc) by class identifier")))
        << human.out.constData();
}

TEST(VxcamCfb, NewAddRmMakeFilesTheIndependentReaderReads)
{
    QTemporaryDir dir;
    const QString file = dir.filePath(QStringLiteral("made.cfb"));
    const QString big = dir.filePath(QStringLiteral("big.bin"));
    const QString small = dir.filePath(QStringLiteral("small.bin"));
    ASSERT_TRUE(writeFile(big, pattern(20000, 1)));
    ASSERT_TRUE(writeFile(small, pattern(300, 2)));

    ASSERT_EQ(vxcam({QStringLiteral("cfb"), QStringLiteral("new"), file}).exitCode, 0);
    EXPECT_EQ(verifyWritten(readFile(file), {}), QString());
    ASSERT_EQ(vxcam({QStringLiteral("cfb"), QStringLiteral("add"), file, QStringLiteral("/data/big"), big}).exitCode, 0);
    ASSERT_EQ(vxcam({QStringLiteral("cfb"), QStringLiteral("add"), file, QStringLiteral("notes"), small}).exitCode, 0);
    ASSERT_EQ(vxcam({QStringLiteral("cfb"), QStringLiteral("add"), file, QStringLiteral("/gone"), small}).exitCode, 0);
    // Replacing a longer stream leaves exactly the new bytes.
    const Outcome replaced = vxcam({QStringLiteral("--json"), QStringLiteral("cfb"), QStringLiteral("add"), file, QStringLiteral("/data/big"), small});
    ASSERT_EQ(replaced.exitCode, 0) << qPrintable(replaced.err);
    EXPECT_EQ(QJsonDocument::fromJson(replaced.out).object().value(QStringLiteral("size")).toInt(), 300);
    ASSERT_EQ(vxcam({QStringLiteral("cfb"), QStringLiteral("rm"), file, QStringLiteral("/gone")}).exitCode, 0);
    EXPECT_EQ(verifyWritten(readFile(file), {{QStringLiteral("/data/big"), pattern(300, 2)}, {QStringLiteral("/notes"), pattern(300, 2)}},
                            {QStringLiteral("/data")}),
              QString());
    ASSERT_EQ(vxcam({QStringLiteral("cfb"), QStringLiteral("rm"), file, QStringLiteral("/data")}).exitCode, 0);
    EXPECT_EQ(verifyWritten(readFile(file), {{QStringLiteral("/notes"), pattern(300, 2)}}), QString());
}

TEST(VxcamCfb, FailuresAreOneLineAndLeaveFilesAlone)
{
    QTemporaryDir dir;
    const QString file = dir.filePath(QStringLiteral("keep.cfb"));
    const QByteArray original = readFile(fixture(QStringLiteral("gsf-mixed.ole")));
    ASSERT_TRUE(writeFile(file, original));
    const QString source = dir.filePath(QStringLiteral("src"));
    ASSERT_TRUE(writeFile(source, "abc"));
    const QString text = dir.filePath(QStringLiteral("text.txt"));
    ASSERT_TRUE(writeFile(text, "not a compound file"));

    struct Case
    {
        QStringList args;
        int exitCode;
        const char *message;
    };
    const Case cases[] = {
        {{"cat", file, "/missing"}, 1, "no stream /missing"},
        {{"cat", file, "/docs"}, 1, "no stream /docs"},
        {{"cat", text, "/x"}, 1, "not a compound file"},
        {{"ls", dir.filePath(QStringLiteral("absent"))}, 1, "no such file"},
        {{"rm", file, "/"}, 1, "the root cannot be removed"},
        {{"rm", file, "/missing"}, 1, "no entry /missing"},
        {{"add", file, "/docs", source}, 1, "/docs is a storage"},
        {{"add", file, "/readme.txt/under", source}, 1, "cannot store"},
        {{"add", file, "/" + QString(40, QLatin1Char('n')), source}, 1, "max length for name is 31 chars"},
        {{"add", file, "/x", dir.filePath(QStringLiteral("absent"))}, 1, "no such file"},
        {{"add", text, "/x", source}, 1, "not a compound file"},
        {{"new", file}, 1, "already exists"},
        {{"frobnicate", file}, 2, "unknown sub-command"},
        {{"cat", file}, 2, "cat takes 2 argument(s)"},
        {{}, 2, "missing sub-command"},
    };
    for (const Case &c : cases) {
        const Outcome r = vxcam(QStringList{QStringLiteral("cfb")} + c.args);
        const QString what = c.args.join(QLatin1Char(' '));
        EXPECT_EQ(r.exitCode, c.exitCode) << qPrintable(what);
        EXPECT_TRUE(r.err.contains(QString::fromLatin1(c.message))) << qPrintable(what) << ": " << qPrintable(r.err);
        EXPECT_EQ(r.err.count(QLatin1Char('\n')), 1) << qPrintable(what) << ": " << qPrintable(r.err);
        EXPECT_TRUE(readFile(file) == original) << qPrintable(what) << " changed the file";
        EXPECT_EQ(readFile(text), QByteArray("not a compound file"));
    }
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files).size(), 3) << "no temporary file is left";
}

TEST(VxcamCfb, DamagedFilesAreListedWithoutHanging)
{
    std::vector<BuiltStream> streams;
    for (int i = 0; i < 4; ++i)
        streams.push_back({QStringLiteral("s%1").arg(i), pattern(10, i)});
    BuiltFile built = buildCompoundFile(streams);
    put32(built.bytes, built.dirEntryOffset(4) + 72, 1);  // s3 -> s0: a cycle
    built.bytes[built.dirEntryOffset(2) + 66] = 1;          // s1 is a storage
    put32(built.bytes, built.dirEntryOffset(2) + 76, 1);  // whose child is s0
    QTemporaryDir dir;
    const QString file = dir.filePath(QStringLiteral("cyclic.cfb"));
    ASSERT_TRUE(writeFile(file, built.bytes));
    const Outcome r = vxcam({QStringLiteral("--json"), QStringLiteral("cfb"), QStringLiteral("ls"), file});
    EXPECT_EQ(r.exitCode, 0) << qPrintable(r.err);
    EXPECT_EQ(r.json.size(), 5) << r.out.constData();
    EXPECT_EQ(vxcam({QStringLiteral("cfb"), QStringLiteral("info"), file}).exitCode, 0);
}
