#include "cameras/camera_pool.h"

#include "buffers/MemoryBuffer.h"
#include "fixtures/fixtures.h"
#include "logcapture.h"
#include "qtprinters.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QPluginLoader>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <memory>
#include <vector>

// The pool loads copies of the modules of tests/plugins, installed under chosen
// names in a fresh directory per case. xls and rival both register 21: xls
// answers 21 and sub-type 780 for "xls" and buffers starting "XLS", rival 22 and
// 256. decline (17) answers 0 with a reason; throw (16) gives a reason, then
// throws. Message ids of module N are N*1000 + key length, sanitisation ids
// N*1000 + 500 + key length, group ids N*1000 + item.

namespace {

const QString kHeader = QStringLiteral("Loading pool of (version: vx_core2_camera_interface_v0.8) camera plugins ...");

// Non-debug lines are marked, so a stray warning shows up in a comparison.
QStringList debugLines(const LogCapture &log)
{
    QStringList lines;
    for (const CapturedLogLine &line : log.lines())
        lines << (line.type == QtDebugMsg ? line.message : QStringLiteral("[not debug] ") + line.message);
    return lines;
}

struct PoolDir
{
    explicit PoolDir(const std::vector<std::pair<const char *, const char *>> &modules = {})
    {
        for (const auto &[module, name] : modules)
            EXPECT_TRUE(QFile::copy(QString::fromUtf8(module), path(name))) << "cannot copy " << module;
    }
    QString path(const QString &name) const { return m_dir.filePath(name); }
    VXCameraPluginIF *plugin(const QString &name) const
    {
        return qobject_cast<VXCameraPluginIF *>(QPluginLoader(path(name)).instance());
    }
    const Camera_Pool &scan(const QString &directory = QString())
    {
        LogCapture capture;
        pool = std::make_unique<Camera_Pool>(directory.isNull() ? m_dir.path() : directory);
        log = debugLines(capture);
        return *pool;
    }

    QTemporaryDir m_dir;
    std::unique_ptr<Camera_Pool> pool;
    QStringList log;
};

} // namespace

TEST(CameraPool, EmptyOrMissingDirectoryGivesAPoolThatAnswersNothing)
{
    PoolDir dir;
    for (const QString &directory : {dir.m_dir.path(), dir.path(QStringLiteral("missing"))}) {
        SCOPED_TRACE(directory.toStdString());
        const Camera_Pool &pool = dir.scan(directory);
        EXPECT_EQ(dir.log, QStringList({kHeader, QStringLiteral("num cameras: 0")}));
        EXPECT_EQ(pool.getFileTypeFromFileExtension("xls"), ft_unknown);
        MemoryBuffer buffer = bufferOf("XLS");
        QString reason = QStringLiteral("untouched");
        EXPECT_EQ(pool.getFileTypeFromFileInMemory(&buffer, reason), ft_unknown);
        EXPECT_EQ(reason, QStringLiteral("untouched"));
        EXPECT_EQ(pool.getCameraNameFromFileType(ft_xls), QStringLiteral("unknown"));
        EXPECT_EQ(pool.getAnalysisGroupIdMap(ft_xls), nullptr);
    }
}

