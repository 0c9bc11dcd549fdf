// Uses a little of each public face: statuses, the camera interfaces, the
// repository with its report, and a policy. Prints "ok" when all answer.

#include "analysis/RepositoryComponents.h"
#include "analysis/XML_Reporting.h"
#include "buffers/MemoryBuffer.h"
#include "cameras/camera_interfaces.h"
#include "policy/ContentManagement.h"
#include "ucp_engine/vxstatus.h"

#include <cstdio>
#include <cstring>

int main()
{
    RepositoryComponents::DocumentAnalysis analysis;
    MemoryBuffer report;
    const bool reported = analysis.AddFileAnalysis("name", "type", "1", 10, "") == cameraStatus_Success
        && analysis.WriteReport(&report, 1) > 0;

    const char xml[] = "<config><wordConfig><macros>allow</macros></wordConfig></config>";
    MemoryBuffer policyText;
    policyText.putRawBytes(xml, std::strlen(xml));
    policyText.seek(0, MBSeekStart);
    ContentManagement policy;
    const bool policed = policy.loadRepositoryFromXML(&policyText) == 0
        && getManageType_macros(cfgWordConfig, policy) == cmsAllow;

    const bool statuses = combineVX2_RetStatus(VX2_SuccessWithInfo, VX2_Fail) == VX2_Fail
        && std::strcmp(VXCameraPluginIF_iid, "vx_core2_camera_interface_v0.8") == 0;

    if (!reported || !policed || !statuses) {
        std::printf("report %d, policy %d, statuses %d\n", reported, policed, statuses);
        return 1;
    }
    std::printf("ok\n");
    return 0;
}
