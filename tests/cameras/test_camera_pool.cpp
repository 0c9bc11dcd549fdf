#include "cameras/camera_pool.h"

#include "buffers/MemoryBuffer.h"
#include "qtprinters.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QPluginLoader>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

// The pool is exercised through real loading of the modules built in
// tests/plugins, copied into a fresh directory per test under chosen names:
//   xls        registers 21; answers 21 for "xls" / buffers starting "XLS", sub-type 780
//   rival      registers 21; answers 22 for the same, sub-type 256
//   decline    registers 17; answers 0 to everything but gives a reason
//   throw      registers 16; gives a reason, then throws from every question
//   register   throws when asked for its registered type
//   old        the xls camera under another interface identifier
//   unresolved a camera plug-in that cannot be loaded
//   notcamera  a Qt plug-in with the right identifier whose object is no camera
//   plain      a shared object that is not a Qt plug-in
// Message ids of module N are N*1000 + key length (error) and N*1000 + 500 +
// key length (sanitisation); xls is 1, rival 2.

namespace {

const char kXls[] = VX_TEST_MODULE_XLS;
const char kRival[] = VX_TEST_MODULE_XLS_RIVAL;
const char kDecline[] = VX_TEST_MODULE_DECLINE;
const char kThrow[] = VX_TEST_MODULE_THROW;
const char kThrowOnRegister[] = VX_TEST_MODULE_THROW_ON_REGISTER;
const char kOtherIid[] = VX_TEST_MODULE_OTHER_IID;
const char kUnresolved[] = VX_TEST_MODULE_UNRESOLVED;
const char kNotCamera[] = VX_TEST_MODULE_NOT_CAMERA;
const char kNotAPlugin[] = VX_TEST_MODULE_NOT_A_PLUGIN;

const QString kHeader = QStringLiteral("Loading pool of (version: vx_core2_camera_interface_v0.8) camera plugins ...");
const QString kWalkFault = QStringLiteral("Fault in Camera_Pool::iterate_camera_pool_for_ftype");

// Every message Qt's logging receives while it lives; anything but a debug
// line is marked, so an unexpected warning shows up in a comparison.
class LogCapture
{
public:
    LogCapture() : m_previous(qInstallMessageHandler(&LogCapture::handle)) { s_lines = &m_lines; }
    ~LogCapture()
    {
        qInstallMessageHandler(m_previous);
        s_lines = nullptr;
    }
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    QStringList lines() const { return m_lines; }

private:
    static void handle(QtMsgType type, const QMessageLogContext &, const QString &message)
    {
        if (s_lines != nullptr)
            s_lines->append(type == QtDebugMsg ? message : QStringLiteral("[not debug] ") + message);
    }

    static QStringList *s_lines;
    QStringList m_lines;
    QtMessageHandler m_previous;
};
QStringList *LogCapture::s_lines = nullptr;

// The two lines the pool logs for a plug-in it loads.
QStringList loadedLines(const QString &name, const QString &path)
{
    QPluginLoader loader(path);
    return {QStringLiteral("Loading plugin %1 version:vx_core2_camera_interface_v0.8").arg(name),
            QString::fromUtf8(QJsonDocument(loader.metaData()).toJson(QJsonDocument::Compact))};
}

// A plug-in directory of its own, filled with copies of the test modules.
class PluginDir
{
public:
    PluginDir() { EXPECT_TRUE(m_dir.isValid()) << "cannot make a temporary directory"; }

    QString path() const { return m_dir.path(); }
    QString filePath(const QString &name) const { return m_dir.filePath(name); }

    void add(const char *module, const QString &name) const
    {
        ASSERT_TRUE(QFile::copy(QString::fromUtf8(module), filePath(name))) << "cannot copy " << module;
    }
    void write(const QString &name, const QByteArray &content) const
    {
        QFile file(filePath(name));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly)) << name.toStdString();
        file.write(content);
    }
    void mkdir(const QString &name) const { ASSERT_TRUE(QDir(path()).mkpath(name)) << name.toStdString(); }
    void link(const QString &target, const QString &name) const
    {
        ASSERT_TRUE(QFile::link(target, filePath(name))) << name.toStdString();
    }

    // The plug-in object of one of the directory's files, as Qt shares it.
    VXCameraPluginIF *plugin(const QString &name) const
    {
        QPluginLoader loader(filePath(name));
        return qobject_cast<VXCameraPluginIF *>(loader.instance());
    }

