#pragma once

// What a serial stream from outside may cost once it is a DOM. Both readers
// hold their input to these bounds before (XML) or while (SISL) they build
// the document, so a small hostile stream cannot become a huge or deeply
// nested tree. Private to the serial readers.

#include <QtGlobal>

#include <cstdint>

namespace SerialDomBounds {

// Element nesting. A serialised tree is as deep as its camera's structure
// nesting (at most 200 levels while reading) times two for arrays, plus the
// stream and document elements; Qt's DOM releases nodes recursively, so the
// bound also keeps its stack use small.
inline constexpr int kMaxDepth = 512;

// An estimate of the DOM's memory, from figures measured on Qt 5.15: an
// element and an attribute (which carries a text node of its own and a hash
// entry) cost far more than the bytes that describe them.
class Budget
{
public:
    // Allows `factor` bytes of DOM per input byte, and a floor for small inputs.
    Budget(qint64 inputSize, int factor);

    void addElement() { m_cost += kElementCost; }
    void addAttribute() { m_cost += kAttributeCost; }
    void addText(qint64 length) { m_cost += kTextCost + 2 * uint64_t(length); }
    // Other nodes (comments, processing instructions) cost like a text.
    void addOther(qint64 length) { addText(length); }

    bool exceeded() const { return m_cost > m_limit; }
    uint64_t limit() const { return m_limit; }

private:
    static constexpr uint64_t kElementCost = 176;
    static constexpr uint64_t kAttributeCost = 384;
    static constexpr uint64_t kTextCost = 200;
    static constexpr uint64_t kFloor = 4u << 20;

    uint64_t m_cost = 0;
    uint64_t m_limit;
};

} // namespace SerialDomBounds
