#include "ucp/bddldocument.h"

#include "ucp/ucptreewalker.h"
#include "ucp_engine/BDDLStructBase.h"

#include <stdexcept>

namespace {

[[maybe_unused]] const char *const NoNameString = "noname";

[[noreturn]] void notImplemented()
{
    throw std::runtime_error("Not implemented");
}

} // namespace

BDDLDocument::BDDLDocument(BDDLStructBase_Root *root) : m_root(root)
{
    if (m_root != nullptr)
        m_root->attachDocument(this);
}

BDDLDocument::~BDDLDocument()
{
    if (m_root != nullptr)
        m_root->detachDocument(this);
}

UCPNode *BDDLDocument::createNode(QString)
{
    return nullptr;
}

UCPNode *BDDLDocument::createNode(unsigned long classId)
{
    const context *const ctx = m_root ? m_root->getContext() : nullptr;
    if (ctx == nullptr || ctx->m_objectFactory == nullptr)
        return nullptr;
    BDDLStructBase *const node = ctx->m_objectFactory(static_cast<unsigned int>(classId));
    if (node != nullptr)
        node->setRoot(m_root);
    return node;
}

UCPNode *BDDLDocument::createElement(QString)
{
    return nullptr;
}

UCPNode *BDDLDocument::createTextNode(QString)
{
    return nullptr;
}

UCPNode *BDDLDocument::getDocumentNode()
{
    return m_root;
}

QString BDDLDocument::getDoctype() const
{
    return m_root ? m_root->getDoctype() : QStringLiteral("unknown");
}

bool BDDLDocument::setDoctype(QString doctype)
{
    if (m_root != nullptr)
        m_root->setDoctype(std::move(doctype));
    return true;
}

ft_t BDDLDocument::getFiletype() const
{
    return m_root ? m_root->getFiletype() : ft_unknown;
}

bool BDDLDocument::setFiletype(ft_t type)
{
    if (m_root != nullptr)
        m_root->setFiletype(type);
    return true;
}

UCPNode *BDDLDocument::getNodeById(QString)
{
    return nullptr;
}

UCPTreeWalker *BDDLDocument::createTreeWalker(UCPNode *node)
{
    return new UCPTreeWalker(node);
}

QString BDDLDocument::getNodeName() const
{
    notImplemented();
}

QVariant BDDLDocument::getNodeValue() const
{
    notImplemented();
}

QVariant BDDLDocument::getNodeAttribute(QString) const
{
    notImplemented();
}

void BDDLDocument::setNodeAttribute(QString, QVariant)
{
    notImplemented();
}

UCPNode::NodeType BDDLDocument::getNodeType() const
{
    notImplemented();
}

bool BDDLDocument::isNodeActive() const
{
    notImplemented();
}

UCPNode *BDDLDocument::getParentNode()
{
    notImplemented();
}

UCPNode *BDDLDocument::getFirstChild()
{
    notImplemented();
}

UCPNode *BDDLDocument::getLastChild()
{
    notImplemented();
}

UCPNode *BDDLDocument::getPreviousSibling()
{
    notImplemented();
}

UCPNode *BDDLDocument::getNextSibling()
{
    notImplemented();
}

UCPDocument *BDDLDocument::getOwnerDocument() const
{
    notImplemented();
}

UCPNode *BDDLDocument::insertBefore(UCPNode *, UCPNode *)
{
    notImplemented();
}

UCPNode *BDDLDocument::replaceChild(UCPNode *, UCPNode *)
{
    notImplemented();
}

UCPNode *BDDLDocument::removeChild(UCPNode *)
{
    notImplemented();
}

UCPNode *BDDLDocument::appendChild(UCPNode *)
{
    notImplemented();
}

bool BDDLDocument::hasChildNodes() const
{
    notImplemented();
}

void BDDLDocument::setNodeValue(QVariant)
{
    notImplemented();
}
