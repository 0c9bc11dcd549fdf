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

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

// The pool is exercised through real loading of the modules built in
// tests/plugins (see their CMakeLists.txt), copied into a fresh directory per
// test under chosen names. xls and rival both register 21: xls answers 21 and
// sub-type 780 for "xls" and buffers starting "XLS", rival 22 and 256. decline
// (type 17) answers 0 with a reason, throw (16) gives a reason and then throws.
// Message ids of module N are N*1000 + key length, sanitisation ids N*1000 +
// 500 + key length.

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

// The two lines the pool logs for a plug-in it loads.
QStringList loadedLines(const QString &name, const QString &path)
{
    return {QStringLiteral("Loading plugin %1 version:vx_core2_camera_interface_v0.8").arg(name),
            QString::fromUtf8(QJsonDocument(QPluginLoader(path).metaData()).toJson(QJsonDocument::Compact))};
}

struct Installed
{
    const char *module;
    const char *name;
};

// A plug-in directory of its own holding copies of test modules, and the pool
// scanned from it with the lines it logged.
struct PoolDir
{
    explicit PoolDir(const std::vector<Installed> &modules = {})
    {
        for (const Installed &m : modules)
            add(m.module, QString::fromLatin1(m.name));
    }
    QString path(const QString &name) const { return m_dir.filePath(name); }
    void add(const char *module, const QString &name) const
    {
        ASSERT_TRUE(QFile::copy(QString::fromUtf8(module), path(name))) << "cannot copy " << module;
    }
    VXCameraPluginIF *plugin(const QString &name) const
    {
        return qobject_cast<VXCameraPluginIF *>(QPluginLoader(path(name)).instance());
    }
    Camera_Pool &scan(const QString &directory = QString())
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

// What a call throws as std::runtime_error.
std::string thrown(const std::function<void()> &call)
{
    try {
        call();
    } catch (const std::runtime_error &e) {
        return e.what();
    }
    return "no exception";
}

} // namespace

TEST(CameraPool, EmptyOrMissingDirectoryGivesAPoolThatAnswersNothing)
{
    PoolDir dir;
    for (const QString &directory : {dir.m_dir.path(), dir.path(QStringLiteral("missing"))}) {
        SCOPED_TRACE(directory.toStdString());
        const Camera_Pool &pool = dir.scan(directory);
        EXPECT_EQ(dir.log, QStringList({kHeader, QStringLiteral("num cameras: 0")}));
        EXPECT_TRUE(pool.getListOfCameraNames().isEmpty());
        EXPECT_EQ(pool.getFileTypeFromFileExtension("xls"), ft_unknown);
        MemoryBuffer buffer = bufferOf("XLS");
        QString reason = QStringLiteral("untouched");
        EXPECT_EQ(pool.getFileTypeFromFileInMemory(&buffer, reason), ft_unknown);
        EXPECT_EQ(pool.getSubFileTypeFromFileInMemory(&buffer, reason), ft_unknown);
        EXPECT_EQ(reason, QStringLiteral("untouched"));
        EXPECT_EQ(pool.getPluginFromFileType(ft_xls), nullptr);
        EXPECT_EQ(pool.getCameraNameFromFileType(ft_xls), QStringLiteral("unknown"));
        EXPECT_EQ(pool.getAnalysisGroupIdMap(ft_xls), nullptr);
        char key[] = "key";
        EXPECT_EQ(thrown([&] { pool.getErrMsgID(ft_xls, key); }), "Unable to determine Error Message ID");
        EXPECT_EQ(thrown([&] { pool.getSanitisationMsgID(ft_xls, key); }), "Unable to determine Sanitisation Message ID");
        EXPECT_EQ(thrown([&] { pool.getAnalysisGroupID(ft_xls, 1); }), "Unable to determine Analysis Group ID");
    }
}

