#pragma once

#include <QString>

#include <vector>

class UCPNode;

// The attributes UCP nodes answer to; the value is the position in the
// attribute table.
enum UCPNodeAttribute : int {
    naUnknown = -1,
    naOffset = 0,
    naSize = 1,
    naEitem = 2,
    naEstrc = 3,
    naTypeString = 4,
    naName = 5,
    naStreamname = 6,
    naCameraname = 7,
};

// The attribute-name table, made on first use and kept for the process.
class UCPNodeAttributes
{
public:
    static const UCPNodeAttributes &getInstance();

    // naUnknown for a name not in the table.
    UCPNodeAttribute getAttribute(const QString &name) const;
    // "unknown" for naUnknown and values past the table; std::out_of_range
    // for any other negative value.
    QString getAttribute(UCPNodeAttribute attribute) const;

    UCPNodeAttributes(const UCPNodeAttributes &) = delete;
    UCPNodeAttributes &operator=(const UCPNodeAttributes &) = delete;

private:
    UCPNodeAttributes();

    std::vector<QString> m_names;
};

// Walks a UCP tree in document order without ever leaving the subtree of its
// root.
//
// The walk's tree is not the tree of parent links: the views inside a single
// structure hang in the walk under the item view that holds the structure,
// while their parent link names the structure node itself, and array elements
// name the array's owner. So the walker remembers the way it went down and
// climbs back along it; after setCurrentNode() it has no such way and climbs
// along parent links, as the helpers do.
class UCPTreeWalker
{
public:
    explicit UCPTreeWalker(UCPNode *root);

    UCPNode *getRoot() const { return m_root; }
    UCPNode *getCurrentNode() const { return m_current; }
    // Throws the C string "UCPTreeWalker::setCurrentNode:node null" for null.
    void setCurrentNode(UCPNode *node);

    // Each move returns the node reached and makes it current; null leaves
    // the current node as it is.
    UCPNode *parentNode();
    UCPNode *firstChild();
    UCPNode *lastChild();
    UCPNode *previousSibling();
    UCPNode *nextSibling();
    UCPNode *nextNode();
    // A previous sibling's last child (one level only), else that sibling,
    // else the parent.
    UCPNode *previousNode();

    // The same relations for any node, along parent links, never above the root.
    UCPNode *getParentNode(UCPNode *node) const;
    UCPNode *getFirstChild(UCPNode *node) const;
    UCPNode *getLastChild(UCPNode *node) const;
    UCPNode *getPreviousSibling(UCPNode *node) const;
    // The next sibling, or that of the nearest ancestor that has one.
    UCPNode *getNextSibling(UCPNode *node) const;

private:
    // The current node's parent in the walk; the path's top, else its parent link.
    UCPNode *walkParent() const;
    UCPNode *climbingNextSibling(std::vector<UCPNode *> &path, UCPNode *node) const;

    UCPNode *m_current;
    UCPNode *m_root;
    // The walk's ancestors of the current node, root first; empty after
    // setCurrentNode() or at the root.
    std::vector<UCPNode *> m_path;
};
