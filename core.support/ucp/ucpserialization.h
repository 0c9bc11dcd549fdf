#pragma once

#include "cameras/filetype.h"
#include "ucp/serializationformat.h"

#include <QString>

#include <memory>

class CameraBase;
class MemoryBuffer;
class QDomDocument;
class QDomElement;
class QDomNode;
class SerialDataReaderWriter;
class UCPDocument;
class UCPNode;
class UCPTreeWalker;
class VXCameraIF;

// The name under which a node type is serialised; "UNKNOWN" for other values.
QString getNodeTypeAsText(int type);

// Where the parse of a DOM into a camera's tree starts: the UCP node that
// the first DOM node is matched with.
class QDomNodeProcessor
{
public:
    explicit QDomNodeProcessor(UCPNode *start) : m_start(start) {}
    UCPNode *startNode() const { return m_start; }

private:
    UCPNode *m_start;
};

// Creates the structure node an element describes (its "estrc" class id) and
// appends it to `parent`, a structure item or structure array. False when
// the element names no class; std::runtime_error "Unable to create new node"
// when the camera cannot make one.
bool fillBDDStructNode(UCPNode *parent, const QDomElement &element);
// fillBDDStructNode for documents and structure items; false for other nodes.
bool fillBDDNode(UCPNode *node, const QDomElement &element);

// One stream of a tree export or import. Export writes a camera's tree as a
// DOM and lets a serial reader/writer turn it into bytes; import reads the
// bytes back into a DOM and rebuilds the tree in a fresh camera of the
// session's camera pool, which the caller then takes over.
//
// DOM layout: a document of type "SerialStream" whose element "FileStream"
// (attributes "streamname", "cameraname") holds one element per active UCP
// node, tagged with the node's type name and carrying the attributes name,
// offset, size, eitem, estrc, type_string, streamname and cameraname (empty
// when the node has none). A node's value is the element's first child, a
// text of one character per value byte. Inactive nodes are left out with
// their subtrees.
class UCPSerialization
{
public:
    UCPSerialization();
    ~UCPSerialization();
    UCPSerialization(const UCPSerialization &) = delete;
    UCPSerialization &operator=(const UCPSerialization &) = delete;

    // The camera whose tree is exported, and the buffer the stream goes to.
    void register_serialisabledoc(VXCameraIF *camera, MemoryBuffer *serial);
    // The stream an import reads, and the output buffer of the new camera.
    void register_importDeserialisableBuffer(MemoryBuffer *serial);
    void register_outputBuffer(MemoryBuffer *output);
    void register_importCameraIF(VXCameraIF *camera);
    void register_session(CameraBase *session);
    // The camera an import built. The caller owns it from the first call on;
    // until then (or when the import failed) this object does.
    VXCameraIF *getImportedCameraIF();

    // 0 gives the XML form, 1 SISL; any other value throws the C string
    // "runExport fail due to indeterminate storage format".
    static std::unique_ptr<SerialDataReaderWriter> getSerialDataReaderWriter(SerializationFormat format);

    // Writes the registered camera's tree into the serial buffer; false on
    // any failure.
    bool exportSerialData(SerialDataReaderWriter *rw, QString streamName, QString cameraName);
    bool writeSerialisedCameraTreeToDOM(SerialDataReaderWriter *rw, QString streamName, QString cameraName);
    // The DOM of the current document interface's tree, as
    // writeSerialisedCameraTreeToDOM builds it. Throws as the tree does.
    QDomDocument buildDOM(const QString &streamName, const QString &cameraName);
    void exportNode(UCPNode *node, UCPTreeWalker *walker, QDomElement &parent, int depth);
    static void addAttributesToDOMNode(QDomElement &element, UCPNode *node);
    static void addAttributesToUCPNode(const QDomElement &element, UCPNode *node);

    // Rebuilds a camera's tree from the registered serial buffer; the stream
    // name the stream carries comes back through `streamName`. False on any
    // failure, with one debug line saying why.
    bool importSerialData(SerialDataReaderWriter *rw, QString &streamName);
    bool readSerialisedCameraTreeFromDOM(SerialDataReaderWriter *rw, QString &streamName);
    // Matches the DOM below `node` with the processor's UCP node and fills the
    // tree: values, attributes, and the structures that the elements name.
    static void parseQDomNodes(const QDomNode &node, QDomNodeProcessor &processor);

private:
    bool importImage(ft_t type);
    void replaceDocument(UCPDocument *document, const char *warning);

    VXCameraIF *m_camera = nullptr;
    MemoryBuffer *m_serialBuffer = nullptr;
    MemoryBuffer *m_outputBuffer = nullptr;
    std::unique_ptr<UCPDocument> m_document;
    CameraBase *m_session = nullptr;
    std::unique_ptr<VXCameraIF> m_ownedCamera; // an imported camera not yet handed over
};
