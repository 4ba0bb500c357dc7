#include "jlog/JLogInitializerImpl.h"

#include <cstring>
#include <new>
#include <string_view>

#include <android/log.h>
#include <cutils/properties.h>

#include "jlog/DefaultJLogger.h"
#include "jlog/file/FileAloneJLogger.h"
#include "jlog/file/FileMergeJLogger.h"
#include "jlog/JLogInitializer.h"
#include "jlog/LogTag.h"
#include "jlog/MultiJLogger.h"
#include "jlog/TraceJLogger.h"

namespace JCam::Utils::JLog {

// Instantiated in MultiJLogger.cpp alone: of two vtable copies the linker might keep a hidden one.
extern template class MultiJLogger<DefaultJLogger, TraceJLogger>;
extern template class MultiJLogger<File::FileMergeJLogger, TraceJLogger>;
extern template class MultiJLogger<File::FileAloneJLogger, TraceJLogger>;

namespace {

using std::memory_order_relaxed;

constexpr char kPolicyTag[] = "JLogInit";

constexpr char kPanicProperty[] = "persist.sys.assert.panic";

/// A string property, read when constructed.
class PropertyText {
  public:
    PropertyText(const char* key, const char* defaultValue) {
        property_get(key, mValue, defaultValue);
    }
    [[nodiscard]] const char* text() const { return mValue; }
    [[nodiscard]] bool is(std::string_view value) const { return value == mValue; }
    [[nodiscard]] bool isTrue() const { return is("true"); }
    [[nodiscard]] bool isFalse() const { return is("false"); }

