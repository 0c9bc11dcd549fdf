#include "ucp/ucpserialization.h"

#include "buffers/MemoryBuffer.h"
#include "cameras/camera_interfaces.h"
#include "cameras/camera_pool.h"
#include "cameras/camerabase.h"
#include "cameras/parameterblock.h"
#include "policy/ContentManagement.h"
#include "ucp/bddlstructitem_itr.h"
#include "ucp/serialdombounds.h"
#include "ucp/sislserialreaderwriter.h"
#include "ucp/ucptreewalker.h"
#include "ucp/xmlserialreaderwriter.h"
#include "ucp_engine/BDDLStructBase.h"
#include "ucp_engine/ucpLogging.h"

#include <QDomDocument>
#include <QHash>

#include <algorithm>
#include <exception>
#include <stdexcept>
#include <utility>
#include <vector>

namespace {

[[maybe_unused]] const char *const NoNameString = "noname";

const QString kStreamNameAttribute = QStringLiteral("streamname");
const QString kCameraNameAttribute = QStringLiteral("cameraname");
const QString kNameAttribute = QStringLiteral("name");
const QString kSizeAttribute = QStringLiteral("size");

// The node attributes after "name", in the order of the attribute table.
const QStringList &nodeAttributes()
{
    static const QStringList names = [] {
        QStringList list;
        const UCPNodeAttributes &table = UCPNodeAttributes::getInstance();
        for (const UCPNodeAttribute attribute : {naOffset, naSize, naEitem, naEstrc, naTypeString, naStreamname,
                                                 naCameraname})
            list << table.getAttribute(attribute);
        return list;
    }();
    return names;
}

void logLine(const QString &text)
{
    tbLog(text.toUtf8().constData());
}

// What an exception says, whatever was thrown.
QString reasonOf(std::exception_ptr thrown)
{
    try {
        std::rethrow_exception(std::move(thrown));
    } catch (const std::exception &e) {
        return QString::fromUtf8(e.what());
    } catch (const char *text) {
        return QString::fromUtf8(text);
    } catch (...) {
    }
    return QStringLiteral("unknown failure");
}

// The UCP children of one node with their positions and names, made when
// the elements of a DOM node cannot be matched in order: then each element
// still finds the latest child of its name before the cursor in logarithmic
// time, however the two lists differ.
class ChildIndex
{
public:
    explicit ChildIndex(UCPNode *parent)
    {
        for (UCPNode *child = parent->getFirstChild(); child != nullptr; child = child->getNextSibling()) {
            if (m_position.contains(child))
                break; // a sibling chain that turns back on itself ends here
            m_position.insert(child, int(m_children.size()));
            m_byName[child->getNodeName()].push_back(int(m_children.size()));
            m_children.push_back(child);
        }
    }

    // The last child named `name` at or before `cursor` (null: none left).
    UCPNode *latest(const QString &name, UCPNode *cursor) const
    {
        const auto found = m_byName.constFind(name);
        if (cursor == nullptr || found == m_byName.constEnd() || !m_position.contains(cursor))
            return nullptr;
        const int limit = m_position.value(cursor);
        const std::vector<int> &positions = *found;
        const auto after = std::upper_bound(positions.begin(), positions.end(), limit);
        return after == positions.begin() ? nullptr : m_children[std::size_t(*(after - 1))];
    }

    // The child before `node` in this list, or null.
    UCPNode *before(UCPNode *node) const
    {
        const int position = m_position.value(node, 0);
        return position > 0 ? m_children[std::size_t(position - 1)] : nullptr;
    }

private:
    std::vector<UCPNode *> m_children;
    QHash<UCPNode *, int> m_position;
    QHash<QString, std::vector<int>> m_byName;
};

int childElementCount(const QDomElement &element)
{
    int count = 0;
    for (QDomElement child = element.firstChildElement(); !child.isNull(); child = child.nextSiblingElement())
        ++count;
    return count;
}

void setAttributes(const QDomElement &element, UCPNode *node, const QString *size)
{
    node->setNodeAttribute(kNameAttribute, QVariant(element.attribute(kNameAttribute)));
    for (const QString &name : nodeAttributes())
        node->setNodeAttribute(name, QVariant(size && name == kSizeAttribute ? *size : element.attribute(name)));
}

} // namespace

