#include "ucp/serialdombounds.h"

#include <QDomDocument>

namespace {
[[maybe_unused]] const char *const NoNameString = "noname";
}

namespace SerialDomBounds {

Budget::Budget(qint64 inputSize, int factor)
    : m_limit(kFloor + uint64_t(inputSize < 0 ? 0 : inputSize) * uint64_t(factor < 0 ? 0 : factor))
{
}

void setDomAttribute(QDomElement &element, const QString &name, const QString &value)
{
    // An attribute node added beside one of the same name would make two.
    if (!value.isEmpty() || element.hasAttribute(name)) {
        element.setAttribute(name, value);
        return;
    }
    QDomAttr attribute = element.ownerDocument().createAttribute(name);
    element.setAttributeNode(attribute);
}

} // namespace SerialDomBounds
