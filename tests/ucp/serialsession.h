#pragma once

// A camera session whose pool holds the built file-identifier module and the
// tree camera of tests/plugins, with helpers that run their cameras, write
// their trees as serial streams and read them back; and a description of a
// UCP tree, line by line, for comparing trees node by node.

#include "buffers/MemoryBuffer.h"
#include "fixtures/fixtures.h"
#include "cameras/camera_pool.h"
#include "cameras/camerabase.h"
#include "ucp/bddldocument.h"
#include "ucp/serialdatareaderwriter.h"
#include "ucp/ucpserialization.h"
#include "ucp_engine/BDDLStructBase.h"

#include <QFile>
#include <QStringList>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <memory>

namespace serialsession {

inline const QString kFileIdentifierCamera = QStringLiteral("libfileidentifier.so");
inline const QString kTreeCamera = QStringLiteral("libvxtree.so");

// Each active node: its depth, type, name, attributes and value (type and bytes).
inline void describe(UCPNode *node, int depth, QStringList &lines)
{
    if (node == nullptr || !node->isNodeActive())
        return;
    QString line = QString(depth, QLatin1Char(' ')) + UCPNode::nodeTypeName(node->getNodeType()) + QLatin1Char(' ')
                   + node->getNodeName();
    for (const char *name : {"offset", "size", "eitem", "estrc", "type_string"})
        line += QStringLiteral(" %1=%2").arg(QLatin1String(name), node->getNodeAttribute(QLatin1String(name)).toString());
    const QVariant value = node->getNodeValue();
    if (value.isValid())
        line += QStringLiteral(" = %1:%2").arg(QLatin1String(value.typeName()),
                                               QString::fromLatin1(value.toByteArray().toHex()));
    lines << line;
    if (node->hasChildNodes())
        for (UCPNode *child = node->getFirstChild(); child != nullptr; child = child->getNextSibling())
            describe(child, depth + 1, lines);
}

inline QStringList describeTree(VXCameraIF *camera)
{
    QStringList lines;
    const std::unique_ptr<UCPDocument> document(camera ? camera->getUCPDocumentInterface() : nullptr);
    if (document)
        describe(document->getDocumentNode(), 0, lines);
    return lines;
}

class SerialSession : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_dir.isValid());
        ASSERT_TRUE(QFile::copy(QStringLiteral(VX_FILEIDENTIFIER_MODULE), m_dir.filePath(kFileIdentifierCamera)));
        ASSERT_TRUE(QFile::copy(QStringLiteral(VX_TEST_MODULE_TREE), m_dir.filePath(kTreeCamera)));
        m_pool = std::make_unique<Camera_Pool>(m_dir.path());
        m_session = std::make_unique<CameraBase>(m_pool.get());
    }

    MemoryBuffer *buffer(const QByteArray &bytes = QByteArray(), const char *name = "")
    {
        MemoryBuffer *made = m_session->bufferPool().allocateBuffer();
        made->putRawBytes(bytes.constData(), size_t(bytes.size()));
        made->seek(0);
        made->m_name = name;
        return made;
    }

    // A camera of the type that has read the bytes.
    std::unique_ptr<VXCameraIF> readCamera(ft_t type, const QByteArray &bytes, const char *name = "input")
    {
        std::unique_ptr<VXCameraIF> camera(m_session->prepareCamera(buffer(bytes, name), buffer(), type, nullptr));
        if (camera) {
            EXPECT_FALSE(isVX2_RetStatusFail(camera->readInputBuffer())) << "type " << type;
        }
        return camera;
    }

    QByteArray exportStream(VXCameraIF *camera, SerializationFormat format, bool pretty = false,
                            const QString &streamName = QStringLiteral("stream"),
                            const QString &cameraName = kTreeCamera)
    {
        UCPSerialization serialization;
        serialization.register_session(m_session.get());
        MemoryBuffer *const serial = buffer();
        serialization.register_serialisabledoc(camera, serial);
        const auto rw = UCPSerialization::getSerialDataReaderWriter(format);
        rw->setPrettyPrint(pretty);
        EXPECT_TRUE(serialization.exportSerialData(rw.get(), streamName, cameraName));
        return bytesOf(*serial);
    }

    // The camera rebuilt from the stream, or null.
    std::unique_ptr<VXCameraIF> importStream(const QByteArray &stream, SerializationFormat format,
                                             QString *streamName = nullptr)
    {
        UCPSerialization serialization;
        serialization.register_session(m_session.get());
        serialization.register_importDeserialisableBuffer(buffer(stream));
        serialization.register_outputBuffer(buffer());
        const auto rw = UCPSerialization::getSerialDataReaderWriter(format);
        QString name;
        if (!serialization.importSerialData(rw.get(), name))
            return nullptr;
        if (streamName)
            *streamName = name;
        return std::unique_ptr<VXCameraIF>(serialization.getImportedCameraIF());
    }

    QTemporaryDir m_dir;
    std::unique_ptr<Camera_Pool> m_pool;
    std::unique_ptr<CameraBase> m_session;
};

} // namespace serialsession
