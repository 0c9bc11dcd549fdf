#include "ucp_engine/analysis.functions.h"

#include <gtest/gtest.h>

#include <map>

TEST(StatusConversion, CameraStatusToRetStatus)
{
    // Every code of the lower byte plus a few beyond it.
    const std::map<cameraStatus_t, VX2_RetStatus> special = {{0, 0}, {64, 1}, {177, -2}};
    for (cameraStatus_t status = 0; status < 0x200; ++status) {
        const auto it = special.find(status);
        EXPECT_EQ(getVX2_RetStatusFromCameraStatus(status), it == special.end() ? -1 : it->second)
            << "cameraStatus " << status;
    }
    EXPECT_EQ(getVX2_RetStatusFromCameraStatus(0xFFFFFFFFu), -1);
}

TEST(StatusConversion, RetStatusToCameraStatus)
{
    const std::pair<VX2_RetStatus, cameraStatus_t> cases[] = {
        {0, 0}, {1, 64}, {-1, 128}, {-2, 128}, {2, 128}, {INT32_MIN, 128}, {INT32_MAX, 128}};
    for (const auto &[status, expected] : cases)
        EXPECT_EQ(getCameraStatusFromVX2_RetStatus(status), expected) << "VX2_RetStatus " << status;
}

TEST(StatusConversion, RoundTripKeepsTheCodesInUse)
{
    for (const VX2_RetStatus status : {VX2_SuccessWithInfo, VX2_Success, VX2_Fail})
        EXPECT_EQ(getVX2_RetStatusFromCameraStatus(getCameraStatusFromVX2_RetStatus(status)), status);
    // -2 has no camera status of its own and comes back as a plain failure.
    EXPECT_EQ(getVX2_RetStatusFromCameraStatus(getCameraStatusFromVX2_RetStatus(VX2_Fatal)), VX2_Fail);
}

TEST(StatusCombination, FailureDominatesAndTheWorseFailureWins)
{
    struct Case
    {
        VX2_RetStatus a, b, combined;
    };
    const Case cases[] = {
        {1, 0, 1}, {0, 1, 1}, {0, -1, -1}, {-1, 0, -1}, {-1, -2, -2}, {-2, -1, -2},
        {1, -1, -1}, {-1, 1, -1}, {0, 0, 0}, {1, 1, 1}, {-2, 1, -2}, {5, -1, -1},
    };
    for (const Case &c : cases)
        EXPECT_EQ(combineVX2_RetStatus(c.a, c.b), c.combined) << "combine(" << c.a << ", " << c.b << ")";
}

TEST(StatusCombination, IsFailIsTheSign)
{
    const std::pair<VX2_RetStatus, bool> cases[] = {
        {INT32_MIN, true}, {-2, true}, {-1, true}, {0, false}, {1, false}, {INT32_MAX, false}};
    for (const auto &[status, fails] : cases)
        EXPECT_EQ(isVX2_RetStatusFail(status), fails) << "VX2_RetStatus " << status;
}

TEST(StatusClass, FailureIsTheMaskedTopBits)
{
    const std::pair<cameraStatus_t, bool> cases[] = {
        {0, false},  {64, false},  {128, true}, {153, true}, {162, true},  {169, true},
        {177, true}, {182, true},  {191, true}, {192, false}, {0x1A2, true}, {0x40, false}};
    for (const auto &[status, fails] : cases)
        EXPECT_EQ(isCameraStatusFail(status), fails) << "cameraStatus " << status;
}