private:
    QTemporaryDir m_dir;
};

struct Installed
{
    const char *module;
    const char *name;
};

struct LoggedPool
{
    std::unique_ptr<Camera_Pool> pool;
    QStringList log;
};

LoggedPool makePool(const QString &directory)
{
    LogCapture capture;
    auto pool = std::make_unique<Camera_Pool>(directory);
    return {std::move(pool), capture.lines()};
}

LoggedPool makePool(const PluginDir &dir, std::initializer_list<Installed> modules)
{
    for (const Installed &m : modules)
        dir.add(m.module, QString::fromLatin1(m.name));
    return makePool(dir.path());
}

void expectRuntimeError(const std::function<void()> &call, const char *message)
{
    try {
        call();
        ADD_FAILURE() << "no exception, expected \"" << message << "\"";
    } catch (const std::runtime_error &e) {
        EXPECT_STREQ(e.what(), message);
    }
}

MemoryBuffer bufferOf(const char *text)
{
    return MemoryBuffer(std::strlen(text), reinterpret_cast<unsigned char *>(const_cast<char *>(text)));
}

} // namespace

// ---------------------------------------------------------------------------
// Scanning

TEST(CameraPoolScan, EmptyOrMissingDirectoryGivesAnEmptyPoolThatAnswersNothing)
{
    const PluginDir empty;
    for (const QString &directory : {empty.path(), empty.filePath(QStringLiteral("missing"))}) {
        SCOPED_TRACE(directory.toStdString());
        const LoggedPool made = makePool(directory);
        const Camera_Pool &pool = *made.pool;
        EXPECT_EQ(made.log, QStringList({kHeader, QStringLiteral("num cameras: 0")}));
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
        expectRuntimeError([&] { pool.getErrMsgID(ft_xls, key); }, "Unable to determine Error Message ID");
        expectRuntimeError([&] { pool.getSanitisationMsgID(ft_xls, key); },
                           "Unable to determine Sanitisation Message ID");
        expectRuntimeError([&] { pool.getAnalysisGroupID(ft_xls, 1); }, "Unable to determine Analysis Group ID");
    }
}

TEST(CameraPoolScan, DefaultConstructorScansTheWorkingDirectory)
{
    const PluginDir dir;
    dir.add(kXls, QStringLiteral("cam.so"));
    const QString previous = QDir::currentPath();
    ASSERT_TRUE(QDir::setCurrent(dir.path()));
    std::unique_ptr<Camera_Pool> pool;
    {
        LogCapture capture;
        pool = std::make_unique<Camera_Pool>();
    }
    QDir::setCurrent(previous);
    EXPECT_EQ(pool->getListOfCameraNames(), QStringList{QStringLiteral("cam.so")});
}

TEST(CameraPoolScan, LoadsEveryCameraPluginAndLogsItsMetadata)
{
    const PluginDir dir;
    const LoggedPool made = makePool(dir, {{kXls, "xls.so"}, {kDecline, "decline.so"}});
    const Camera_Pool &pool = *made.pool;

    const QStringList expectedLog = QStringList{kHeader}
                                    + loadedLines(QStringLiteral("decline.so"), dir.filePath(QStringLiteral("decline.so")))
                                    + loadedLines(QStringLiteral("xls.so"), dir.filePath(QStringLiteral("xls.so")))
                                    + QStringList{QStringLiteral("num cameras: 2")};
    EXPECT_EQ(made.log, expectedLog);

    EXPECT_EQ(pool.getListOfCameraNames(), QStringList({QStringLiteral("decline.so"), QStringLiteral("xls.so")}));
    EXPECT_EQ(pool.getFileTypeFromCameraName(QStringLiteral("xls.so")), ft_xls);
    EXPECT_EQ(pool.getFileTypeFromCameraName(QStringLiteral("decline.so")), ft_doc);
    EXPECT_EQ(pool.getFileTypeFromCameraName(QStringLiteral("missing.so")), ft_unknown);
    EXPECT_EQ(pool.getCameraNameFromFileType(ft_doc), QStringLiteral("decline.so"));
    EXPECT_EQ(pool.getPluginFromFileType(ft_xls), dir.plugin(QStringLiteral("xls.so")));
    EXPECT_NE(pool.getPluginFromFileType(ft_xls), nullptr);
    EXPECT_EQ(pool.getPluginFromCameraName(QStringLiteral("decline.so")), dir.plugin(QStringLiteral("decline.so")));
    EXPECT_NE(pool.getPluginFromCameraName(QStringLiteral("decline.so")), pool.getPluginFromFileType(ft_xls));
    EXPECT_EQ(pool.getPluginFromCameraName(QStringLiteral("missing.so")), nullptr);

    const AnalysisGroupIdMap_t *groups = pool.getAnalysisGroupIdMap(ft_xls);
    ASSERT_NE(groups, nullptr) << "the plug-in's table, built by initialiseIDLookups";
    EXPECT_EQ(groups->value(0), 1u) << "times initialiseIDLookups ran";
}

