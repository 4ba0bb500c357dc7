#include "PolicyModel.h"

#include <algorithm>
#include <cstdio>

#include <android/log.h>

#include "LogText.h"
#include "PropertyModel.h"

namespace JCam::Fuzz {

namespace {

constexpr char kInitTag[] = "JLOG";
constexpr char kPolicyTag[] = "JLogInit";
constexpr char kPanic[] = "persist.sys.assert.panic";

std::string hex(uint64_t number, bool upperCase) {
    char result[24];
    snprintf(result, sizeof(result), upperCase ? "0x%lX" : "0x%lx",
             static_cast<unsigned long>(number));
    return result;
}

}  // namespace

bool PolicyModel::set(const std::string& key, const std::string& value) {
    if (!isStorable(key, value)) {
        return false;
    }
    mProperties[key] = value;
    return true;
}

std::string PolicyModel::text(std::string_view key, const char* defaultValue) const {
    const auto found = mProperties.find(key);
    return found == mProperties.end() || found->second.empty()
                   ? defaultValue
                   : found->second.substr(0, kMaxValueChars);
}

template <typename Integer>
Integer PolicyModel::number(std::string_view key, Integer defaultValue) const {
    return numberOf<Integer>(text(key, "")).value_or(defaultValue);
}

void PolicyModel::classify() {
    const std::string version = text("ro.build.version.ota", " ");
    const std::string confidential = text("ro.version.confidential", "false");
    const bool panic = isTrue(kPanic);
    const bool release = isTrue("ro.build.release_type");
    const bool pre = version.find("PRE") != std::string::npos || isTrue("ro.jovix.dailyota");
    const bool market = !pre && confidential == "false";
    const bool captured = panic && isTrue("persist.sys.camera.lao.enable");
    const bool forced = panic && isTrue("jovix.autotest.camera.debug.forcelog");
    const bool secLog = release && (pre || captured);
    if (release) {
        releaseVer = true;
        preVer = preVer || pre;
        marketVer = marketVer || market;
        laoEnable = secLog;
        defaultLevel = pre || market || captured || forced ? 3 : defaultLevel;
    }
    lines += logLine(
            ANDROID_LOG_INFO, kPolicyTag,
            "propRelease: " + text("ro.build.release_type", "false") + ", propVersion: " + version +
                    ", propPanic: " + text(kPanic, "false") +
                    ", propLao: " + text("persist.sys.camera.lao.enable", "false") +
                    ", propForcelog: " + text("jovix.autotest.camera.debug.forcelog", "false") +
                    ", propConfidential: " + confidential + ", secLogEnable: " +
                    (secLog ? "1" : "0") + ", sDefaultLogLevel: " + std::to_string(defaultLevel));
}

uint32_t PolicyModel::allowedMode(uint32_t requested, int mask) {
    if (requested == 1) {
        return laoEnable ? 0x11 : 1;
    }
    if (!marketVer && !preVer) {
        return requested;
    }
    const bool allowed = (mask & (marketVer ? 2 : 4)) != 0;
    (marketVer ? enabledForMarket : enabledForPre) = allowed;
    lines += logLine(ANDROID_LOG_INFO, kInitTag,
                     std::string(marketVer ? "market" : "pre") +
                             " version: ulogEnable: " + (allowed ? "1" : "0"));
    return allowed ? 2 : 1;
}

uint32_t PolicyModel::cachedLevel() {
    static const std::map<int32_t, uint32_t> sLevels = {{0, 2}, {1, 1}, {2, 3}, {3, 5}, {4, 6}};
    if (defaultLevel == 0) {
        const auto found =
                sLevels.find(number<int32_t>("persist.vendor.jovix.camera.log_level", -1));
        defaultLevel = found == sLevels.end() ? 1 : found->second;
    }
    return defaultLevel;
}

uint32_t PolicyModel::levelFor(uint32_t forMode) {
    const uint32_t usual = cachedLevel();
    uint32_t chosen = usual;
    if ((forMode & 0x06) != 0) {
        const std::string type = text("ro.jovix.image.my_engineering.type", "default");
        const bool aging = type == "hightempaging" || type == "aging";
        lines += logLine(ANDROID_LOG_DEBUG, kPolicyTag, aging ? "isAgingVer:1" : "isAgingVer:0");
        if (aging) {
            lines += logLine(ANDROID_LOG_INFO, kInitTag, "aging version,set ulog level D");
            chosen = 5;
        }
    }
    if (debugLevel != 0) {
        lines += logLine(ANDROID_LOG_DEBUG, kInitTag,
                         "[JLogInit] logLevelDefault:" + std::to_string(chosen) +
                                 ", getDefaultJLogLevel:" + std::to_string(usual) +
                                 ", jlogLevel:" + std::to_string(chosen));
    }
    return chosen;
}

void PolicyModel::create(int mask) {
    if (inited++ == 0) {
        const bool jlog = (mask & 1) != 0;
        lines += logLine(ANDROID_LOG_ERROR, kInitTag, "jlog enable mask:" + std::to_string(mask));
        lines += logLine(ANDROID_LOG_INFO, kInitTag, jlog ? "jlog is enabled" : "jlog is disabled");
        const auto requested = number<int32_t>("vendor.debug.camera.jlog.mode", jlog ? 2 : 1);
        classify();
        mode = allowedMode(static_cast<uint32_t>(requested), mask);
        level = levelFor(mode);
        if (mode == 0) {
            level = 1;
        }
        const uint32_t modes[] = {0x02, 0x04, 0x10, 0x11, 0x12, 0x14};
        if (std::find(std::begin(modes), std::end(modes), mode) == std::end(modes)) {
            mode = 1;
        }
        installed = mode;
        initLevel = level;
        filter = static_cast<uint64_t>(number<int64_t>("vendor.debug.camera.jlog.filter", -1));
        lines += logLine(ANDROID_LOG_INFO, kInitTag,
                         "[JLogInit] jlogLevel:" + std::to_string(level) + " jlogMode:" +
                                 hex(mode, false) + " jlogFilter:" + hex(filter, true));
    }
    lines += logLine(ANDROID_LOG_DEBUG, kInitTag, "new JLogInitializerImpl");
}

void PolicyModel::destroy() {
    if (--inited == 0) {
        installed = 1;
    }
    lines += logLine(ANDROID_LOG_DEBUG, kInitTag, "delete JLogInitializerImpl");
}

void PolicyModel::updateLogLevel() {
    const bool panic = isTrue(kPanic);
    const int32_t enable = panic ? 1 : number<int32_t>("vendor.debug.cameralog.enable", 0);
    const bool usbMode = panic && number<int32_t>("persist.sys.log.user", -1) == 0;
    if (marketVer) {
        lines += logLine(ANDROID_LOG_DEBUG, kPolicyTag,
                         usbMode ? "bCapsuleInUsbMode:1" : "bCapsuleInUsbMode:0");
    }
    uint32_t chosen = 0;
    if (preVer) {
        chosen = enable != 0 ? 5 : cachedLevel();
    } else if (marketVer) {
        chosen = usbMode ? 5 : cachedLevel();
    } else if (enable == 1) {
        chosen = 5;
    }
    setLevel(chosen);
    lines += logLine(ANDROID_LOG_ERROR, kPolicyTag, "updateLogLevel:" + std::to_string(chosen));
}

void PolicyModel::setLevel(uint32_t newLevel) {
    level = newLevel != 0 ? newLevel : initLevel;
}

void PolicyModel::logEnter(const std::string& name, uint32_t requestNo) {
    if ((installed & 1) != 0) {
        lines += logLine(ANDROID_LOG_DEBUG, kInitTag,
                         name + " R[" + std::to_string(requestNo) + "] M[Video : 10] +");
    }
}

}  // namespace JCam::Fuzz
