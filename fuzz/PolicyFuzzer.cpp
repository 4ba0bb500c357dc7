#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <typeinfo>
#include <vector>

#include <cutils/properties.h>

#include "Check.h"
#include "jlog/DefaultJLogger.h"
#include "jlog/file/FileAloneJLogger.h"
#include "jlog/file/FileMergeJLogger.h"
#include "jlog/JLogInitializer.h"
#include "jlog/JLogInitializerImpl.h"
#include "jlog/MultiJLogger.h"
#include "jlog/TraceJLogger.h"
#include "LogText.h"
#include "PolicyModel.h"
#include "support/Policy.h"

// A host that sets properties, creates and destroys initializers and changes the level, in any
// order: after each step the library is in the state of the model, and has logged what the model
// has.

namespace JCam::Fuzz {

namespace {

using namespace Utils::JLog;

constexpr const char* kKeys[] = {
        "vendor.debug.camera.jlog.mode",
        "vendor.debug.camera.jlog.filter",
        "persist.vendor.jovix.camera.log_level",
        "ro.build.release_type",
        "ro.build.version.ota",
        "persist.sys.assert.panic",
        "persist.sys.camera.lao.enable",
        "jovix.autotest.camera.debug.forcelog",
        "ro.version.confidential",
        "ro.jovix.dailyota",
        "ro.jovix.image.my_engineering.type",
        "persist.sys.log.user",
        "vendor.debug.cameralog.enable",
        "vendor.debug.camera.jlog.hookne",
};

constexpr std::string_view kValues[] = {
        "",           "true",
        "false",      "TRUE",
        "true ",      "aging",
        "agin",       "hightempaging",
        "PRE",        "X_PRE_1",
        "pre",        "0",
        "1",          "2",
        "3",          "4",
        "5",          "6",
        "7",          "16",
        "17",         "18",
        "20",         "0x14",
        " 021\t",     "-1",
        "0x106",      "4294967298",
        "0x80000000", "9223372036854775808",
};

/// Hands the bytes of an input out, and zeros behind them.
class Bytes {
  public:
    explicit Bytes(std::string_view bytes) : mRest(bytes) {}

    [[nodiscard]] bool isEmpty() const { return mRest.empty(); }
    uint8_t next() { return mRest.empty() ? 0 : static_cast<uint8_t>(text(1)[0]); }
    int nextSigned() {
        const int byte = next();
        return byte < 128 ? byte : byte - 256;
    }
    std::string_view text(size_t bytes) {
        const std::string_view result = mRest.substr(0, bytes);
        mRest.remove_prefix(result.size());
        return result;
    }

  private:
    std::string_view mRest;
};

/// A folder in memory for the log files.
class LogFolder {
  public:
    LogFolder() { check(mkdtemp(mPath) != nullptr, "mkdtemp"); }
    ~LogFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(mPath, ignored);
    }
    LogFolder(const LogFolder&) = delete;
    LogFolder& operator=(const LogFolder&) = delete;

    [[nodiscard]] const char* path() const { return mPath; }
    void empty() const {
        for (const auto& file : std::filesystem::directory_iterator(mPath)) {
            std::filesystem::remove(file);
        }
    }

  private:
    char mPath[32] = "/dev/shm/jlog_fuzz_XXXXXX";
};

const std::type_info& loggerType(uint32_t mode) {
    switch (mode) {
        case 0x02:
            return typeid(File::FileMergeJLogger);
        case 0x04:
            return typeid(File::FileAloneJLogger);
        case 0x10:
            return typeid(TraceJLogger);
        case 0x11:
            return typeid(MultiJLogger<DefaultJLogger, TraceJLogger>);
        case 0x12:
            return typeid(MultiJLogger<File::FileMergeJLogger, TraceJLogger>);
        case 0x14:
            return typeid(MultiJLogger<File::FileAloneJLogger, TraceJLogger>);
        default:
            return typeid(DefaultJLogger);
    }
}

/// The process as if it had just loaded the library.
void resetStatics() {
    Support::resetPolicy();
    for (const char* key : kKeys) {
        property_set(key, "");
    }
    // Unless an input wants the hook.
    property_set("vendor.debug.camera.jlog.hookne", "0");
}

void checkStatics(const PolicyModel& model) {
    using Impl = JLogInitializerImpl;
    check(Impl::sInited == model.inited, "sInited");
    check(Impl::sDefaultLogLevel == model.defaultLevel, "sDefaultLogLevel");
    check(Impl::sReleaseVer == model.releaseVer, "sReleaseVer");
    check(Impl::sPreVer == model.preVer, "sPreVer");
    check(Impl::sMarketVer == model.marketVer, "sMarketVer");
    check(Impl::sLaoEnable == model.laoEnable, "sLaoEnable");
    check(Impl::sJlogEnable4Market == model.enabledForMarket, "sJlogEnable4Market");
    check(Impl::sJlogEnable4Pre == model.enabledForPre, "sJlogEnable4Pre");
    check(!Impl::sAgingVer, "sAgingVer");
    check(JLogger::sInitJlogLevel == model.initLevel, "sInitJlogLevel");
    check(JLogger::sLevel == model.level, "sLevel");
    check(JLogger::sMode == model.mode, "sMode");
    check(JLogger::sFilter == model.filter, "sFilter");
}

/// The fuzzer's own handlers of the signals that a crash hook takes over.
class CrashHandlers {
  public:
    CrashHandlers() {
        for (size_t i = 0; i < std::size(kSignals); ++i) {
            sigaction(kSignals[i], nullptr, &mActions[i]);
        }
    }

