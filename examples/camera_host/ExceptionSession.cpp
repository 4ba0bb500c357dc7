#include "ExceptionSession.h"

#include <array>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <thread>
#include <type_traits>
#include <utility>

#include <aidl/android/frameworks/stats/IStats.h>
#include <cutils/properties.h>
#include <fmt/core.h>
#include <host/ServiceRegistry.h>

#include "jlog/track/EventTrackJLogger.h"

namespace CameraHost {

namespace {

using aidl::android::frameworks::stats::IStats;
using aidl::android::frameworks::stats::VendorAtom;
using JCam::Platform::ServiceRegistry;
using JCam::Utils::JLog::Track::EventTrackJLogger;

constexpr char kStatsInstance[] = "android.frameworks.stats.IStats/default";
constexpr char kPackageProperty[] = "jovix.camera.packname";
constexpr char kHalFile[] = "data/vendor/camera_dump/mtkExceptionErrCode.txt";

/// The stats service of the session.
class StatsService : public IStats {
  public:
    ndk::ScopedAStatus reportVendorAtom(const VendorAtom& atom) override {
        mAtoms.push_back(atom.atomId);
        return ndk::ScopedAStatus::ok();
    }
    std::vector<int32_t> takeAtoms() { return std::exchange(mAtoms, {}); }

  private:
    std::vector<int32_t> mAtoms;
};

/// What follows `prefix` in the first line that begins with it.
std::optional<std::string> findLine(const std::vector<std::string>& lines,
                                    std::string_view prefix) {
    for (const std::string& line : lines) {
        if (line.starts_with(prefix)) {
            return line.substr(prefix.size());
        }
    }
    return std::nullopt;
}

std::vector<uint32_t> findRaised(const std::vector<std::string>& lines) {
    constexpr std::string_view kPrefix = "exception 0x";  // of a line of the log collector
    std::vector<uint32_t> raised;
    for (const std::string& line : lines) {
        if (line.starts_with(kPrefix)) {
            raised.push_back(
                    static_cast<uint32_t>(std::stoul(line.substr(kPrefix.size()), nullptr, 16)));
        }
    }
    return raised;
}

NodeUse findNodeUse(const std::vector<std::string>& lines) {
    if (findLine(lines, "skip exp feedback").has_value()) {
        return NodeUse::HELD_BACK;
    }
    // A payload for the HAL is announced before the node is opened, a sensor's name after it is
    // read.
    const bool attempted = findLine(lines, "final payload").has_value() ||
                           findLine(lines, "fd err").has_value() ||
                           findLine(lines, "revCount").has_value();
    return attempted ? NodeUse::ATTEMPTED : NodeUse::NONE;
}

/// How far an attempt on the node came.
std::string describeNode(const std::vector<std::string>& lines) {
    const std::optional<std::string> error = findLine(lines, "fd err = ");
    if (error.has_value()) {
        return std::string("not there: ") + std::strerror(std::stoi(*error));
    }
    const std::optional<std::string> refused = findLine(lines, "/proc/cam_kern_fb ");
    if (refused.has_value()) {
        return *refused;
    }
    return findLine(lines, "revCount = 0").has_value() ? "has no name" : "payload written";
}

/// Leaves a code behind, as the vendor's camera stack may have done before.
void writeHalFile(std::string_view content) {
    std::filesystem::create_directories(std::filesystem::path(kHalFile).parent_path());
    if (!(std::ofstream(kHalFile) << content)) {
        throw std::runtime_error(std::string("cannot write ") + kHalFile);
    }
}

/// Asks until a persistent code is due.
int awaitPersistentCode(EventTrackJLogger& tracker) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    int code = 0;
    while (code == 0 && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        code = tracker.readPersistentErrCode();
    }
    return code;
}

/// Does the steps of a session, one after the other.
class Session {
  public:
    explicit Session(const SessionHost& host) : mHost(host) {
        ServiceRegistry::setDeclared(kStatsInstance, true);
        runStats(true);
    }
    ~Session() { EventTrackJLogger::releaseInstance(); }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// `call` is given the tracker, and returns the result of the step if it has one.
    template <typename Call>
    void step(std::string what, const Call& call, Reached expected = {}) {
        mHost.onStep(what);
        EventTrackJLogger& tracker = *EventTrackJLogger::getInstance();
        static_cast<void>(mHost.logcat.takeMessages());
        ExceptionStep& step = mSteps.emplace_back();
        step.what = std::move(what);
        step.expected = std::move(expected);
        if constexpr (std::is_void_v<std::invoke_result_t<Call, EventTrackJLogger&>>) {
            call(tracker);
        } else {
            step.reached.result = call(tracker);
        }
        const std::vector<std::string> lines = mHost.logcat.takeMessages();
        step.reached.raised = findRaised(lines);
        step.reached.atoms = mStats->takeAtoms();
        step.reached.node = findNodeUse(lines);
        step.reached.statsMissed = findLine(lines, "Unable to get Stats service!").has_value();
        step.node = describeNode(lines);
    }