TEST(CameraPoolScan, LeavesOutWhatIsNotALoadableCameraPlugin)
{
    struct Case
    {
        const char *what;
        std::function<void(const PluginDir &)> prepare;
        QStringList logged; // between the header and "num cameras:"
    };
    const std::vector<Case> cases = {
        {"another interface version", [](const PluginDir &d) { d.add(kOtherIid, QStringLiteral("old.so")); },
         {QStringLiteral("Rejecting plugin old.so version:vx_core2_camera_interface_v0.7")}},
        {"a shared object that is no Qt plug-in",
         [](const PluginDir &d) { d.add(kNotAPlugin, QStringLiteral("plain.so")); },
         {QStringLiteral("skipping other DLL plain.so")}},
        {"a text file", [](const PluginDir &d) { d.write(QStringLiteral("text.so"), "not a library\n"); },
         {QStringLiteral("skipping other DLL text.so")}},
        {"an empty file", [](const PluginDir &d) { d.write(QStringLiteral("empty.so"), QByteArray()); },
         {QStringLiteral("skipping other DLL empty.so")}},
        {"a directory", [](const PluginDir &d) { d.mkdir(QStringLiteral("folder.so")); },
         {QStringLiteral("skipping other DLL folder.so")}},
        {"a dangling link",
         [](const PluginDir &d) { d.link(d.filePath(QStringLiteral("gone")), QStringLiteral("dangling.so")); }, {}},
        {"names not ending in .so",
         [](const PluginDir &d) {
             d.add(kXls, QStringLiteral("xls.so.1"));
             d.add(kXls, QStringLiteral("xls.txt"));
             d.add(kXls, QStringLiteral("so"));
         },
         {}},
        {"a plug-in in a subfolder", [](const PluginDir &d) {
             d.mkdir(QStringLiteral("sub"));
             d.add(kXls, QStringLiteral("sub/xls.so"));
         },
         {}},
        {"a camera plug-in that cannot be loaded",
         [](const PluginDir &d) { d.add(kUnresolved, QStringLiteral("unresolved.so")); }, {}},
        {"a plug-in whose object is no camera",
         [](const PluginDir &d) { d.add(kNotCamera, QStringLiteral("notcamera.so")); },
         loadedLines(QStringLiteral("notcamera.so"), QString::fromUtf8(kNotCamera))},
        {"a plug-in that fails to register",
         [](const PluginDir &d) { d.add(kThrowOnRegister, QStringLiteral("register.so")); },
         loadedLines(QStringLiteral("register.so"), QString::fromUtf8(kThrowOnRegister))
             + QStringList{QStringLiteral("Fault in Camera_Pool::loadPlugin register.so")}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        const PluginDir dir;
        c.prepare(dir);
        dir.add(kDecline, QStringLiteral("zz_good.so")); // the rest of the directory still loads
        const LoggedPool made = makePool(dir.path());
        EXPECT_EQ(made.pool->getListOfCameraNames(), QStringList{QStringLiteral("zz_good.so")});
        const QStringList expectedLog = QStringList{kHeader} + c.logged
                                        + loadedLines(QStringLiteral("zz_good.so"), dir.filePath(QStringLiteral("zz_good.so")))
                                        + QStringList{QStringLiteral("num cameras: 1")};
        EXPECT_EQ(made.log, expectedLog);
    }
}

TEST(CameraPoolScan, FollowsLinksToPlugins)
{
    const PluginDir dir;
    dir.mkdir(QStringLiteral("elsewhere"));
    dir.add(kXls, QStringLiteral("elsewhere/real.so"));
    dir.link(dir.filePath(QStringLiteral("elsewhere/real.so")), QStringLiteral("link.so"));
    const LoggedPool made = makePool(dir.path());
    EXPECT_EQ(made.pool->getListOfCameraNames(), QStringList{QStringLiteral("link.so")});
    EXPECT_EQ(made.pool->getCameraNameFromFileType(ft_xls), QStringLiteral("link.so"));
}

TEST(CameraPoolLoad, LoadPluginAddsOrReplacesByName)
{
    const PluginDir dir;
    dir.add(kXls, QStringLiteral("one.so"));
    dir.add(kDecline, QStringLiteral("two.so"));
    dir.add(kOtherIid, QStringLiteral("old.so"));
    dir.add(kNotCamera, QStringLiteral("notcamera.so"));
    dir.add(kUnresolved, QStringLiteral("unresolved.so"));
    const PluginDir empty;
    LoggedPool made = makePool(empty.path());
    Camera_Pool &pool = *made.pool;
    LogCapture quiet;

    EXPECT_TRUE(pool.loadPlugin(QStringLiteral("cam.so"), dir.filePath(QStringLiteral("one.so"))));
    EXPECT_EQ(pool.getFileTypeFromCameraName(QStringLiteral("cam.so")), ft_xls);
    EXPECT_EQ(pool.getCameraNameFromFileType(ft_xls), QStringLiteral("cam.so")) << "the key is the name given";

    EXPECT_TRUE(pool.loadPlugin(QStringLiteral("cam.so"), dir.filePath(QStringLiteral("two.so"))));
    EXPECT_EQ(pool.getListOfCameraNames(), QStringList{QStringLiteral("cam.so")});
    EXPECT_EQ(pool.getFileTypeFromCameraName(QStringLiteral("cam.so")), ft_doc) << "a second load replaces the entry";
    EXPECT_EQ(pool.getPluginFromFileType(ft_xls), nullptr);

    for (const char *rejected : {"old.so", "notcamera.so", "unresolved.so", "missing.so"}) {
        EXPECT_FALSE(pool.loadPlugin(QStringLiteral("x.so"), dir.filePath(QString::fromLatin1(rejected))))
            << rejected;
    }
    EXPECT_EQ(pool.getListOfCameraNames(), QStringList{QStringLiteral("cam.so")});
}

// ---------------------------------------------------------------------------
// Lookups by type

TEST(CameraPoolLookup, SameTypeGoesToTheFirstFileName)
{
    struct Case
    {
        std::vector<Installed> modules;
        const char *first;
        uint32_t idBase; // of the first one's module
    };
    const std::vector<Case> cases = {
        {{{kXls, "a.so"}, {kRival, "b.so"}}, "a.so", 1000},
        {{{kRival, "a.so"}, {kXls, "b.so"}}, "a.so", 2000},
        {{{kXls, "a.so"}, {kRival, "B.so"}}, "B.so", 2000}, // upper case sorts first
        {{{kRival, "b.so"}, {kXls, "a.so"}, {kDecline, "0.so"}}, "a.so", 1000},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.first);
        const PluginDir dir;
        for (const Installed &m : c.modules)
            dir.add(m.module, QString::fromLatin1(m.name));
        const LoggedPool made = makePool(dir.path());
        const Camera_Pool &pool = *made.pool;
        const QString first = QString::fromLatin1(c.first);

        EXPECT_EQ(pool.getCameraNameFromFileType(ft_xls), first);
        EXPECT_EQ(pool.getPluginFromFileType(ft_xls), dir.plugin(first));
        EXPECT_EQ(pool.getAnalysisGroupIdMap(ft_xls), dir.plugin(first)->getAnalysisGroupIdMap());
        char key[] = "abc";
        EXPECT_EQ(pool.getErrMsgID(ft_xls, key), c.idBase + 3);
        EXPECT_EQ(pool.getSanitisationMsgID(ft_xls, key), c.idBase + 503);
        EXPECT_EQ(pool.getAnalysisGroupID(ft_xls, 1), c.idBase + 1);
        EXPECT_EQ(pool.getAnalysisGroupID(ft_xls, 9), 0u);
        expectRuntimeError([&] { pool.getErrMsgID(ft_pdf, key); }, "Unable to determine Error Message ID");
    }
}

