#include "ucp_engine/analysis.functions.h"

#include "analysis/RepositoryComponents.h"
#include "ucp_engine/BDDLStructBase.h"
#include "ucp_engine/BDDValidationFuncs.h"

#include <QDebug>
#include <QMessageLogger>
#include <QScopeGuard>
#include <QString>

#include <string>

// ---------------------------------------------------------------------------
// Reporting from tree code
// ---------------------------------------------------------------------------

namespace {

[[maybe_unused]] const char *const NoNameString = "noname";

const char *const kSourcePath = "core.support/ucp_engine/analysis.functions";

// The root a report from `node` goes to: the node itself when it is a root,
// else the root of its tree. Cameras report from whichever node found the
// content; the records belong to the tree's run either way. Null for a null
// node or a node not yet in a tree.
BDDLStructBase_Root *reportingRoot(BDDLStructBase *node)
{
    if (node == nullptr)
        return nullptr;
    if (auto *root = dynamic_cast<BDDLStructBase_Root *>(node))
        return root;
    return node->root();
}

// The repository the node's tree records into; there is none to record into
// for a null node either.
RepositoryComponents::DocumentAnalysis &analysisOf(BDDLStructBase *node)
{
    RepositoryComponents::DocumentAnalysis *const analysis = getAnalysisFromStructBase(reportingRoot(node));
    if (analysis == nullptr)
        throw "getAnalysisFromStructBase failed";
    return *analysis;
}

std::string textOf(const char *text)
{
    return text ? std::string(text) : std::string();
}

} // namespace

cameraStatus_t vx_analyse_group(BDDLStructBase *node, short group, const char *description, unsigned long size)
{
    return analysisOf(node).VXAnalyseSchemaGroupContentItem(group, textOf(description), size);
}

cameraStatus_t vx_analyse_group_issue(BDDLStructBase *node, short group, const char *description,
                                      unsigned long size, unsigned int issueId)
{
    return analysisOf(node).VXAnalyseSchemaGroupIssue(group, textOf(description), size, issueId);
}

cameraStatus_t vx_analyse_group_sanitize(BDDLStructBase *node, short group, const char *description,
                                         unsigned int size, unsigned int sanitisationId)
{
    return analysisOf(node).VXAnalyseSchemaGroupSanitize(group, textOf(description), size, sanitisationId);
}

// Remedies are not written into the report from here: the report of a
// repaired document lists what was removed or changed (sanitisations), and
// readers of existing reports expect no remedy entries. A camera that wants
// them calls the repository's VXAnalyseSchemaGroupRemedy directly.
cameraStatus_t vx_analyse_group_remedy(BDDLStructBase *, short, const char *, unsigned long)
{
    return cameraStatus_Success;
}

cameraStatus_t vx_analyse_error_group(BDDLStructBase *, unsigned long, const char *, unsigned long)
{
    return cameraStatus_Success;
}

cameraStatus_t analysis_VXAnalyseSchemaGetInterchangeMode()
{
    return cameraStatus_Success;
}

void VX_ERROR_function(BDDLStructBase_Root *root, int group, unsigned int id, const char *, int,
                       const char *format, va_list arguments)
{
    const QString message = QString::vasprintf(format, arguments);
    QMessageLogger(nullptr, 0, nullptr, "default").debug() << "VX_ERROR:" << id << ":" << group << ":" << message;
    if (group != 0)
        vx_analyse_group_issue(root, static_cast<short>(group), message.toUtf8().constData(), 0, id);
}

void vx_issue(BDDLStructBase *node, int group, const char *format, ...)
{
    if (format == nullptr)
        return;
    va_list arguments;
    va_start(arguments, format);
    // The recording may throw; the argument list is ended either way.
    const auto end = qScopeGuard([&arguments] { va_end(arguments); });
    VX_ERROR_function(reportingRoot(node), group, vxDefaultIssueId, kSourcePath, 53, format, arguments);
}

void vx_issue_id(BDDLStructBase *node, int group, unsigned int id, const char *format, ...)
{
    Q_CHECK_PTR(node);
    if (format == nullptr)
        return;
    va_list arguments;
    va_start(arguments, format);
    const auto end = qScopeGuard([&arguments] { va_end(arguments); });
    VX_ERROR_function(reportingRoot(node), group, id, kSourcePath, 76, format, arguments);
}
