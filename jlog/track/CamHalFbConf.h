#pragma once

#include <algorithm>
#include <cstdint>
#include <iterator>

#include "jlog/track/ErrorCode.h"

namespace JCam::Utils::JLog::Track {

/// One row of the table of feedback codes.
struct CamHalFbRow {
    int32_t errCode;
    const char* desc;      ///< name of the code
    const char* category;  ///< name of the exception's class
};

/// The exceptions that are sent to the kernel's feedback node. Readers of payloads know the order
/// and the spellings.
inline constexpr CamHalFbRow gCamHalFbConf[] = {
        {0x10025005, "EXCEP_PROBE", "EXP_HARDWARE"},
        {0x10025010, "FLASHLIGHT_SET_FAIL", "EXP_HARDWARE"},
        {0x10025011, "LENS_SET_FAIL", "EXP_HARDWARE"},
        {0x10025012, "OIS_SET_FAIL", "EXP_HARDWARE"},
        {0x10025013, "ESD_recovery", "EXP_HARDWARE"},
        {0x10025100, "EXCEPTION_RTT_ISP", "EXP_TALVEX"},
        {0x10025101, "EXCEPTION_RTT_NPU", "EXP_TALVEX"},
        {0x10025102, "EXCEPTION_RTT_PMIC", "EXP_TALVEX"},
        {0x10025103, "EXCEPTION_RTT_PVT", "EXP_TALVEX"},
        {0x10025104, "EXCEPTION_RTT_CPU", "EXP_TALVEX"},
        {0x10025105, "EXCEPTION_RTT_SE", "EXP_TALVEX"},
        {0x10025106, "EXCEPTION_RTT_WDT", "EXP_TALVEX"},
        {0x10025107, "EXCEPTION_RTT_BUS", "EXP_TALVEX"},
        {0x10025108, "EXCEPTION_RTT_SDIO", "EXP_TALVEX"},
        {0x10025109, "EXCEPTION_RTT_POWER", "EXP_TALVEX"},
        {0x1002510A, "EXCEPTION_RTT_BOOT", "EXP_TALVEX"},
        {0x1002510B, "EXCEPTION_RTT_MIPI", "EXP_TALVEX"},
        {0x10025200, "SENSOR_SOF_TIMEOUT", "EXP_P1_NODE"},
        {0x10025201, "ACQUIRE_BUF_FAIL", "EXP_P1_NODE"},
        {0x10025202, "WAIT_FOR_AVAILABLE_BUF_FAIL", "EXP_P1_NODE"},
        {0x10025300, "IMAGESYS_DEQUE_FAIL", "EXP_P2S_NODE"},
        {0x10025301, "IMAGESYS_MW_CONFIG_FAIL", "EXP_P2S_NODE"},
        {0x10025500, "CONFIG_STREAM_TIMEOUT", "EXP_CAM_DEVICE"},
        {0x10025501, "FLUSH_TIMEOUT", "EXP_CAM_DEVICE"},
        {0x10025502, "CLOSE_TIMEOUT", "EXP_CAM_DEVICE"},
        {0x10025503, "BUFFER_STATUS_ERROR", "EXP_CAM_DEVICE"},
        {0x10025504, "CAMERA_SERVER_HAS_DIED", "EXP_CAM_DEVICE"},
        {0x10025600, "GYRO_ACRUIRE_FAIL", "EXP_CAM_OTHER"},
        {0x10025601, "COMMON_TRIGGER_AEE", "EXP_CAM_OTHER"},
        {0x10025602, "DARK_AE_ANOMALOUS", "EXP_CAM_OTHER"},
};

inline constexpr int kCamHalFbRows = sizeof(gCamHalFbConf) / sizeof(gCamHalFbConf[0]);

/// The row of a sensor whose probe has failed.
inline constexpr const CamHalFbRow& kProbeFailureRow = gCamHalFbConf[0];

/// The index of the row of `code`, or -1.
constexpr int findCamHalFbRow(int32_t code) {
    for (int i = 0; i < kCamHalFbRows; i++) {
        if (gCamHalFbConf[i].errCode == code) {
            return i;
        }
    }
    return -1;
}

constexpr bool hasReportableCode(const CamHalFbRow& row) {
    const int type = (row.errCode >> 8) & 0xF;
    const int subCode = row.errCode & 0xFF;
    return isReportable(type, subCode) && makeErrorCode(type, subCode) == row.errCode;
}
static_assert(std::all_of(std::begin(gCamHalFbConf), std::end(gCamHalFbConf), hasReportableCode));
static_assert(kProbeFailureRow.errCode == makeErrorCode(0, 5));

}  // namespace JCam::Utils::JLog::Track
