#pragma once

#include "cameras/filetype.h"

#include <QString>
#include <QVariant>

class UCPDocument;
class UCPTreeWalker;

// A DOM-like node over a structure tree. Code that knows nothing of a
// camera's classes (serialisation, export and import) walks, reads and
// rebuilds trees through this interface only. Three kinds of object
// implement it: structure nodes, the item views over their fields, and the
// document standing over a tree's root. The slot order is part of the
// plug-in boundary; add nothing in between.
class UCPNode
{
public:
    enum NodeType {
        DOCUMENT = 1,    // the tree's root structure node
        STRUCT = 2,      // any other structure node; a view of a single-structure item
        STRUCTARRAY = 3, // a view of a structure-array item
        ITEM = 4,        // a view of a float, token, whitespace, string or buffer item
        VALUEARRAY = 5,  // a view of a scalar-array item
        VALUE = 6,       // a view of an integer or character scalar item
    };

    UCPNode() = default;
    UCPNode(const UCPNode &) = delete;
    UCPNode &operator=(const UCPNode &) = delete;
    virtual ~UCPNode();

    virtual QString getNodeName() const = 0;
    virtual QVariant getNodeValue() const = 0;
    // Unknown attribute names read as an invalid variant and are ignored on write.
    virtual QVariant getNodeAttribute(QString name) const = 0;
    virtual void setNodeAttribute(QString name, QVariant value) = 0;
    virtual NodeType getNodeType() const = 0;
    virtual bool isNodeActive() const = 0;

    // Navigation. Not const: structure nodes make their item views on first need.
    virtual UCPNode *getParentNode() = 0;
    virtual UCPNode *getFirstChild() = 0;
    virtual UCPNode *getLastChild() = 0;
    virtual UCPNode *getPreviousSibling() = 0;
    virtual UCPNode *getNextSibling() = 0;
    virtual UCPDocument *getOwnerDocument() const = 0;

    // Editing. Nodes that cannot do an edit throw the C string "not implemented".
    virtual UCPNode *insertBefore(UCPNode *newChild, UCPNode *refChild) = 0;
    virtual UCPNode *replaceChild(UCPNode *newChild, UCPNode *oldChild) = 0;
    virtual UCPNode *removeChild(UCPNode *oldChild) = 0;
    virtual UCPNode *appendChild(UCPNode *newChild) = 0;

    virtual bool hasChildNodes() const = 0;
    virtual void setNodeValue(QVariant value) = 0;

    // The name under which serialisation writes a node type; "UNKNOWN" for
    // any other value.
    static QString nodeTypeName(int type);
};

// The document over a structure tree: creates nodes of the camera's classes
// and walkers, and carries the tree's doctype and file type.
class UCPDocument : public UCPNode
{
public:
    virtual UCPNode *createNode(QString name) = 0;
    // A new structure node of the camera's class with that id, or null.
    virtual UCPNode *createNode(unsigned long classId) = 0;
    virtual UCPNode *createElement(QString name) = 0;
    virtual UCPNode *createTextNode(QString text) = 0;
    virtual UCPNode *getDocumentNode() = 0;
    virtual QString getDoctype() const = 0;
    virtual bool setDoctype(QString doctype) = 0;
    virtual ft_t getFiletype() const = 0;
    virtual bool setFiletype(ft_t type) = 0;
    virtual UCPNode *getNodeById(QString id) = 0;
    // A new walker rooted at `node`; the caller owns it.
    virtual UCPTreeWalker *createTreeWalker(UCPNode *node) = 0;
};
