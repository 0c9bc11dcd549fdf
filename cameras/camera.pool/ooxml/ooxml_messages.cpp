#include "ooxml_messages.h"

#include "cameras/filetype.h"
#include "ucp_engine/BDDLStructBase.h"
#include "ucp_engine/analysis.ids.h"
#include "ucp_engine/id_determination.h"
#include "ucp_engine/ucpLogging.h"

#include <QByteArray>

#include <cstring>
#include <iterator>

namespace Ooxml {

namespace {

[[maybe_unused]] const char *const NoNameString = "noname";

struct FaultRow
{
    OoxmlFault fault;
    const char *text;
};
#define OOXML_FAULT_ROW(name, id, text) {name, text},
const FaultRow kFaults[] = {OOXML_FAULTS(OOXML_FAULT_ROW)};
#undef OOXML_FAULT_ROW

const struct
{
    const char *prefix;
    uint32_t id;
} kSanitisations[] = {
    {"Macros present in ", 1},
    {"Embedded File present in ", 2},
    {"External Hyperlinks present in ", 3},
    {"Metadata detected in ", 4},
    {"Review comments present in ", 5},
    {"Embedded Image present in ", 6},
};

const AnalysisGroupIdMap_t &groups()
{
    static const AnalysisGroupIdMap_t table{
        {itemPackage, 148},
        {itemPart, 149},
        {itemMacros, eAnalysisStats_Macro},
        {itemEmbeddedFiles, eAnalysisStats_EmbeddedObject},
        {itemExternalLinks, eAnalysisStats_ExternalHyperlink},
        {itemMetadata, eAnalysisStats_Metadata},
        {itemReviewComments, eAnalysisStats_ReviewComment},
        {itemEmbeddedImages, eAnalysisStats_EmbeddedImage},
        {itemStructure, eAnalysisStats_StructuralError},
    };
    return table;
}

// The camera whose issue ids a root's issues carry: the document family's
// once the package's kind is known, the package camera's before.
eCameraId_t issueCamera(BDDLStructBase_Root *root)
{
    const eCameraId_t camera = getCameraID(root);
    return camera != eCameraId_Default ? camera : eCameraId_OpcPackage;
}

} // namespace

const char *faultText(OoxmlFault fault)
{
    for (const FaultRow &row : kFaults)
        if (row.fault == fault)
            return row.text;
    return "";
}

uint32_t ooxml_getErrMsgID(const char *key)
{
    if (key != nullptr)
        for (const FaultRow &row : kFaults)
            if (std::strcmp(row.text, key) == 0)
                return row.fault;
    return 0;
}

uint32_t ooxml_getSanitisationMsgID(const char *key)
{
    if (key != nullptr)
        for (const auto &row : kSanitisations)
            if (std::strncmp(key, row.prefix, std::strlen(row.prefix)) == 0)
                return row.id;
    return 0;
}

uint32_t ooxml_getAnalysisGroupID(unsigned int item)
{
    return groups().value(item, 0);
}

const AnalysisGroupIdMap_t *ooxml_getAnalysisGroupIdMap()
{
    return &groups();
}

int ooxml_initialiseIDLookups()
{
    groups();
    return 0;
}

void reportFault(BDDLStructBase_Root *root, OoxmlFault fault, const QString &detail)
{
    const QByteArray message = QStringLiteral("%1: %2").arg(QLatin1String(faultText(fault)), detail).toUtf8();
    int group = eAnalysisStats_StructuralError;
    uint32_t issueId = 0;
    try {
        // The derivations take the key as a writable C string.
        QByteArray key(faultText(fault));
        group = static_cast<int>(getValidationGroupID(root, itemStructure));
        issueId = getIssueID(root, itemStructure, issueCamera(root), key.data());
    } catch (...) {
        // No camera pool to ask (the camera run on its own): the default ids.
    }
    try {
        vx_issue_id(root, group, issueId, "%s", message.constData());
    } catch (...) {
        tbLog(message.constData());
    }
}

std::string reportName(const QString &name)
{
    const int kLimit = 300;
    if (name.size() <= kLimit)
        return name.toStdString();
    return (name.left(kLimit) + QStringLiteral("...")).toStdString();
}

} // namespace Ooxml