QString getNodeTypeAsText(int type)
{
    return UCPNode::nodeTypeName(type);
}

bool fillBDDStructNode(UCPNode *parent, const QDomElement &element)
{
    const QString estrc = element.attribute(QStringLiteral("estrc"));
    if (estrc.isEmpty())
        return false;
    bool parsed = false;
    const unsigned long classId = estrc.toULong(&parsed);
    UCPDocument *const document = parent ? parent->getOwnerDocument() : nullptr;
    UCPNode *const node = parsed && document ? document->createNode(classId) : nullptr;
    if (node == nullptr)
        throw std::runtime_error("Unable to create new node");
    UCPSerialization::addAttributesToUCPNode(element, node);
    if (parent->appendChild(node) == nullptr) {
        delete node; // the parent cannot hold a structure, so nobody would free it
        return false;
    }
    return true;
}

bool fillBDDNode(UCPNode *node, const QDomElement &element)
{
    const UCPNode::NodeType type = node->getNodeType();
    if (type != UCPNode::DOCUMENT && type != UCPNode::STRUCT)
        return false;
    return fillBDDStructNode(node, element);
}

UCPSerialization::UCPSerialization() = default;
UCPSerialization::~UCPSerialization() = default;

void UCPSerialization::register_serialisabledoc(VXCameraIF *camera, MemoryBuffer *serial)
{
    m_camera = camera;
    m_serialBuffer = serial;
}

void UCPSerialization::register_importDeserialisableBuffer(MemoryBuffer *serial)
{
    m_serialBuffer = serial;
}

void UCPSerialization::register_outputBuffer(MemoryBuffer *output)
{
    m_outputBuffer = output;
}

void UCPSerialization::register_importCameraIF(VXCameraIF *camera)
{
    m_camera = camera;
}

void UCPSerialization::register_session(CameraBase *session)
{
    m_session = session;
}

VXCameraIF *UCPSerialization::getImportedCameraIF()
{
    (void)m_ownedCamera.release(); // the caller's from now on
    return m_camera;
}

std::unique_ptr<SerialDataReaderWriter> UCPSerialization::getSerialDataReaderWriter(SerializationFormat format)
{
    switch (format) {
    case sfXML:
        return std::make_unique<XMLSerialReaderWriter>();
    case sfSISL:
        return std::make_unique<SISLSerialReaderWriter>();
    }
    throw "runExport fail due to indeterminate storage format";
}

void UCPSerialization::replaceDocument(UCPDocument *document, const char *warning)
{
    if (m_document) {
        qWarning("%s", warning);
        m_document.reset();
    }
    m_document.reset(document);
}

// ---------------------------------------------------------------------------
// Export
// ---------------------------------------------------------------------------

bool UCPSerialization::exportSerialData(SerialDataReaderWriter *rw, QString streamName, QString cameraName)
{
    try {
        if (m_camera == nullptr || rw == nullptr)
            return false;
        replaceDocument(m_camera->getUCPDocumentInterface(), "ucpDocumentIf already active at start of exportSerialData");
        return writeSerialisedCameraTreeToDOM(rw, streamName, cameraName);
    } catch (...) {
        logLine(QStringLiteral("exportSerialData failed: %1").arg(reasonOf(std::current_exception())));
    }
    return false;
}

bool UCPSerialization::writeSerialisedCameraTreeToDOM(SerialDataReaderWriter *rw, QString streamName,
                                                      QString cameraName)
{
    if (m_document == nullptr || m_document->getDocumentNode() == nullptr || rw == nullptr)
        return false;
    QDomDocument dom = buildDOM(streamName, cameraName);
    if (m_serialBuffer != nullptr)
        rw->serialise(dom, m_serialBuffer);
    return true;
}

