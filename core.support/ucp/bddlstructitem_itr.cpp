#include "ucp/bddlstructitem_itr.h"

#include "ucp/ucptreewalker.h"

#include <algorithm>

namespace {

[[maybe_unused]] const char *const NoNameString = "noname";

// Slots a "size" attribute may make ahead of the elements that fill them. The
// size comes from serialised trees; elements past this many are appended one
// by one as they arrive, so a hostile size costs nothing up front.
constexpr std::size_t kMaxPresizedSlots = 1u << 16;

} // namespace

BDDLStructItem_itr::BDDLStructItem_itr(BDDLStructBase *owner, const BDDStructure *structure, const BDDItem *item,
                                       unsigned long index)
    : m_owner(owner), m_structure(structure), m_item(item), m_index(index)
{
    if (m_owner != nullptr && m_item != nullptr && m_item->m_accessor != nullptr)
        m_item->m_accessor(m_owner, m_itemObject);
}

BDDLStructItem_itr::~BDDLStructItem_itr() = default;

context *BDDLStructItem_itr::runContext() const
{
    const BDDLStructBase_Root *const root = m_owner ? m_owner->root() : nullptr;
    return root ? root->getContext() : nullptr;
}

BDDLStructBase *BDDLStructItem_itr::heldStructure() const
{
    BDDLStructBase *node = nullptr;
    m_itemObject.getRawStructPtr(&node);
    return node;
}

BDDStructureVector *BDDLStructItem_itr::heldVector() const
{
    BDDStructureVector *vector = nullptr;
    m_itemObject.getRawStructVectorPtr(&vector);
    return vector;
}

QString BDDLStructItem_itr::getNodeName() const
{
    const context *const ctx = runContext();
    const BDDSchema *const schema = (ctx && ctx->m_getSchema) ? ctx->m_getSchema() : nullptr;
    if (schema == nullptr)
        throw "Missing BDDSchema";
    const auto found = schema->m_itemNames.constFind(m_item->m_id);
    if (found == schema->m_itemNames.constEnd())
        return QStringLiteral(":schemamissing:");
    return QString::fromUtf8(*found);
}

QVariant BDDLStructItem_itr::getNodeValue() const
{
    if (m_itemObject.isEmpty())
        return QVariant();
    return m_itemObject.getAsQVariant(runContext());
}

void BDDLStructItem_itr::setNodeValue(QVariant value)
{
    m_itemObject.setFromQVariant(value, runContext());
}

UCPNode::NodeType BDDLStructItem_itr::getNodeType() const
{
    if (m_itemObject.isScalar())
        return VALUE;
    if (m_itemObject.isScalarArray())
        return VALUEARRAY;
    if (m_itemObject.isStructure())
        return STRUCT;
    if (m_itemObject.isStructureArray())
        return STRUCTARRAY;
    return ITEM;
}

bool BDDLStructItem_itr::isNodeActive() const
{
    return !m_itemObject.isEmpty();
}

bool BDDLStructItem_itr::hasChildNodes() const
{
    return !m_itemObject.isEmpty() && (m_itemObject.isStructure() || m_itemObject.isStructureArray());
}

QVariant BDDLStructItem_itr::getNodeAttribute(QString name) const
{
    const BDDLStructBase *const held = heldStructure();
    switch (UCPNodeAttributes::getInstance().getAttribute(name)) {
    case naOffset:
        return held ? QVariant(held->position()) : QVariant();
    case naSize:
        if (const BDDStructureVector *const vector = heldVector())
            return QVariant(static_cast<qulonglong>(vector->size()));
        return held ? held->getNodeAttribute(name) : QVariant();
    case naEitem:
        return QVariant(static_cast<int>(m_item->m_id));
    case naEstrc:
        return held ? QVariant(static_cast<uint>(held->m_classId)) : QVariant();
    case naName:
        return getNodeName();
    default:
        return QVariant();
    }
}

// "eitem" is not settable: item definitions are shared, static schema data,
// and the value written on export is the item's own id anyway.
void BDDLStructItem_itr::setNodeAttribute(QString name, QVariant value)
{
    if (UCPNodeAttributes::getInstance().getAttribute(name) != naSize)
        return;
    if (m_itemObject.isStructureArray()) {
        if (heldVector() != nullptr)
            return;
        const std::size_t slots = std::min<std::size_t>(value.toUInt(), kMaxPresizedSlots);
        m_itemObject.setRawStructVectorPtr(new BDDStructureVector(slots, nullptr));
        m_insertionCursor = 0;
    } else if (BDDLStructBase *const held = heldStructure()) {
        held->setNodeAttribute(name, value);
    }
}