TEST(CameraPool, ScanLoadsOnlyCameraPluginsInNameOrderAndLogsEveryFile)
{
    PoolDir dir({{VX_TEST_MODULE_DECLINE, "decline.so"}, {VX_TEST_MODULE_OTHER_IID, "old.so"},
                 {VX_TEST_MODULE_NOT_A_PLUGIN, "plain.so"}, {VX_TEST_MODULE_UNRESOLVED, "unresolved.so"},
                 {VX_TEST_MODULE_NOT_CAMERA, "notcamera.so"}, {VX_TEST_MODULE_THROW_ON_REGISTER, "register.so"},
                 {VX_TEST_MODULE_XLS, "xls.so.1"}, {VX_TEST_MODULE_XLS, "xls.txt"}, {VX_TEST_MODULE_XLS, "so"}});
    ASSERT_FALSE(fileIn(dir.m_dir, "text.so", "not a library\n").isEmpty());
    ASSERT_FALSE(fileIn(dir.m_dir, "empty.so", QByteArray()).isEmpty());
    ASSERT_TRUE(QDir(dir.m_dir.path()).mkpath(QStringLiteral("folder.so/sub")));
    ASSERT_TRUE(QFile::link(dir.path(QStringLiteral("gone")), dir.path(QStringLiteral("dangling.so"))));
    // A link is followed; the plug-in in the subfolder is not loaded by itself.
    ASSERT_TRUE(QFile::copy(QStringLiteral(VX_TEST_MODULE_XLS), dir.path(QStringLiteral("folder.so/sub/real.so"))));
    ASSERT_TRUE(QFile::link(dir.path(QStringLiteral("folder.so/sub/real.so")), dir.path(QStringLiteral("xls.so"))));

    const Camera_Pool &pool = dir.scan();
    const auto skipping = [](const char *name) { return QStringLiteral("skipping other DLL ") + QLatin1String(name); };
    const auto loaded = [](const char *name, const char *module) {
        return QStringList{QStringLiteral("Loading plugin %1 version:vx_core2_camera_interface_v0.8").arg(name),
                           QJsonDocument(QPluginLoader(module).metaData()).toJson(QJsonDocument::Compact)};
    };
    const QStringList expectedLog =
        QStringList{kHeader} + loaded("decline.so", VX_TEST_MODULE_DECLINE)
        + QStringList{skipping("empty.so"), skipping("folder.so")} + loaded("notcamera.so", VX_TEST_MODULE_NOT_CAMERA)
        + QStringList{QStringLiteral("Rejecting plugin old.so version:vx_core2_camera_interface_v0.7"), skipping("plain.so")}
        + loaded("register.so", VX_TEST_MODULE_THROW_ON_REGISTER)
        + QStringList{QStringLiteral("Fault in Camera_Pool::loadPlugin register.so"), skipping("text.so")}
        + loaded("xls.so", VX_TEST_MODULE_XLS) + QStringList{QStringLiteral("num cameras: 2")};
    EXPECT_EQ(dir.log, expectedLog);

    EXPECT_EQ(pool.getListOfCameraNames(), QStringList({QStringLiteral("decline.so"), QStringLiteral("xls.so")}));
    EXPECT_EQ(pool.getFileTypeFromCameraName(QStringLiteral("decline.so")), ft_doc);
    EXPECT_EQ(pool.getFileTypeFromCameraName(QStringLiteral("missing.so")), ft_unknown);
    EXPECT_EQ(pool.getPluginFromCameraName(QStringLiteral("decline.so")), dir.plugin(QStringLiteral("decline.so")));
    EXPECT_EQ(pool.getPluginFromCameraName(QStringLiteral("missing.so")), nullptr);
    ASSERT_NE(pool.getAnalysisGroupIdMap(ft_xls), nullptr);
    EXPECT_EQ(pool.getAnalysisGroupIdMap(ft_xls)->value(0), 1u) << "times initialiseIDLookups ran";
}

TEST(CameraPool, SameTypeGoesToTheFirstFileNameAndIdsAreForwardedToIt)
{
    const struct
    {
        const char *rival, *first; // rival's name; xls is a.so
        uint32_t idBase;           // of the first one's module
    } cases[] = {{"b.so", "a.so", 1000}, {"B.so", "B.so", 2000}}; // upper case sorts first
    for (const auto &c : cases) {
        SCOPED_TRACE(c.first);
        PoolDir dir({{VX_TEST_MODULE_XLS, "a.so"}, {VX_TEST_MODULE_XLS_RIVAL, c.rival}});
        const Camera_Pool &pool = dir.scan();
        const QString first = QString::fromLatin1(c.first);
        ASSERT_NE(dir.plugin(first), nullptr);
        EXPECT_EQ(pool.getCameraNameFromFileType(ft_xls), first);
        EXPECT_EQ(pool.getPluginFromFileType(ft_xls), dir.plugin(first));
        EXPECT_EQ(pool.getAnalysisGroupIdMap(ft_xls), dir.plugin(first)->getAnalysisGroupIdMap());
        char key[] = "abc";
        EXPECT_EQ(pool.getErrMsgID(ft_xls, key), c.idBase + 3);
        EXPECT_EQ(pool.getSanitisationMsgID(ft_xls, key), c.idBase + 503);
        EXPECT_EQ(pool.getAnalysisGroupID(ft_xls, 1), c.idBase + 1);
        EXPECT_EQ(thrownText([&] { pool.getErrMsgID(ft_pdf, key); }), "std: Unable to determine Error Message ID");
        EXPECT_EQ(thrownText([&] { pool.getSanitisationMsgID(ft_pdf, key); }),
                  "std: Unable to determine Sanitisation Message ID");
        EXPECT_EQ(thrownText([&] { pool.getAnalysisGroupID(ft_pdf, 1); }), "std: Unable to determine Analysis Group ID");
    }
}

