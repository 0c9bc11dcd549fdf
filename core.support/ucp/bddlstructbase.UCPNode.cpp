// The UCP face of structure nodes: a structure node's children are the views
// of its items, made on first need and owned by the node.

#include "ucp/bddlstructitem_itr.h"
#include "ucp/ucptreewalker.h"
#include "ucp_engine/BDDLStructBase.h"

namespace {

[[maybe_unused]] const char *const NoNameString = "noname";

} // namespace

QString BDDLStructBase::getNodeName() const
{
    return QString::fromUtf8(get_desc_string());
}

QVariant BDDLStructBase::getNodeValue() const
{
    return QVariant();
}

void BDDLStructBase::setNodeValue(QVariant)
{
    throw "not implemented";
}

QVariant BDDLStructBase::getNodeAttribute(QString name) const
{
    switch (UCPNodeAttributes::getInstance().getAttribute(name)) {
    case naOffset:
        return QVariant(static_cast<uint>(m_position));
    case naSize:
        return QVariant(static_cast<uint>(m_size));
    case naEstrc:
        return QVariant(static_cast<uint>(m_classId));
    case naTypeString:
        return QVariant(m_description != nullptr);
    default:
        return QVariant();
    }
}

void BDDLStructBase::setNodeAttribute(QString name, QVariant value)
{
    switch (UCPNodeAttributes::getInstance().getAttribute(name)) {
    case naOffset:
        m_position = value.toUInt();
        break;
    case naSize:
        m_size = value.toUInt();
        break;
    default:
        break;
    }
}

UCPNode::NodeType BDDLStructBase::getNodeType() const
{
    return static_cast<const BDDLStructBase *>(m_root) == this ? DOCUMENT : STRUCT;
}

bool BDDLStructBase::isNodeActive() const
{
    return true;
}

UCPNode *BDDLStructBase::getParentNode()
{
    return m_parent;
}

UCPDocument *BDDLStructBase::getOwnerDocument() const
{
    return m_root ? m_root->ownerDocument() : nullptr;
}

BDDLStructItem_itr *BDDLStructBase::itemItr(std::ptrdiff_t index)
{
    makeUCPItemItrsReady();
    if (index < 0 || static_cast<std::size_t>(index) >= m_itemItrs.size())
        return nullptr;
    return m_itemItrs[static_cast<std::size_t>(index)].get();
}

UCPNode *BDDLStructBase::getFirstChild()
{
    return itemItr(0);
}

UCPNode *BDDLStructBase::getLastChild()
{
    makeUCPItemItrsReady();
    return itemItr(static_cast<std::ptrdiff_t>(m_itemItrs.size()) - 1);
}

UCPNode *BDDLStructBase::getPreviousSibling()
{
    makeUCPItemItrsReady();
    return m_previous;
}

UCPNode *BDDLStructBase::getNextSibling()
{
    makeUCPItemItrsReady();
    return m_next;
}

bool BDDLStructBase::hasChildNodes() const
{
    return getCountOfItems() > 0;
}

UCPNode *BDDLStructBase::appendChild(UCPNode *newChild)
{
    BDDLStructBase *const node = dynamic_cast<BDDLStructBase *>(newChild);
    if (node != nullptr)
        AddChild(node);
    return node;
}

UCPNode *BDDLStructBase::insertBefore(UCPNode *, UCPNode *)
{
    throw "not implemented";
}

UCPNode *BDDLStructBase::replaceChild(UCPNode *, UCPNode *)
{
    throw "not implemented";
}

UCPNode *BDDLStructBase::removeChild(UCPNode *)
{
    throw "not implemented";
}

bool BDDLStructBase::makeUCPItemItrsReady()
{
    const unsigned long count = getCountOfItems();
    if (!m_itemItrs.empty() || count == 0)
        return true;
    m_itemItrs.reserve(count);
    for (unsigned long index = 0; index < count; ++index) {
        std::unique_ptr<BDDLStructItem_itr> view = getNewItemItrByIndex(index);
        BDDStructureVector *elements = nullptr;
        if (view && view->itemObject().getRawStructVectorPtr(&elements) && elements != nullptr) {
            for (std::size_t k = 0; k < elements->size(); ++k) {
                BDDLStructBase *const element = (*elements)[k];
                if (element == nullptr)
                    continue;
                element->setPrevious(k > 0 ? (*elements)[k - 1] : nullptr);
                element->setNext(k + 1 < elements->size() ? (*elements)[k + 1] : nullptr);
            }
        }
        m_itemItrs.push_back(std::move(view));
    }
    return true;
}