// ---------------------------------------------------------------------------
// File-type questions

TEST(CameraPoolRouting, FileTypeQuestionsTakeTheFirstNonZeroAnswerInNameOrder)
{
    struct Case
    {
        const char *what;
        std::vector<Installed> modules;
        const char *extension;
        ft_t extensionAnswer;
        bool extensionFault;
        const char *content;
        ft_t mainAnswer;
        const char *mainReason;
        ft_t subAnswer;
        const char *subReason;
        bool bufferFault;
    };
    const ft_t xls = ft_xls, xlsx = ft_xlsx, cfb = ft_cfb, zip = ft_zip, none = ft_unknown;
    const std::vector<Case> cases = {
        {"a decliner before an answer", {{kDecline, "a.so"}, {kXls, "b.so"}},
         "xls", xls, false, "XLS data", xls, "xls: main type", cfb, "xls: sub-type", false},
        {"an answer before a decliner", {{kXls, "a.so"}, {kDecline, "b.so"}},
         "xls", xls, false, "XLS data", xls, "xls: main type", cfb, "xls: sub-type", false},
        {"a decliner's reason survives a later silent 0", {{kDecline, "a.so"}, {kXls, "b.so"}},
         "doc", none, false, "plain", none, "decline: not mine", none, "decline: no sub-type", false},
        {"a silent 0 before a decliner", {{kXls, "a.so"}, {kDecline, "b.so"}},
         "doc", none, false, "plain", none, "decline: not mine", none, "decline: no sub-type", false},
        {"nobody answers or gives a reason", {{kXls, "a.so"}},
         "", none, false, "", none, "untouched", none, "untouched", false},
        {"two answers: the first name wins", {{kXls, "a.so"}, {kRival, "b.so"}},
         "xls", xls, false, "XLS data", xls, "xls: main type", cfb, "xls: sub-type", false},
        {"two answers, names swapped", {{kRival, "a.so"}, {kXls, "b.so"}},
         "xls", xlsx, false, "XLS data", xlsx, "rival: main type", zip, "rival: sub-type", false},
        {"a throw hides a later answer", {{kThrow, "a.so"}, {kXls, "b.so"}},
         "xls", none, true, "XLS data", none, "throw: failing", none, "throw: failing", true},
        {"a plug-in after an answer is never asked", {{kXls, "a.so"}, {kThrow, "b.so"}},
         "xls", xls, false, "XLS data", xls, "xls: main type", cfb, "xls: sub-type", false},
        {"a plug-in after a 0 is asked", {{kXls, "a.so"}, {kThrow, "b.so"}},
         "doc", none, true, "plain", none, "throw: failing", none, "throw: failing", true},
    };
    const QStringList noLog;
    const QStringList faultLog{kWalkFault};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        const PluginDir dir;
        for (const Installed &m : c.modules)
            dir.add(m.module, QString::fromLatin1(m.name));
        const LoggedPool made = makePool(dir.path());
        const Camera_Pool &pool = *made.pool;
        ASSERT_EQ(pool.getListOfCameraNames().size(), static_cast<int>(c.modules.size()));

        {
            LogCapture capture;
            EXPECT_EQ(pool.getFileTypeFromFileExtension(c.extension), c.extensionAnswer) << "extension";
            EXPECT_EQ(capture.lines(), c.extensionFault ? faultLog : noLog) << "extension";
        }
        MemoryBuffer buffer = bufferOf(c.content);
        {
            LogCapture capture;
            QString reason = QStringLiteral("untouched");
            EXPECT_EQ(pool.getFileTypeFromFileInMemory(&buffer, reason), c.mainAnswer) << "main type";
            EXPECT_EQ(reason, QString::fromUtf8(c.mainReason)) << "main type";
            EXPECT_EQ(capture.lines(), c.bufferFault ? faultLog : noLog) << "main type";
        }
        {
            LogCapture capture;
            QString reason = QStringLiteral("untouched");
            EXPECT_EQ(pool.getSubFileTypeFromFileInMemory(&buffer, reason), c.subAnswer) << "sub-type";
            EXPECT_EQ(reason, QString::fromUtf8(c.subReason)) << "sub-type";
            EXPECT_EQ(capture.lines(), c.bufferFault ? faultLog : noLog) << "sub-type";
        }
    }
}

TEST(CameraPoolRouting, ProgIdAndClassIdAreNotRouted)
{
    const PluginDir dir;
    const LoggedPool made = makePool(dir, {{kXls, "xls.so"}, {kThrow, "throw.so"}});
    for (const char *key : std::initializer_list<const char *>{"Excel.Sheet.8", "00020820-0000-0000-C000-000000000046", "xls", "", nullptr}) {
        EXPECT_EQ(made.pool->getFileTypeFromProgID(key), ft_unknown) << (key ? key : "null");
        EXPECT_EQ(made.pool->getFileTypeFromClassID(key), ft_unknown) << (key ? key : "null");
    }
}
