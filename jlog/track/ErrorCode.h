#pragma once

#include <cstdint>

namespace JCam::Utils::JLog::Track {

// A camera exception error code: bits 31 to 12 mark it as one, bits 11 to 8 are the type, bits 7 to
// 0 the sub-code within the type.

inline constexpr int32_t kCameraErrorBase = 0x10025000;
/// Only types and sub-codes below these become codes; all known exceptions are among them. Numbers
/// too large for their field would set bits of the others.
inline constexpr int kErrorTypes = 8;
inline constexpr int kErrorSubCodes = 33;

constexpr bool isReportable(int type, int subCode) {
    return type >= 0 && type < kErrorTypes && subCode >= 0 && subCode < kErrorSubCodes;
}

constexpr int32_t makeErrorCode(int type, int subCode) {
    return kCameraErrorBase | (type << 8) | subCode;
}

constexpr bool isCameraType(uint32_t exceptionId) {
    constexpr auto kBase = static_cast<uint32_t>(kCameraErrorBase);
    return (exceptionId & kBase) == kBase;
}

}  // namespace JCam::Utils::JLog::Track