TEST(CameraPool, ScanLoadsOnlyCameraPluginsInNameOrderAndLogsEveryFile)
{
    PoolDir dir({{VX_TEST_MODULE_DECLINE, "decline.so"}, {VX_TEST_MODULE_OTHER_IID, "old.so"},
                 {VX_TEST_MODULE_NOT_A_PLUGIN, "plain.so"}, {VX_TEST_MODULE_UNRESOLVED, "unresolved.so"},
                 {VX_TEST_MODULE_NOT_CAMERA, "notcamera.so"}, {VX_TEST_MODULE_THROW_ON_REGISTER, "register.so"},
                 {VX_TEST_MODULE_XLS, "xls.so.1"}, {VX_TEST_MODULE_XLS, "xls.txt"}, {VX_TEST_MODULE_XLS, "so"}});
    QFile text(dir.path(QStringLiteral("text.so")));
    ASSERT_TRUE(text.open(QIODevice::WriteOnly) && text.write("not a library\n") > 0);
    text.close();
    QFile(dir.path(QStringLiteral("empty.so"))).open(QIODevice::WriteOnly);
    ASSERT_TRUE(QDir(dir.m_dir.path()).mkpath(QStringLiteral("folder.so/sub")));
    ASSERT_TRUE(QFile::link(dir.path(QStringLiteral("gone")), dir.path(QStringLiteral("dangling.so"))));
    // A link is followed; the plug-in in the subfolder is not loaded by itself.
    dir.add(VX_TEST_MODULE_XLS, QStringLiteral("folder.so/sub/real.so"));
    ASSERT_TRUE(QFile::link(dir.path(QStringLiteral("folder.so/sub/real.so")), dir.path(QStringLiteral("xls.so"))));

    const Camera_Pool &pool = dir.scan();
    const auto skipping = [](const char *name) { return QStringLiteral("skipping other DLL ") + QLatin1String(name); };
    const QStringList expectedLog =
        QStringList{kHeader} + loadedLines(QStringLiteral("decline.so"), dir.path(QStringLiteral("decline.so")))
        + QStringList{skipping("empty.so"), skipping("folder.so")}
        + loadedLines(QStringLiteral("notcamera.so"), QStringLiteral(VX_TEST_MODULE_NOT_CAMERA))
        + QStringList{QStringLiteral("Rejecting plugin old.so version:vx_core2_camera_interface_v0.7"), skipping("plain.so")}
        + loadedLines(QStringLiteral("register.so"), QStringLiteral(VX_TEST_MODULE_THROW_ON_REGISTER))
        + QStringList{QStringLiteral("Fault in Camera_Pool::loadPlugin register.so"), skipping("text.so")}
        + loadedLines(QStringLiteral("xls.so"), QStringLiteral(VX_TEST_MODULE_XLS)) + QStringList{QStringLiteral("num cameras: 2")};
    EXPECT_EQ(dir.log, expectedLog);

    EXPECT_EQ(pool.getListOfCameraNames(), QStringList({QStringLiteral("decline.so"), QStringLiteral("xls.so")}));
    EXPECT_EQ(pool.getFileTypeFromCameraName(QStringLiteral("decline.so")), ft_doc);
    EXPECT_EQ(pool.getFileTypeFromCameraName(QStringLiteral("missing.so")), ft_unknown);
    EXPECT_EQ(pool.getCameraNameFromFileType(ft_xls), QStringLiteral("xls.so"));
    EXPECT_NE(pool.getPluginFromFileType(ft_xls), nullptr);
    EXPECT_EQ(pool.getPluginFromFileType(ft_xls), dir.plugin(QStringLiteral("xls.so")));
    EXPECT_EQ(pool.getPluginFromCameraName(QStringLiteral("decline.so")), dir.plugin(QStringLiteral("decline.so")));
    EXPECT_EQ(pool.getPluginFromCameraName(QStringLiteral("missing.so")), nullptr);
    ASSERT_NE(pool.getAnalysisGroupIdMap(ft_xls), nullptr);
    EXPECT_EQ(pool.getAnalysisGroupIdMap(ft_xls)->value(0), 1u) << "times initialiseIDLookups ran";
}

