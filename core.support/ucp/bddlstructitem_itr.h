#pragma once

#include "ucp/ucpnode.h"
#include "ucp_engine/BDDLStructBase.h"

#include <cstddef>
#include <cstdint>
#include <optional>

// The UCP view of one item (field) of a structure node. A structure node's
// UCP children are these views, one per item of its class, made on first
// need and owned by the node. A view of a single structure shows that
// structure's own views as its children; a view of a structure array shows
// the array's elements; views of other kinds carry a value.
class BDDLStructItem_itr : public UCPNode
{
public:
    BDDLStructItem_itr(BDDLStructBase *owner, const BDDStructure *structure, const BDDItem *item,
                       unsigned long index);
    ~BDDLStructItem_itr() override;

    // The item's name from the schema; ":schemamissing:" for an id it does not
    // name. Throws the C string "Missing BDDSchema" when the owner's tree has
    // no schema.
    QString getNodeName() const override;
    QVariant getNodeValue() const override;
    QVariant getNodeAttribute(QString name) const override;
    void setNodeAttribute(QString name, QVariant value) override;
    NodeType getNodeType() const override;
    bool isNodeActive() const override;
    UCPNode *getParentNode() override;
    UCPNode *getFirstChild() override;
    UCPNode *getLastChild() override;
    UCPNode *getPreviousSibling() override;
    UCPNode *getNextSibling() override;
    UCPDocument *getOwnerDocument() const override;
    UCPNode *insertBefore(UCPNode *newChild, UCPNode *refChild) override;
    UCPNode *replaceChild(UCPNode *newChild, UCPNode *oldChild) override;
    UCPNode *removeChild(UCPNode *oldChild) override;
    // Stores a structure node into a single-structure item, or into the
    // structure array at the insertion cursor (appending past its end); null
    // for other nodes and other kinds of item.
    UCPNode *appendChild(UCPNode *newChild) override;
    bool hasChildNodes() const override;
    void setNodeValue(QVariant value) override;

    // Removes the slots of a structure array that no element filled (a
    // "size" larger than the elements that came), relinking the rest, so a
    // camera never finds null elements in an array it did not make itself.
    void dropEmptySlots();

    BDDLStructBase *owner() const { return m_owner; }
    const BDDStructure *structure() const { return m_structure; }
    const BDDItem *item() const { return m_item; }
    const BDDItemObject &itemObject() const { return m_itemObject; }
    unsigned long index() const { return m_index; }

private:
    context *runContext() const;
    // The structure a single-structure item holds, or null.
    BDDLStructBase *heldStructure() const;
    // The vector of a structure-array item, or null.
    BDDStructureVector *heldVector() const;
    void appendToArray(BDDLStructBase *node);

    BDDLStructBase *m_owner;
    const BDDStructure *m_structure;
    const BDDItem *m_item;
    BDDItemObject m_itemObject;
    unsigned long m_index;
    [[maybe_unused]] uint64_t m_reserved = 0; // a layout word nothing uses; zero
    // Slot of the structure array that the next appendChild fills.
    std::optional<std::size_t> m_insertionCursor;
};