// Every question walks the plug-ins in name order and takes the first non-zero
// answer; the memory questions share one reason pointer across the walk; a
// throw ends the walk with 0 and a log line. The extension question answers as
// the main-type one.
TEST(CameraPool, FileTypeQuestionsTakeTheFirstNonZeroAnswerInNameOrder)
{
    struct Outcome { ft_t main; const char *mainReason; ft_t sub; const char *subReason; bool fault; };
    const Outcome xls{ft_xls, "xls: main type", ft_cfb, "xls: sub-type", false};
    const Outcome rival{ft_xlsx, "rival: main type", ft_zip, "rival: sub-type", false};
    const Outcome declined{ft_unknown, "decline: not mine", ft_unknown, "decline: no sub-type", false};
    const Outcome failing{ft_unknown, "throw: failing", ft_unknown, "throw: failing", true};
    const struct
    {
        const char *what, *a, *b, *extension, *content;
        Outcome expected;
    } cases[] = {
        {"0 then 21", VX_TEST_MODULE_DECLINE, VX_TEST_MODULE_XLS, "xls", "XLS data", xls},
        {"a reason given with 0 survives a later silent 0", VX_TEST_MODULE_DECLINE, VX_TEST_MODULE_XLS, "doc", "plain",
         declined},
        {"two answers: the first name wins", VX_TEST_MODULE_XLS_RIVAL, VX_TEST_MODULE_XLS, "xls", "XLS data", rival},
        {"a throw hides a later answer", VX_TEST_MODULE_THROW, VX_TEST_MODULE_XLS, "xls", "XLS data", failing},
        {"a plug-in after an answer is never asked", VX_TEST_MODULE_XLS, VX_TEST_MODULE_THROW, "xls", "XLS data", xls},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        PoolDir dir({{c.a, "a.so"}, {c.b, "b.so"}});
        const Camera_Pool &pool = dir.scan();
        ASSERT_EQ(pool.getListOfCameraNames().size(), 2);
        const QStringList faultLog =
            c.expected.fault ? QStringList{"Fault in Camera_Pool::iterate_camera_pool_for_ftype"} : QStringList();
        MemoryBuffer buffer = bufferOf(c.content);
        const auto expectAnswer = [&](ft_t (Camera_Pool::*question)(MemoryBuffer *, QString &) const, ft_t type,
                                      const char *reason, const char *what) {
            LogCapture log;
            QString given = QStringLiteral("untouched");
            EXPECT_EQ((pool.*question)(&buffer, given), type) << what;
            EXPECT_EQ(given, QString::fromUtf8(reason)) << what;
            EXPECT_EQ(debugLines(log), faultLog) << what;
        };
        expectAnswer(&Camera_Pool::getFileTypeFromFileInMemory, c.expected.main, c.expected.mainReason, "main type");
        expectAnswer(&Camera_Pool::getSubFileTypeFromFileInMemory, c.expected.sub, c.expected.subReason, "sub-type");
        LogCapture log;
        EXPECT_EQ(pool.getFileTypeFromFileExtension(c.extension), c.expected.main) << "extension";
        EXPECT_EQ(debugLines(log), faultLog) << "extension";
    }
}
