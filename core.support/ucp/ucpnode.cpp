#include "ucp/ucpnode.h"

namespace {
[[maybe_unused]] const char *const NoNameString = "noname";
}

UCPNode::~UCPNode() = default;

QString UCPNode::nodeTypeName(int type)
{
    static const char *const names[] = {"DOCUMENT", "STRUCT", "STRUCTARRAY", "ITEM", "VALUEARRAY", "VALUE"};
    if (type < DOCUMENT || type > VALUE)
        return QStringLiteral("UNKNOWN");
    return QLatin1String(names[type - DOCUMENT]);
}
