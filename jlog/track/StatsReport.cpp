#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>

#include <aidl/android/frameworks/stats/IStats.h>
#include <android/binder_auto_utils.h>
#include <android/binder_manager.h>
#include <android/log.h>

#include "jlog/track/ClientPackage.h"
#include "jlog/track/EventTrackJLogger.h"
#include "jlog/track/TrackLogTag.h"

// Reports to the stats service.
//
// Its interface has strings and vectors, which throw without memory, and a service that the host
// implements may throw anything. This is the one source of the library that is compiled with
// exceptions, and none leaves it.

// The device maker's name with the stats service. A build may define its own.
#ifndef JCAM_REVERSE_DOMAIN_NAME
#define JCAM_REVERSE_DOMAIN_NAME "com.jovix.camera"
#endif

namespace JCam::Utils::JLog::Track {

namespace {

using aidl::android::frameworks::stats::IStats;
using aidl::android::frameworks::stats::VendorAtom;
using aidl::android::frameworks::stats::VendorAtomValue;
using std::memory_order_relaxed;

constexpr char kReverseDomainName[] = JCAM_REVERSE_DOMAIN_NAME;
static_assert(sizeof(kReverseDomainName) > 1, "JCAM_REVERSE_DOMAIN_NAME must not be empty");
static_assert(sizeof(kReverseDomainName) - 1 < 50, "JCAM_REVERSE_DOMAIN_NAME is too long");

/// The first of the dark-screen atoms, one per module.
constexpr int32_t kDarkScreenAtomId = 101147;
constexpr int kDarkScreenModules = 4;

/// Placeholders for values that the atom leaves unset.
constexpr int32_t kNoInt = -1;
constexpr char kNoText[] = "-1";

/// Including the NUL.
constexpr size_t kPayloadBytes = 1024;

/// Whether the service was found declared. Relaxed: it guards no other data, and concurrent first
/// calls get the same answer.
constinit std::atomic<bool> sStatsDeclared{false};

VendorAtomValue intValue(int32_t value) {
    return VendorAtomValue::make<VendorAtomValue::intValue>(value);
}

VendorAtomValue stringValue(const char* value) {
    return VendorAtomValue::make<VendorAtomValue::stringValue>(value);
}

std::shared_ptr<IStats> findService() {
    const std::string instance = std::string(IStats::descriptor) + "/default";
    if (!sStatsDeclared.load(memory_order_relaxed)) {
        if (!AServiceManager_isDeclared(instance.c_str())) {
            __android_log_print(ANDROID_LOG_ERROR, kTrackLogTag,
                                "Stats service is not registered.");
            return nullptr;
        }
        sStatsDeclared.store(true, memory_order_relaxed);
    }
    const ndk::SpAIBinder binder(AServiceManager_checkService(instance.c_str()));
    return IStats::fromBinder(binder);
}

void logNotSent() {
    __android_log_print(ANDROID_LOG_INFO, kTrackLogTag,
                        "Unable to send dark screen info to Stats service");
}

/// Runs `action`; false if it throws.
template <typename Action>
bool runContained(const Action& action) {
    try {
        action();
        return true;
    } catch (...) {
        // Not a C++ exception: glibc unwinds a cancelled thread like this, and ends the process if
        // the unwinding is stopped.
        if (std::current_exception() == nullptr) {
            throw;
        }
        return false;
    }
}

void sendAtom(int32_t atomId, int32_t openId, uint32_t opMode, const char* packageName) {
    const VendorAtom atom{
            .reverseDomainName = kReverseDomainName,
            .atomId = atomId,
            .values = {intValue(kNoInt), stringValue(kNoText), stringValue(kNoText),
                       intValue(openId), stringValue(packageName),
                       intValue(static_cast<int32_t>(opMode)), stringValue(kNoText)},
    };
    const std::shared_ptr<IStats> stats = getStatsService();
    if (stats == nullptr) {
        __android_log_print(ANDROID_LOG_INFO, kTrackLogTag, "Unable to get Stats service!");
        return;
    }
    if (!stats->reportVendorAtom(atom).isOk()) {
        logNotSent();
    }
}

}  // namespace

std::shared_ptr<IStats> getStatsService() {
    std::shared_ptr<IStats> service;
    static_cast<void>(runContained([&service] { service = findService(); }));
    return service;
}

void EventTrackJLogger::writeDarkScreenErrCode(int moduleId, const char* detail) {
    const ClientPackage package;
    const int32_t openId = mOpenID.load(memory_order_relaxed);
    const uint32_t opMode = mOpMode.load(memory_order_relaxed);
    if (moduleId < 0 || moduleId >= kDarkScreenModules) {
        __android_log_print(ANDROID_LOG_ERROR, kTrackLogTag, "input module_id:%d invaild",
                            moduleId);
        return;
    }
    const int32_t atomId = kDarkScreenAtomId + moduleId;
    char payload[kPayloadBytes] = {};
    snprintf(payload, sizeof(payload),
             "exceptionId:%d,pkgName:%s,captureMode:0x%x,cameraID:%d,detailData:%s", atomId,
             package.name(), opMode, openId, detail != nullptr ? detail : "NULL");
    __android_log_print(ANDROID_LOG_INFO, kTrackLogTag, "payload = %s", payload);

    if (!runContained([&] { sendAtom(atomId, openId, opMode, package.name()); })) {
        logNotSent();
    }
}

}  // namespace JCam::Utils::JLog::Track