UCPNode *BDDLStructItem_itr::getParentNode()
{
    return m_owner;
}

UCPDocument *BDDLStructItem_itr::getOwnerDocument() const
{
    return m_owner ? m_owner->getOwnerDocument() : nullptr;
}

UCPNode *BDDLStructItem_itr::getFirstChild()
{
    if (m_itemObject.isStructureArray()) {
        BDDStructureVector *const vector = heldVector();
        if (vector == nullptr)
            return nullptr;
        m_insertionCursor = 0;
        return vector->empty() ? nullptr : vector->front();
    }
    BDDLStructBase *const held = heldStructure();
    return held ? held->getFirstChild() : nullptr;
}

UCPNode *BDDLStructItem_itr::getLastChild()
{
    if (m_itemObject.isStructureArray()) {
        BDDStructureVector *const vector = heldVector();
        if (vector == nullptr)
            return nullptr;
        if (vector->empty()) {
            m_insertionCursor = 0;
            return nullptr;
        }
        m_insertionCursor = vector->size() - 1;
        return vector->back();
    }
    BDDLStructBase *const held = heldStructure();
    return held ? held->getLastChild() : nullptr;
}

UCPNode *BDDLStructItem_itr::getPreviousSibling()
{
    if (m_owner == nullptr || m_index == 0)
        return nullptr;
    m_owner->makeUCPItemItrsReady();
    const auto &views = m_owner->itemItrs();
    return m_index - 1 < views.size() ? views[m_index - 1].get() : nullptr;
}

UCPNode *BDDLStructItem_itr::getNextSibling()
{
    if (m_owner == nullptr)
        return nullptr;
    m_owner->makeUCPItemItrsReady();
    const auto &views = m_owner->itemItrs();
    return m_index + 1 < views.size() ? views[m_index + 1].get() : nullptr;
}

UCPNode *BDDLStructItem_itr::insertBefore(UCPNode *, UCPNode *)
{
    throw "not implemented";
}

UCPNode *BDDLStructItem_itr::replaceChild(UCPNode *, UCPNode *)
{
    throw "not implemented";
}

UCPNode *BDDLStructItem_itr::removeChild(UCPNode *)
{
    throw "not implemented";
}

UCPNode *BDDLStructItem_itr::appendChild(UCPNode *newChild)
{
    BDDLStructBase *const node = dynamic_cast<BDDLStructBase *>(newChild);
    if (node == nullptr || m_owner == nullptr)
        return nullptr;
    if (m_itemObject.isStructure()) {
        node->setParent(m_owner);
        m_itemObject.setRawStructPtr(node);
    } else if (m_itemObject.isStructureArray()) {
        node->setParent(m_owner);
        appendToArray(node);
    } else {
        return nullptr;
    }
    m_owner->appendChild(node);
    return node;
}

// Fills the slot at the cursor (appending when the cursor is unset or past
// the end), links the node behind the element before it and moves the cursor on.
void BDDLStructItem_itr::appendToArray(BDDLStructBase *node)
{
    BDDStructureVector *vector = heldVector();
    if (vector == nullptr) {
        vector = new BDDStructureVector;
        m_itemObject.setRawStructVectorPtr(vector);
    }
    std::size_t slot;
    if (!m_insertionCursor || *m_insertionCursor >= vector->size()) {
        slot = vector->size();
        vector->push_back(node);
    } else {
        slot = *m_insertionCursor;
        (*vector)[slot] = node;
    }
    BDDLStructBase *const before = slot > 0 ? (*vector)[slot - 1] : nullptr;
    if (before != nullptr)
        before->setNext(node);
    node->setPrevious(before);
    m_insertionCursor = slot + 1;
}

void BDDLStructItem_itr::dropEmptySlots()
{
    BDDStructureVector *const vector = heldVector();
    if (vector == nullptr)
        return;
    vector->erase(std::remove(vector->begin(), vector->end(), nullptr), vector->end());
    for (std::size_t k = 0; k < vector->size(); ++k) {
        (*vector)[k]->setPrevious(k > 0 ? (*vector)[k - 1] : nullptr);
        (*vector)[k]->setNext(k + 1 < vector->size() ? (*vector)[k + 1] : nullptr);
    }
    m_insertionCursor.reset();
}
