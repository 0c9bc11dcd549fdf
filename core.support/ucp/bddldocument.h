#pragma once

#include "ucp/ucpnode.h"

class BDDLStructBase_Root;

// The UCP document over a camera's structure tree. It registers itself with
// the root, so every node's getOwnerDocument() finds it, and creates nodes of
// the camera's classes through the run's object factory. The document is not
// itself a node of the tree: its node operations throw std::runtime_error
// "Not implemented".
//
// A document may outlive its root (a camera deinitialised first): the root
// detaches the documents over it when it goes, and such a document then
// answers as one without a root.
class BDDLDocument : public UCPDocument
{
public:
    explicit BDDLDocument(BDDLStructBase_Root *root);
    ~BDDLDocument() override;

    // --- UCPDocument ---------------------------------------------------------------
    UCPNode *createNode(QString name) override;
    UCPNode *createNode(unsigned long classId) override;
    UCPNode *createElement(QString name) override;
    UCPNode *createTextNode(QString text) override;
    UCPNode *getDocumentNode() override;
    QString getDoctype() const override;
    bool setDoctype(QString doctype) override;
    ft_t getFiletype() const override;
    bool setFiletype(ft_t type) override;
    UCPNode *getNodeById(QString id) override;
    UCPTreeWalker *createTreeWalker(UCPNode *node) override;

    // --- UCPNode: not supported on the document ----------------------------------------
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
    UCPNode *appendChild(UCPNode *newChild) override;
    bool hasChildNodes() const override;
    void setNodeValue(QVariant value) override;

    BDDLStructBase_Root *root() const { return m_root; }
    // Called by the root as it is destroyed.
    void rootDestroyed() { m_root = nullptr; }

private:
    BDDLStructBase_Root *m_root;
};
