#include "ucp/ucptreewalker.h"

#include "ucp/ucpnode.h"

#include <stdexcept>

namespace {

[[maybe_unused]] const char *const NoNameString = "noname";

} // namespace

// ---------------------------------------------------------------------------
// UCPNodeAttributes
// ---------------------------------------------------------------------------

UCPNodeAttributes::UCPNodeAttributes()
    : m_names{QStringLiteral("offset"),      QStringLiteral("size"),       QStringLiteral("eitem"),
              QStringLiteral("estrc"),       QStringLiteral("type_string"), QStringLiteral("name"),
              QStringLiteral("streamname"), QStringLiteral("cameraname")}
{
}

const UCPNodeAttributes &UCPNodeAttributes::getInstance()
{
    static const UCPNodeAttributes instance;
    return instance;
}

UCPNodeAttribute UCPNodeAttributes::getAttribute(const QString &name) const
{
    for (std::size_t i = 0; i < m_names.size(); ++i)
        if (m_names[i] == name)
            return static_cast<UCPNodeAttribute>(i);
    return naUnknown;
}

QString UCPNodeAttributes::getAttribute(UCPNodeAttribute attribute) const
{
    if (attribute < naUnknown)
        throw std::out_of_range("UCPNodeAttributes::getAttribute: attribute out of range");
    if (attribute == naUnknown || static_cast<std::size_t>(attribute) >= m_names.size())
        return QStringLiteral("unknown");
    return m_names[static_cast<std::size_t>(attribute)];
}

// ---------------------------------------------------------------------------
// UCPTreeWalker
// ---------------------------------------------------------------------------

UCPTreeWalker::UCPTreeWalker(UCPNode *root) : m_current(root), m_root(root) {}

void UCPTreeWalker::setCurrentNode(UCPNode *node)
{
    if (node == nullptr)
        throw "UCPTreeWalker::setCurrentNode:node null";
    m_current = node;
    m_path.clear();
}

UCPNode *UCPTreeWalker::getParentNode(UCPNode *node) const
{
    return (node == nullptr || node == m_root) ? nullptr : node->getParentNode();
}

UCPNode *UCPTreeWalker::getFirstChild(UCPNode *node) const
{
    return node ? node->getFirstChild() : nullptr;
}

UCPNode *UCPTreeWalker::getLastChild(UCPNode *node) const
{
    return node ? node->getLastChild() : nullptr;
}

UCPNode *UCPTreeWalker::getPreviousSibling(UCPNode *node) const
{
    return (node == nullptr || node == m_root) ? nullptr : node->getPreviousSibling();
}

UCPNode *UCPTreeWalker::getNextSibling(UCPNode *node) const
{
    std::vector<UCPNode *> noPath;
    return climbingNextSibling(noPath, node);
}

// Climbs along `path` while it lasts, then along parent links. Every step
// goes one level up, so the climb ends at the root or at a node without a
// parent.
UCPNode *UCPTreeWalker::climbingNextSibling(std::vector<UCPNode *> &path, UCPNode *node) const
{
    while (node != nullptr && node != m_root) {
        if (UCPNode *const sibling = node->getNextSibling())
            return sibling;
        UCPNode *parent;
        if (!path.empty()) {
            parent = path.back();
            path.pop_back();
        } else {
            parent = node->getParentNode();
        }
        if (parent == m_root)
            return nullptr;
        node = parent;
    }
    return nullptr;
}

UCPNode *UCPTreeWalker::walkParent() const
{
    if (!m_path.empty())
        return m_path.back();
    return getParentNode(m_current);
}

UCPNode *UCPTreeWalker::parentNode()
{
    UCPNode *const parent = walkParent();
    if (parent != nullptr) {
        if (!m_path.empty())
            m_path.pop_back();
        m_current = parent;
    }
    return parent;
}

UCPNode *UCPTreeWalker::firstChild()
{
    UCPNode *const child = getFirstChild(m_current);
    if (child != nullptr) {
        m_path.push_back(m_current);
        m_current = child;
    }
    return child;
}

UCPNode *UCPTreeWalker::lastChild()
{
    UCPNode *const child = getLastChild(m_current);
    if (child != nullptr) {
        m_path.push_back(m_current);
        m_current = child;
    }
    return child;
}

UCPNode *UCPTreeWalker::previousSibling()
{
    UCPNode *const sibling = getPreviousSibling(m_current);
    if (sibling != nullptr)
        m_current = sibling;
    return sibling;
}

UCPNode *UCPTreeWalker::nextSibling()
{
    std::vector<UCPNode *> path = m_path;
    UCPNode *const sibling = climbingNextSibling(path, m_current);
    if (sibling != nullptr) {
        m_path = std::move(path);
        m_current = sibling;
    }
    return sibling;
}

UCPNode *UCPTreeWalker::nextNode()
{
    if (firstChild() != nullptr)
        return m_current;
    return nextSibling();
}

UCPNode *UCPTreeWalker::previousNode()
{
    if (UCPNode *const sibling = getPreviousSibling(m_current)) {
        if (UCPNode *const last = getLastChild(sibling)) {
            m_path.push_back(sibling);
            m_current = last;
            return last;
        }
        m_current = sibling;
        return sibling;
    }
    return parentNode();
}
