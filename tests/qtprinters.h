#pragma once

// Lets GoogleTest print Qt values readably in failure messages.

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <ostream>

inline void PrintTo(const QString &s, std::ostream *os) { *os << '"' << s.toStdString() << '"'; }

inline void PrintTo(const QByteArray &b, std::ostream *os)
{
    *os << "QByteArray(" << b.size() << ") 0x" << b.toHex().toStdString();
}

inline void PrintTo(const QStringList &list, std::ostream *os)
{
    *os << "QStringList(" << list.join(QStringLiteral(", ")).toStdString() << ")";
}

inline void PrintTo(const QVariant &v, std::ostream *os)
{
    *os << "QVariant(" << v.typeName() << ", " << v.toString().toStdString() << ")";
}
