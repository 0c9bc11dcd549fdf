#include "fileidentifier_validation.h"

#include "ucp_engine/id_determination.h"

#include <stdexcept>

namespace FileIdentifier {

namespace {
[[maybe_unused]] const char *const NoNameString = "noname";
} // namespace

cameraStatus_t reportUnsupportedFile(FileIdentifier_class *root)
{
    vx_analyse_group(root, static_cast<short>(getAnalysisStatsID(root)), root->get_desc_string(), root->size());
    // The derivations take the key as a writable C string.
    char key[] = "File is not supported";
    static_assert(sizeof key == sizeof FileNotSupportedText, "the key is the issue's text");
    const uint32_t issueId = getIssueID(root, FileIdentifierClassId, getCameraID(root), key);
    const uint32_t group = getValidationGroupID(root, FileIdentifierClassId);
    vx_issue_id(root, static_cast<int>(group), issueId, "%s", FileNotSupportedText);
    return cameraStatus_Fail;
}

cameraStatus_t FileIdentifier_class::validate()
{
    try {
        return reportUnsupportedFile(this);
    } catch (...) {
        vx_issue(this, 464, "Validation Exception in: %s", get_desc_string());
        throw std::runtime_error(get_desc_string());
    }
}

} // namespace FileIdentifier