TEST(CameraPool, SameTypeGoesToTheFirstFileName)
{
    struct Case
    {
        std::vector<Installed> modules;
        const char *first;
        uint32_t idBase; // of the first one's module
    };
    const Case cases[] = {
        {{{VX_TEST_MODULE_XLS, "a.so"}, {VX_TEST_MODULE_XLS_RIVAL, "b.so"}}, "a.so", 1000},
        {{{VX_TEST_MODULE_XLS_RIVAL, "a.so"}, {VX_TEST_MODULE_XLS, "b.so"}}, "a.so", 2000},
        {{{VX_TEST_MODULE_XLS, "a.so"}, {VX_TEST_MODULE_XLS_RIVAL, "B.so"}}, "B.so", 2000}, // upper case sorts first
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.first);
        PoolDir dir(c.modules);
        const Camera_Pool &pool = dir.scan();
        const QString first = QString::fromLatin1(c.first);
        EXPECT_EQ(pool.getCameraNameFromFileType(ft_xls), first);
        EXPECT_EQ(pool.getPluginFromFileType(ft_xls), dir.plugin(first));
        EXPECT_EQ(pool.getAnalysisGroupIdMap(ft_xls), dir.plugin(first)->getAnalysisGroupIdMap());
        char key[] = "abc";
        EXPECT_EQ(pool.getErrMsgID(ft_xls, key), c.idBase + 3);
        EXPECT_EQ(pool.getSanitisationMsgID(ft_xls, key), c.idBase + 503);
        EXPECT_EQ(pool.getAnalysisGroupID(ft_xls, 1), c.idBase + 1);
        EXPECT_EQ(thrown([&] { pool.getErrMsgID(ft_pdf, key); }), "Unable to determine Error Message ID");
    }
}

TEST(CameraPool, FileTypeQuestionsTakeTheFirstNonZeroAnswerInNameOrder)
{
    struct Outcome // the extension question answers as the main-type one
    {
        ft_t main;
        const char *mainReason;
        ft_t sub;
        const char *subReason;
        bool fault; // the walk logs its fault line
    };
    const Outcome xls{ft_xls, "xls: main type", ft_cfb, "xls: sub-type", false};
    const Outcome rival{ft_xlsx, "rival: main type", ft_zip, "rival: sub-type", false};
    const Outcome declined{ft_unknown, "decline: not mine", ft_unknown, "decline: no sub-type", false};
    const Outcome failing{ft_unknown, "throw: failing", ft_unknown, "throw: failing", true};
    struct Case
    {
        const char *what;
        std::vector<Installed> modules;
        const char *extension, *content;
        Outcome expected;
    };
    const Case cases[] = {
        {"0 then 21", {{VX_TEST_MODULE_DECLINE, "a.so"}, {VX_TEST_MODULE_XLS, "b.so"}}, "xls", "XLS data", xls},
        {"21 then 0", {{VX_TEST_MODULE_XLS, "a.so"}, {VX_TEST_MODULE_DECLINE, "b.so"}}, "xls", "XLS data", xls},
        {"a reason given with 0 survives a later silent 0",
         {{VX_TEST_MODULE_DECLINE, "a.so"}, {VX_TEST_MODULE_XLS, "b.so"}}, "doc", "plain", declined},
        {"two answers: the first name wins", {{VX_TEST_MODULE_XLS, "a.so"}, {VX_TEST_MODULE_XLS_RIVAL, "b.so"}},
         "xls", "XLS data", xls},
        {"two answers, names swapped", {{VX_TEST_MODULE_XLS_RIVAL, "a.so"}, {VX_TEST_MODULE_XLS, "b.so"}},
         "xls", "XLS data", rival},
        {"a throw hides a later answer", {{VX_TEST_MODULE_THROW, "a.so"}, {VX_TEST_MODULE_XLS, "b.so"}},
         "xls", "XLS data", failing},
        {"a plug-in after an answer is never asked", {{VX_TEST_MODULE_XLS, "a.so"}, {VX_TEST_MODULE_THROW, "b.so"}},
         "xls", "XLS data", xls},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        PoolDir dir(c.modules);
        const Camera_Pool &pool = dir.scan();
        ASSERT_EQ(pool.getListOfCameraNames().size(), 2);
        const QStringList faultLog = c.expected.fault ? QStringList{"Fault in Camera_Pool::iterate_camera_pool_for_ftype"}
                                                      : QStringList();
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

TEST(CameraPool, ProgIdAndClassIdAreNotRouted)
{
    PoolDir dir({{VX_TEST_MODULE_XLS, "xls.so"}, {VX_TEST_MODULE_THROW, "throw.so"}});
    const Camera_Pool &pool = dir.scan();
    for (const char *key : {"Excel.Sheet.8", "00020820-0000-0000-C000-000000000046", "xls", "", (const char *)nullptr}) {
        EXPECT_EQ(pool.getFileTypeFromProgID(key), ft_unknown) << (key ? key : "null");
        EXPECT_EQ(pool.getFileTypeFromClassID(key), ft_unknown) << (key ? key : "null");
    }
}
