#pragma once

// Test-camera runs bound to a real camera session whose pool loads test
// plug-ins (tests/plugins). PolicyRun loads these, takes its policy from XML
// and makes the root an Excel document (profile xlsConfig, statistics group 241):
//   Excel (21)  item 1 -> validation group 1001; sanitisation message ids 1500 + key length
//   png (23), jpeg (24), bmp (29), emf (26): image cameras writing "clean" (answer 0),
//               38 bytes (1), "bad" (-1), 41 bytes (-1); when initialised they record
//               "image=<input> stream=<input's stream name>" in group 7 of the session.

#include "cameras/camera_pool.h"
#include "cameras/camerabase.h"
#include "policy/ContentManagement.h"
#include "qtprinters.h"
#include "testcamera.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace policyrun {

using testcamera::recordsOf;
using testcamera::thrownText;

inline constexpr short kStatsGroup = 241;
inline constexpr unsigned kItem = 1;
inline constexpr short kItemGroup = 1001; // kItem's validation group

// The sanitisation id the Excel plug-in gives a key.
inline unsigned sanitisationId(int statsId, size_t keyLength)
{
    return (2u << 24) | (unsigned(statsId - 71) << 16) | unsigned(1500 + keyLength);
}

class SessionTest : public ::testing::Test
{
protected:
    void loadSession(std::initializer_list<const char *> modules)
    {
        ASSERT_TRUE(m_dir.isValid());
        for (const char *module : modules) {
            const QString path = QString::fromUtf8(module);
            ASSERT_TRUE(QFile::copy(path, m_dir.filePath(path.section(QLatin1Char('/'), -1))));
        }
        m_pool = std::make_unique<Camera_Pool>(m_dir.path());
        m_session = std::make_unique<CameraBase>(m_pool.get());
    }

    QTemporaryDir m_dir;
    std::unique_ptr<Camera_Pool> m_pool;
    std::unique_ptr<CameraBase> m_session;
};

class PolicyRun : public SessionTest
{
protected:
    void SetUp() override
    {
        loadSession({VX_TEST_MODULE_XLS, VX_TEST_MODULE_IMAGE_SMALL, VX_TEST_MODULE_IMAGE_LARGE,
                     VX_TEST_MODULE_IMAGE_FAILING, VX_TEST_MODULE_IMAGE_FAILING_LARGE});
        newRun();
    }

    // A fresh run (empty repository, root status 0) over the same session.
    void newRun()
    {
        m_run = std::make_unique<testcamera::TestRun>();
        m_run->root->setFiletype(ft_xls);
        m_run->root->initialBDDLStructBase_Root(m_run->root.get(), m_session.get(), nullptr, nullptr, 0);
    }

    // Loads a policy whose Excel profile holds the switch elements, then starts a fresh run.
    void setPolicy(const QByteArray &switches)
    {
        const QByteArray xml = "<?xml version=\"1.0\"?>\n<config><xlsConfig>" + switches + "</xlsConfig></config>\n";
        MemoryBuffer buffer;
        buffer.putRawBytes(xml.constData(), size_t(xml.size()));
        buffer.seek(0);
        ASSERT_EQ(m_session->contentManagement().loadRepositoryFromXML(&buffer), 0u) << xml.constData();
        newRun();
    }
    static QByteArray element(const char *name, const std::string &setting)
    {
        return QByteArray("<") + name + ">" + setting.c_str() + "</" + name + ">";
    }
    void setEverySwitch(const std::string &setting)
    {
        size_t count = 0;
        const ContentSwitch *switches = contentSwitches(&count);
        QByteArray body;
        for (size_t i = 0; i < count; ++i)
            body += element(switches[i].name, setting);
        setPolicy(body);
    }

    testcamera::TestRoot *root() const { return m_run->root.get(); }
    QStringList records() const { return recordsOf(m_run->analysis); }

    std::unique_ptr<testcamera::TestRun> m_run;
};

} // namespace policyrun