QDomDocument UCPSerialization::buildDOM(const QString &streamName, const QString &cameraName)
{
    QDomDocument dom(QStringLiteral("SerialStream"));
    UCPNode *const start = m_document ? m_document->getDocumentNode() : nullptr;
    const std::unique_ptr<UCPTreeWalker> walker(start ? m_document->createTreeWalker(start) : nullptr);
    QDomElement fileStream = dom.createElement(QStringLiteral("FileStream"));
    fileStream.setAttribute(kStreamNameAttribute, streamName);
    fileStream.setAttribute(kCameraNameAttribute, cameraName);
    dom.appendChild(fileStream);
    exportNode(start, walker.get(), fileStream, 0);
    return dom;
}

void UCPSerialization::exportNode(UCPNode *node, UCPTreeWalker *walker, QDomElement &parent, int depth)
{
    if (node == nullptr || !node->isNodeActive())
        return;
    if (depth >= SerialDomBounds::kMaxDepth)
        throw std::runtime_error("tree nested too deeply to serialise");
    QDomDocument dom = parent.ownerDocument();
    QDomElement element = dom.createElement(getNodeTypeAsText(node->getNodeType()));
    addAttributesToDOMNode(element, node);
    const QVariant value = node->getNodeValue();
    if (value.isValid()) {
        const QByteArray bytes = value.toByteArray();
        // With its size: the QByteArray overload would stop at a zero byte.
        element.appendChild(dom.createTextNode(QString::fromLatin1(bytes.constData(), bytes.size())));
    }
    parent.appendChild(element);
    if (!node->hasChildNodes())
        return;
    for (UCPNode *child = node->getFirstChild(); child != nullptr; child = child->getNextSibling())
        exportNode(child, walker, element, depth + 1);
}

void UCPSerialization::addAttributesToDOMNode(QDomElement &element, UCPNode *node)
{
    SerialDomBounds::setDomAttribute(element, kNameAttribute, node->getNodeName());
    for (const QString &name : nodeAttributes())
        SerialDomBounds::setDomAttribute(element, name, node->getNodeAttribute(name).toString());
}

void UCPSerialization::addAttributesToUCPNode(const QDomElement &element, UCPNode *node)
{
    setAttributes(element, node, nullptr);
}

// ---------------------------------------------------------------------------
// Import
// ---------------------------------------------------------------------------

bool UCPSerialization::importSerialData(SerialDataReaderWriter *rw, QString &streamName)
{
    return readSerialisedCameraTreeFromDOM(rw, streamName);
}

bool UCPSerialization::importImage(ft_t type)
{
    std::unique_ptr<VXCameraIF> camera(m_session->prepareCamera(m_serialBuffer, m_outputBuffer, type, nullptr));
    if (!camera)
        return false;
    const VX2_RetStatus status = camera->readInputBuffer();
    m_camera = camera.get();
    m_ownedCamera = std::move(camera);
    return !isVX2_RetStatusFail(status);
}

bool UCPSerialization::readSerialisedCameraTreeFromDOM(SerialDataReaderWriter *rw, QString &streamName)
{
    const char *stage = " deserialisation failed ";
    try {
        Camera_Pool *const pool = m_session ? m_session->getCameraPool() : nullptr;
        if (pool == nullptr || m_serialBuffer == nullptr || rw == nullptr)
            throw "Missing camera detection";
        QString reason;
        const ft_t streamType = pool->getFileTypeFromFileInMemory(m_serialBuffer, reason);
        m_serialBuffer->seek(0);
        QString imageFormat;
        if (ContentManagement::isPA_ImageExportImport(streamType, imageFormat))
            return importImage(streamType);

        QDomDocument dom(QStringLiteral("SerialStream"));
        if (!rw->deserialise(dom, m_serialBuffer))
            throw std::runtime_error(rw->errorString().toStdString());
        stage = " parseQDomNodes failed ";
        const QDomElement fileStream = dom.documentElement();
        streamName = fileStream.attribute(kStreamNameAttribute);

        const ft_t type = pool->getFileTypeFromCameraName(fileStream.attribute(kCameraNameAttribute));
        VXCameraPluginIF *const plugin = pool->getPluginFromFileType(type);
        std::unique_ptr<VXCameraIF> camera(plugin ? plugin->getCamera() : nullptr);
        if (!camera)
            throw "Missing camera detection";
        BDDLStructBase_Root *root = nullptr;
        camera->initialiseCamera(m_serialBuffer, m_outputBuffer, &m_session->analysis(), &m_session->bufferPool(),
                                 &root);
        if (root == nullptr)
            throw "Missing camera detection";
        ParameterBlock *const block = m_session->keepParameterBlock(getParameterBlockFromFt(type, root, nullptr));
        root->initialBDDLStructBase_Root(root, m_session, camera.get(), block, 0);
        replaceDocument(camera->getUCPDocumentInterface(),
                        "ucpDocumentIf already active at start of readSerialisedCameraTreeFromDOM");
        m_camera = camera.get();
        m_ownedCamera = std::move(camera);
        if (m_document == nullptr)
            throw "Missing camera detection";
        // The stream does not say which type the document was; the camera's
        // own type is what a direct run through the session gives the root.
        m_document->setFiletype(type);

        QDomNodeProcessor processor(m_document->getDocumentNode());
        parseQDomNodes(fileStream, processor);
        return true;
    } catch (...) {
        logLine(QString::fromLatin1(stage) + reasonOf(std::current_exception()));
    }
    // A camera half built from a bad stream is of no use to anybody.
    m_document.reset();
    m_ownedCamera.reset();
    m_camera = nullptr;
    return false;
}