  private:
    char mValue[128] = {};
    static_assert(sizeof(mValue) >= PROPERTY_VALUE_MAX);
};

/// The installed logger, owned, if its initializer was destroyed before others. Not a smart
/// pointer: at exit an installed logger must not be destroyed under the threads that use it.
JLogger* sOrphanedLogger = nullptr;

bool isPanicEnabled() {
    return PropertyText(kPanicProperty, "false").isTrue();
}

JLogLevel levelOfProperty(int32_t value) {
    constexpr JLogLevel kLevels[] = {LEVEL_WARN, LEVEL_ERROR, LEVEL_INFO, LEVEL_DEBUG,
                                     LEVEL_VERBOSE};
    constexpr size_t kCount = sizeof(kLevels) / sizeof(kLevels[0]);
    const auto index = static_cast<uint32_t>(value);
    return index < kCount ? kLevels[index] : LEVEL_ERROR;
}

template <typename Logger>
std::unique_ptr<JLogger> create() {
    return std::unique_ptr<JLogger>(new (std::nothrow) Logger);
}

/// The back end of `mode`, or null where that is the Android log.
std::unique_ptr<JLogger> createLogger(uint32_t mode) {
    switch (mode) {
        case MODE_FILE_MERGE:
            return create<File::FileMergeJLogger>();
        case MODE_FILE_ALONE:
            return create<File::FileAloneJLogger>();
        case MODE_TRACE:
            return create<TraceJLogger>();
        case MODE_DEFAULT | MODE_TRACE:
            return create<MultiJLogger<DefaultJLogger, TraceJLogger>>();
        case MODE_FILE_MERGE | MODE_TRACE:
            return create<MultiJLogger<File::FileMergeJLogger, TraceJLogger>>();
        case MODE_FILE_ALONE | MODE_TRACE:
            return create<MultiJLogger<File::FileAloneJLogger, TraceJLogger>>();
        default:
            return nullptr;
    }
}

}  // namespace

int32_t JLogInitializerImpl::sInited = 0;
constinit std::atomic<uint32_t> JLogInitializerImpl::sDefaultLogLevel{0};
constinit std::atomic<bool> JLogInitializerImpl::sReleaseVer{false};
constinit std::atomic<bool> JLogInitializerImpl::sPreVer{false};
constinit std::atomic<bool> JLogInitializerImpl::sMarketVer{false};
constinit std::atomic<bool> JLogInitializerImpl::sLaoEnable{false};
constinit std::atomic<bool> JLogInitializerImpl::sJlogEnable4Market{false};
constinit std::atomic<bool> JLogInitializerImpl::sJlogEnable4Pre{false};
constinit std::atomic<bool> JLogInitializerImpl::sAgingVer{false};

JLogInitializerImpl::JLogInitializerImpl(int mask) {
    if (sInited++ > 0) {
        return;
    }
    __android_log_print(ANDROID_LOG_ERROR, kLogTag, "jlog enable mask:%d", mask);
    uint32_t mode = requestedMode(mask);
    camLogPolicy();
    mode = adjustModeToBuild(mode, mask);
    install(mode, chooseLevel(mode));
}

JLogInitializerImpl::~JLogInitializerImpl() {
    if (mLogger == nullptr) {
        return;
    }
    if (sInited > 0) {
        sOrphanedLogger = mLogger.release();
    }
}

void JLogInitializerImpl::release() {
    if (--sInited > 0) {
        return;
    }
    JLogger::getLogger()->onUninit();
    // Release, like every store of the pointer: see JLogger::getLogger().
    JLogger::sJLogger.store(getDefaultJLogger(), std::memory_order_release);
    delete sOrphanedLogger;
    sOrphanedLogger = nullptr;
}

uint32_t JLogInitializerImpl::requestedMode(int mask) {
    const bool enabled = (mask & ENABLE_JLOG) != 0;
    const int32_t mode =
            property_get_int32("vendor.debug.camera.jlog.mode",
                               enabled ? int32_t{MODE_FILE_MERGE} : int32_t{MODE_DEFAULT});
    __android_log_print(ANDROID_LOG_INFO, kLogTag,
                        enabled ? "jlog is enabled" : "jlog is disabled");
    return static_cast<uint32_t>(mode);
}

uint32_t JLogInitializerImpl::adjustModeToBuild(uint32_t mode, int mask) {
    if (mode == MODE_DEFAULT) {
        return sLaoEnable.load(memory_order_relaxed) ? MODE_DEFAULT | MODE_TRACE : mode;
    }
    if (sMarketVer.load(memory_order_relaxed)) {
        const bool ulog = (mask & ENABLE_ULOG_MARKET) != 0;
        sJlogEnable4Market.store(ulog, memory_order_relaxed);
        __android_log_print(ANDROID_LOG_INFO, kLogTag, "market version: ulogEnable: %d", ulog);
        return ulog ? MODE_FILE_MERGE : MODE_DEFAULT;
    }
    if (sPreVer.load(memory_order_relaxed)) {
        const bool ulog = (mask & ENABLE_ULOG_PRE) != 0;
        sJlogEnable4Pre.store(ulog, memory_order_relaxed);
        __android_log_print(ANDROID_LOG_INFO, kLogTag, "pre version: ulogEnable: %d", ulog);
        return ulog ? MODE_FILE_MERGE : MODE_DEFAULT;
    }
    return mode;
}

uint32_t JLogInitializerImpl::chooseLevel(uint32_t mode) {
    auto level = static_cast<int32_t>(getDefaultJLogLevel());
    if ((mode & (MODE_FILE_MERGE | MODE_FILE_ALONE)) != 0 && isAgingVer()) {
        __android_log_print(ANDROID_LOG_INFO, kLogTag, "aging version,set ulog level D");
        level = LEVEL_DEBUG;
    }
    const int32_t jlogLevel = level > 1 ? level : 1;
    if (JLogger::sDebugLevel.load(memory_order_relaxed) != 0) {
        __android_log_print(ANDROID_LOG_DEBUG, kLogTag,
                            "[JLogInit] logLevelDefault:%d, getDefaultJLogLevel:%d, jlogLevel:%d",
                            level, static_cast<int32_t>(getDefaultJLogLevel()), jlogLevel);
    }
    return static_cast<uint32_t>(jlogLevel);
}

void JLogInitializerImpl::install(uint32_t mode, uint32_t level) {
    const auto filter =
            static_cast<uint64_t>(property_get_int64("vendor.debug.camera.jlog.filter", -1));
    mLogger = createLogger(mode);
    if (mLogger == nullptr) {
        // Also without memory for the logger: the Android log needs none.
        level = mode == 0 ? uint32_t{LEVEL_ERROR} : level;
        mode = MODE_DEFAULT;
    }
    JLogger* logger = mLogger != nullptr ? mLogger.get() : getDefaultJLogger();
    // Release: publishes the logger's construction to the acquire in JLogger::getLogger().
    JLogger::sJLogger.store(logger, std::memory_order_release);
    JLogger::sInitJlogLevel.store(level, memory_order_relaxed);
    JLogger::sLevel.store(level, memory_order_relaxed);
    JLogger::sMode.store(mode, memory_order_relaxed);
    JLogger::sFilter.store(filter, memory_order_relaxed);
    // Call sites see the new state before the logger starts its threads.
    std::atomic_thread_fence(std::memory_order_seq_cst);
    logger->onInit();
    __android_log_print(ANDROID_LOG_INFO, kLogTag,
                        "[JLogInit] jlogLevel:%d jlogMode:0x%x jlogFilter:0x%lX",
                        static_cast<int32_t>(level), mode, static_cast<unsigned long>(filter));
    std::atomic_thread_fence(std::memory_order_seq_cst);
    initForJLogInit(JLogInitParam{});
}

void JLogInitializerImpl::camLogPolicy() {
    const PropertyText releaseType("ro.build.release_type", "false");
    const PropertyText otaVersion("ro.build.version.ota", " ");
    const PropertyText panic(kPanicProperty, "false");
    const PropertyText lao("persist.sys.camera.lao.enable", "false");
    const PropertyText forceLog("jovix.autotest.camera.debug.forcelog", "false");
    const PropertyText confidential("ro.version.confidential", "false");
    const PropertyText dailyOta("ro.jovix.dailyota", "false");

    bool secLogEnable = false;
    if (releaseType.isTrue()) {
        if (strstr(otaVersion.text(), "PRE") != nullptr || dailyOta.isTrue()) {
            sPreVer.store(true, memory_order_relaxed);
            sDefaultLogLevel.store(LEVEL_INFO, memory_order_relaxed);
            secLogEnable = true;
        } else if (confidential.isFalse()) {
            sMarketVer.store(true, memory_order_relaxed);
            sDefaultLogLevel.store(LEVEL_INFO, memory_order_relaxed);
        }
        if (lao.isTrue() && panic.isTrue()) {
            sDefaultLogLevel.store(LEVEL_INFO, memory_order_relaxed);
            secLogEnable = true;
        }
        if (forceLog.isTrue() && panic.isTrue()) {
            sDefaultLogLevel.store(LEVEL_INFO, memory_order_relaxed);
        }
        sLaoEnable.store(secLogEnable, memory_order_relaxed);
        sReleaseVer.store(true, memory_order_relaxed);
    }
    __android_log_print(ANDROID_LOG_INFO, kPolicyTag,
                        "propRelease: %s, propVersion: %s, propPanic: %s, propLao: %s, "
                        "propForcelog: %s, propConfidential: %s, secLogEnable: %d, "
                        "sDefaultLogLevel: %d",
                        releaseType.text(), otaVersion.text(), panic.text(), lao.text(),
                        forceLog.text(), confidential.text(), secLogEnable,
                        static_cast<int32_t>(sDefaultLogLevel.load(memory_order_relaxed)));
}

uint32_t JLogInitializerImpl::getDefaultJLogLevel() {
    uint32_t level = sDefaultLogLevel.load(memory_order_relaxed);
    if (level == 0) {
        level = levelOfProperty(property_get_int32("persist.vendor.jovix.camera.log_level", -1));
        sDefaultLogLevel.store(level, memory_order_relaxed);
    }
    return level;
}

bool JLogInitializerImpl::isAgingVer() {
    const PropertyText type("ro.jovix.image.my_engineering.type", "default");
    const bool aging = type.is("hightempaging") || type.is("aging");
    __android_log_print(ANDROID_LOG_DEBUG, kPolicyTag, "isAgingVer:%d", aging);
    return aging;
}

bool JLogInitializerImpl::isCapsuleInUsbMode() {
    const bool panic = isPanicEnabled();
    const int32_t user = property_get_int32("persist.sys.log.user", -1);
    const bool usbMode = user == 0 && panic;
    __android_log_print(ANDROID_LOG_DEBUG, kPolicyTag, "bCapsuleInUsbMode:%d", usbMode);
    return usbMode;
}

void JLogInitializerImpl::updateLogLevel() {
    int32_t enable = property_get_int32("vendor.debug.cameralog.enable", 0);
    if (isPanicEnabled()) {
        enable = 1;
    }
    uint32_t level = enable == 1 ? uint32_t{LEVEL_DEBUG} : 0;
    if (sMarketVer.load(memory_order_relaxed)) {
        level = isCapsuleInUsbMode() ? uint32_t{LEVEL_DEBUG} : getDefaultJLogLevel();
    }
    if (sPreVer.load(memory_order_relaxed)) {
        level = enable != 0 ? uint32_t{LEVEL_DEBUG} : getDefaultJLogLevel();
    }
    JLogger::setLevel(level);
    __android_log_print(ANDROID_LOG_ERROR, kPolicyTag, "updateLogLevel:%d",
                        static_cast<int32_t>(level));
}

void JLogInitializerImpl::setCamLaoEnable(bool enable) {
    sLaoEnable.store(enable, memory_order_relaxed);
}

void JLogInitializerImpl::setIsReleaseVer(bool release) {
    sReleaseVer.store(release, memory_order_relaxed);
}

void JLogInitializerImpl::initForJLogInit(const JLogInitParam& /*param*/) {}

}  // namespace JCam::Utils::JLog