    /// They are in place; if not, they are put back first, for the fuzzer to see that.
    void expectBack() const {
        bool areBack = true;
        for (size_t i = 0; i < std::size(kSignals); ++i) {
            struct sigaction found = {};
            sigaction(kSignals[i], &mActions[i], &found);
            areBack = areBack && found.sa_sigaction == mActions[i].sa_sigaction;
        }
        check(areBack, "the fuzzer's own handlers are back");
    }

  private:
    static constexpr int kSignals[] = {SIGABRT, SIGSEGV, SIGBUS};
    struct sigaction mActions[std::size(kSignals)] = {};
};

/// One input's host.
class Host {
  public:
    Host(Bytes bytes, LogText& log) : mBytes(bytes), mLog(log) { resetStatics(); }

    void run() {
        while (!mBytes.isEmpty()) {
            step();
            compare();
        }
        while (!mInitializers.empty()) {
            destroy();
            compare();
        }
    }

  private:
    static constexpr size_t kMaxInitializers = 4;

    void step() {
        constexpr unsigned int kSteps = 12;
        switch (mBytes.next() % kSteps) {
            case 0:
                create();
                break;
            case 1:
                destroy();
                break;
            case 2:
                mModel.updateLogLevel();
                JLogInitializer::updateLogLevel();
                break;
            case 3:
                mModel.laoEnable = (mBytes.next() & 1) != 0;
                JLogInitializer::setCamLaoEnable(mModel.laoEnable);
                break;
            case 4:
                mModel.releaseVer = (mBytes.next() & 1) != 0;
                JLogInitializer::setIsReleaseVer(mModel.releaseVer);
                break;
            case 5:
                setLevel();
                break;
            case 6:
                mModel.debugLevel = mBytes.nextSigned();
                JLogger::sDebugLevel = mModel.debugLevel;
                break;
            case 7:
                mModel.logEnter("scope", 7);
                JLogger::logEnter(MODULE_VIDEO, "scope", 7);
                break;
            default:
                setProperty();
        }
    }

    void create() {
        if (mInitializers.size() == kMaxInitializers) {
            return;
        }
        const int mask = mBytes.nextSigned();
        mModel.create(mask);
        mInitializers.push_back(std::make_unique<JLogInitializer>(mask));
        if (mInitializers.size() == 1) {
            mLogger = JLogger::getLogger();
        }
    }

    void destroy() {
        const size_t index = mBytes.next();
        if (mInitializers.empty()) {
            return;
        }
        mModel.destroy();
        mInitializers.erase(mInitializers.begin() +
                            static_cast<ptrdiff_t>(index % mInitializers.size()));
        if (mInitializers.empty()) {
            mLogger = getDefaultJLogger();
        }
    }

    void setLevel() {
        const uint32_t level = mBytes.next();
        mModel.setLevel(level);
        JLogger::setLevel(level);
    }

    void setProperty() {
        const std::string key = kKeys[mBytes.next() % std::size(kKeys)];
        // The last choice is a value of the input's own.
        const size_t choice = mBytes.next() % (std::size(kValues) + 1);
        std::string value(choice < std::size(kValues) ? kValues[choice]
                                                      : mBytes.text(mBytes.next()));
        value.resize(strnlen(value.c_str(), value.size()));
        const bool set = property_set(key.c_str(), value.c_str()) == 0;
        check(set == mModel.set(key, value), "whether the property is set");
    }

    void compare() {
        checkStatics(mModel);
        const JLogger& logger = *JLogger::getLogger();
        check(&logger == mLogger, "the logger stays while an initializer lives, and no longer");
        check((&logger == getDefaultJLogger()) == (mModel.installed == MODE_DEFAULT),
              "the default logger is in its place");
        check(typeid(logger) == loggerType(mModel.installed), "the kind of the logger");
        checkEqual(mLog.take({"JLOG", "JLogInit"}), mModel.lines, "lines");
        mModel.lines.clear();
    }

    Bytes mBytes;
    LogText& mLog;
    PolicyModel mModel;
    std::vector<std::unique_ptr<JLogInitializer>> mInitializers;
    const JLogger* mLogger = getDefaultJLogger();
};

}  // namespace

}  // namespace JCam::Fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace JCam::Fuzz;
    static LogText sLog;
    static const LogFolder sFolder;
    static const CrashHandlers sHandlers;
    property_set("vendor.debug.camera.ulog.folder", sFolder.path());
    Host host(Bytes({reinterpret_cast<const char*>(data), size}), sLog);
    host.run();
    sHandlers.expectBack();
    sFolder.empty();
    return 0;
}