    /// A step with a call that is made while a request is in flight.
    template <typename Call>
    void report(std::string what, const Call& call, Reached expected) {
        step(
                std::move(what),
                [&](EventTrackJLogger& tracker) { mHost.inRequest([&] { call(tracker); }); },
                std::move(expected));
    }

    void runStats(bool running) {
        ServiceRegistry::setRunning(kStatsInstance, running ? mStats : nullptr);
    }

    std::vector<ExceptionStep> takeSteps() { return std::move(mSteps); }

  private:
    const SessionHost& mHost;
    const std::shared_ptr<StatsService> mStats = ndk::SharedRefBase::make<StatsService>();
    std::vector<ExceptionStep> mSteps;
};

void reportExceptions(Session& session) {
    const auto report = [&](const char* what, int type, int subCode, const char* detail,
                            Reached expected) {
        session.report(
                fmt::format("{} ({}, {})", what, type, subCode),
                [&](EventTrackJLogger& tracker) {
                    tracker.writeExceptionErrCode(type, subCode, detail);
                },
                std::move(expected));
    };
    report("sensor probe failed", 0, 5, "imx766: i2c nack at 0x34",
           {.raised = {0x10025005}, .node = NodeUse::ATTEMPTED});
    report("no start of frame", 2, 0, "camera 0: nothing for 400 ms",
           {.raised = {0x10025200}, .node = NodeUse::ATTEMPTED});
    report("sensor probe again", 0, 5, "imx766: i2c nack at 0x34",
           {.raised = {0x10025005}, .node = NodeUse::HELD_BACK});
    report("no such exception", 8, 40, nullptr, {});
    session.report("kernel asks after the probe",
                   [](EventTrackJLogger& tracker) { tracker.sensorProbeFailedFb(); },
                   {.node = NodeUse::ATTEMPTED});
}

void keepPersistentCodes(Session& session) {
    const auto ask = [](EventTrackJLogger& tracker) { return tracker.readPersistentErrCode(); };
    session.report("two persistent codes",
                   [](EventTrackJLogger& tracker) {
                       tracker.caughtPersistentErrCode(5, 2);
                       tracker.caughtPersistentErrCode(6, 0);
                   },
                   {.raised = {0x10025502, 0x10025600}});
    session.step("ask for one", ask, {.result = 0x10025502});
    session.step("ask again at once", ask, {.result = 0});
    session.step("ask until one is due", awaitPersistentCode, {.result = 0x10025600});
}

void readLeftCodes(Session& session) {
    const auto read = [](EventTrackJLogger& tracker) { return tracker.readExceptionErrCode(); };
    session.step("read the code left in a file", read, {.result = 0x10025102});
    session.step("read it again", read, {.result = 0});
}

void reportDarkScreens(Session& session) {
    const auto report = [&](const char* what, int moduleId, Reached expected) {
        session.report(
                fmt::format("{} ({})", what, moduleId),
                [&](EventTrackJLogger& tracker) {
                    tracker.writeDarkScreenErrCode(moduleId, "luma 2 for 3 s");
                },
                std::move(expected));
    };
    report("dark screen", 1, {.atoms = {101148}});
    session.runStats(false);
    report("dark screen, service gone", 1, {.statsMissed = true});
    session.runStats(true);
    report("dark screen, bad module", 4, {});
}

}  // namespace

std::vector<ExceptionStep> runExceptionSession(const SessionHost& host) {
    std::array<char, PROPERTY_VALUE_MAX> package{};
    if (property_get(kPackageProperty, package.data(), "") == 0) {
        property_set(kPackageProperty, "com.example.camera");
    }
    writeHalFile("268587266\n");
    Session session(host);
    session.step("open camera 0 in mode 0x8001",
                 [](EventTrackJLogger& tracker) { tracker.setTrackInfo(0, 0x8001); });
    reportExceptions(session);
    keepPersistentCodes(session);
    readLeftCodes(session);
    reportDarkScreens(session);
    return session.takeSteps();
}

}  // namespace CameraHost
