#pragma once

// A test-camera run bound to a real camera session, for the content-management
// actions: the pool loads test plug-ins (tests/plugins), the policy is loaded
// from XML, and the root is an Excel document (profile xlsConfig, statistics
// group 241).
//
//   Excel (21)  validation groups: item 1 -> 1001, item 2 -> 1002, others 0;
//               sanitisation message ids are 1500 + the key's length
//   png (23)    image camera writing "clean", answering 0
//   jpeg (24)   image camera writing 38 bytes, answering 1
//   bmp (29)    image camera writing "bad", answering -1
//   emf (26)    image camera writing 41 bytes, answering -1
// Image cameras record "image=<input> stream=<input's stream name>" in group
// 7 of the session's repository when they are initialised.

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

inline constexpr short kStatsGroup = 241; // the Excel root's statistics group
inline constexpr unsigned kItem = 1;      // an item whose validation group is...
inline constexpr short kItemGroup = 1001; // ...this one

// The sanitisation id the Excel plug-in gives a key.
inline unsigned sanitisationId(int statsId, size_t keyLength)
{
    return (2u << 24) | (unsigned(statsId - 71) << 16) | unsigned(1500 + keyLength);
}

class PolicyRun : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_dir.isValid());
        for (const char *module : {VX_TEST_MODULE_XLS, VX_TEST_MODULE_IMAGE_SMALL, VX_TEST_MODULE_IMAGE_LARGE,
                                   VX_TEST_MODULE_IMAGE_FAILING, VX_TEST_MODULE_IMAGE_FAILING_LARGE}) {
            const QString path = QString::fromUtf8(module);
            ASSERT_TRUE(QFile::copy(path, m_dir.filePath(path.section(QLatin1Char('/'), -1))));
        }
        m_pool = std::make_unique<Camera_Pool>(m_dir.path());
        m_session = std::make_unique<CameraBase>(m_pool.get());
        newRun();
    }

    // A fresh run (empty repository, root status 0) over the same session.
    void newRun()
    {
        m_run = std::make_unique<testcamera::TestRun>();
        m_run->root->setFiletype(ft_xls);
        m_run->root->initialBDDLStructBase_Root(m_run->root.get(), m_session.get(), nullptr, nullptr, 0);
    }

    // Loads a policy whose Excel profile holds the given switch elements.
    void setPolicy(const QByteArray &switches)
    {
        const QByteArray xml = "<?xml version=\"1.0\"?>\n<config><xlsConfig>" + switches + "</xlsConfig></config>\n";
        MemoryBuffer buffer;
        buffer.putRawBytes(xml.constData(), size_t(xml.size()));
        buffer.seek(0);
        ASSERT_EQ(m_session->contentManagement().loadRepositoryFromXML(&buffer), 0u) << xml.constData();
    }

    // Loads a policy giving every switch of the Excel profile the same setting.
    void setEverySwitch(const char *setting)
    {
        size_t count = 0;
        const ContentSwitch *switches = contentSwitches(&count);
        QByteArray body;
        for (size_t i = 0; i < count; ++i)
            body += QByteArray("<") + switches[i].name + ">" + setting + "</" + switches[i].name + ">";
        setPolicy(body);
    }

    testcamera::TestRoot *root() const { return m_run->root.get(); }
    QStringList records() const { return recordsOf(m_run->analysis); }

    QTemporaryDir m_dir;
    std::unique_ptr<Camera_Pool> m_pool;
    std::unique_ptr<CameraBase> m_session;
    std::unique_ptr<testcamera::TestRun> m_run;
};

} // namespace policyrun