void UCPSerialization::parseQDomNodes(const QDomNode &node, QDomNodeProcessor &processor)
{
    std::vector<std::pair<QDomNode, UCPNode *>> pending;
    if (processor.startNode() != nullptr && !node.firstChild().isNull())
        pending.emplace_back(node.firstChild(), processor.startNode());
    while (!pending.empty()) {
        const QDomNode domNode = pending.back().first;
        UCPNode *const ucpNode = pending.back().second;
        pending.pop_back();
        if (domNode.isText()) {
            // The text holds one character per value byte; as bytes, each
            // kind of item reads them as the export wrote them.
            ucpNode->setNodeValue(QVariant(domNode.toText().data().toLatin1()));
            continue;
        }
        if (!domNode.isElement())
            throw std::runtime_error("Unknown Dom Node");
        const QDomElement element = domNode.toElement();

        if (ucpNode->getNodeType() == UCPNode::STRUCTARRAY) {
            // The array is made no larger than the members the element
            // holds, whatever its "size" claims.
            const QString size = QString::number(std::min(element.attribute(kSizeAttribute).toUInt(),
                                                          uint(childElementCount(element))));
            setAttributes(element, ucpNode, &size);
            for (QDomElement child = element.firstChildElement(); !child.isNull(); child = child.nextSiblingElement())
                fillBDDStructNode(ucpNode, child);
            if (auto *const view = dynamic_cast<BDDLStructItem_itr *>(ucpNode))
                view->dropEmptySlots();
        } else {
            addAttributesToUCPNode(element, ucpNode);
            // Members of arrays were made above; only the views of single
            // structures make theirs here. (Deciding by the UCP node rather
            // than by the DOM parent's tag keeps a mislabelled stream from
            // making nodes that no field would hold.)
            if (dynamic_cast<BDDLStructItem_itr *>(ucpNode) != nullptr)
                fillBDDNode(ucpNode, element);
        }

        // Children from last to first, so they are processed first to last.
        // Elements are matched by name with the UCP children, walking back
        // from the last; an element without a match is skipped.
        UCPNode *cursor = ucpNode->getLastChild();
        std::unique_ptr<ChildIndex> index;
        for (QDomNode child = element.lastChild(); !child.isNull(); child = child.previousSibling()) {
            if (child.isText()) {
                pending.emplace_back(child, ucpNode);
                continue;
            }
            if (!child.isElement())
                throw std::runtime_error("Unknown Node found");
            const QString name = child.toElement().attribute(kNameAttribute);
            UCPNode *match = nullptr;
            if (cursor != nullptr && cursor->getNodeName() == name) {
                match = cursor;
            } else if (cursor != nullptr) {
                if (!index)
                    index = std::make_unique<ChildIndex>(ucpNode);
                match = index->latest(name, cursor);
            }
            if (match == nullptr)
                continue;
            pending.emplace_back(child, match);
            cursor = index ? index->before(match) : match->getPreviousSibling();
        }
    }
}
