#pragma once

// Visits every node below a DOM node in document order without recursion
// (serial streams from outside may nest deeply). Private to the serial units.

#include <QDomNode>

template <typename Visit>
void forEachDomNode(const QDomNode &root, Visit visit)
{
    QDomNode node = root.firstChild();
    while (!node.isNull()) {
        visit(node);
        QDomNode next = node.firstChild();
        if (next.isNull()) {
            while (node != root && node.nextSibling().isNull())
                node = node.parentNode();
            if (node == root)
                break;
            next = node.nextSibling();
        }
        node = next;
    }
}
