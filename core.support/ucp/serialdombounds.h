#pragma once

// What a serial stream from outside may cost once it is a DOM. Both readers
// hold their input to these bounds before (XML) or while (SISL) they build
// the document, so a small hostile stream cannot become a huge or deeply
// nested tree. Private to the serial readers.

#include <QtGlobal>

class QDomElement;
class QString;

#include <cstdint>

namespace SerialDomBounds {

// Element nesting. A serialised tree is as deep as its camera's structure
// nesting (at most 200 levels while reading) times two for arrays, plus the
// stream and document elements; Qt's DOM releases nodes recursively, so the
// bound also keeps its stack use small.
inline constexpr int kMaxDepth = 512;

// An estimate of the DOM's memory, from figures measured on Qt 5.15 (with
// some room above them): an element, and above all an attribute, costs far
// more than the bytes that describe it. An attribute with a value carries a
// text node of its own; an empty one made with createAttribute() does not.
class Budget
{
public:
    // Allows `factor` bytes per input byte, and a floor for small inputs.
    Budget(qint64 inputSize, int factor);

    void addElement() { m_cost += kElementCost; }
    // The attribute table an element makes for its first attribute.
    void addAttributeTable() { m_cost += kAttributeTableCost; }
    void addAttribute(qint64 length)
    {
        m_cost += length > 0 ? kAttributeCost + 2 * uint64_t(length) : kEmptyAttributeCost;
    }
    void addText(qint64 length) { m_cost += kTextCost + 2 * uint64_t(length); }
    // Other nodes (comments, processing instructions) cost like a text.
    void addOther(qint64 length) { addText(length); }
    // What a reader holds beside the DOM while it builds it.
    void addBytes(uint64_t bytes) { m_cost += bytes; }

    bool exceeded() const { return m_cost > m_limit; }
    uint64_t limit() const { return m_limit; }

private:
    static constexpr uint64_t kElementCost = 180;
    static constexpr uint64_t kAttributeTableCost = 200;
    static constexpr uint64_t kAttributeCost = 400;
    static constexpr uint64_t kEmptyAttributeCost = 260;
    static constexpr uint64_t kTextCost = 200;
    static constexpr uint64_t kFloor = 4u << 20;

    uint64_t m_cost = 0;
    uint64_t m_limit;
};

// Sets an attribute the cheapest way Qt's DOM allows: an empty value
// without the text node setAttribute() would give it.
void setDomAttribute(QDomElement &element, const QString &name, const QString &value);

} // namespace SerialDomBounds
