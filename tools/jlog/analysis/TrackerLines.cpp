#include "tools/jlog/analysis/TrackerLines.h"

#include <cstring>
#include <string>

#include <fmt/format.h>

#include "jlog/track/CamHalFbConf.h"
#include "reader/Text.h"

namespace JCam::Tool {

namespace {

using Reader::take;
using Reader::takeNumber;
namespace Track = Utils::JLog::Track;

/// Takes `prefix` and the number behind it.
template <typename T>
bool takeAfter(std::string_view& text, std::string_view prefix, T& number, int base = 10) {
    std::string_view rest = text;
    if (!take(rest, prefix) || !takeNumber(rest, number, base)) {
        return false;
    }
    text = rest;
    return true;
}

/// What stands in front of `end`, which is taken, too.
bool takeUntil(std::string_view& text, std::string_view end, std::string_view& value) {
    const size_t at = text.find(end);
    if (at == std::string_view::npos) {
        return false;
    }
    value = text.substr(0, at);
    text.remove_prefix(at + end.size());
    return true;
}

/// "NULL" stands for a caller that passed none.
std::string_view detailOf(std::string_view text) {
    return text == "NULL" ? std::string_view() : text;
}

/// "EXP_HARDWARE:NULL$$EventField@@EXCEP_PROBE$$FieldData@@0x10025005$$..." up to the code.
bool takePayloadHead(std::string_view& text, uint32_t& code) {
    std::string_view ignored;
    return takeUntil(text, "$$FieldData@@0x", ignored) && takeNumber(text, code, 16);
}

}  // namespace

void TrackerLines::add(const LogcatLine& line) {
    mLine = &line;
    mThread = &mThreads[{line.pid, line.tid}];
    mProcess = &mProcesses[line.pid];
    if (addCapture(line.text) || addFeedback(line.text) || addStats(line.text) ||
        addOther(line.text)) {
        return;
    }
    // All lines of one text have one stamp.
    if ((mThread->stage == Stage::PAYLOAD || mThread->stage == Stage::STATS) &&
        line.wall == mThread->payloadWall) {
        std::string& detail = mExceptions[mThread->exception].detail;
        detail.append("\n").append(line.text);
    }
}

CameraException& TrackerLines::begin(Stage stage, ExceptionKind kind, uint32_t code) {
    *mThread = {stage, mExceptions.size(), mLine->wall};
    CameraException& exception = mExceptions.emplace_back();
    exception.kind = kind;
    exception.code = code;
    exception.wall = mLine->wall;
    exception.pid = mLine->pid;
    exception.tid = mLine->tid;
    exception.camera = mProcess->camera;
    exception.mode = mProcess->mode;
    return exception;
}

CameraException* TrackerLines::at(Stage stage) {
    return mThread->stage == stage ? &mExceptions[mThread->exception] : nullptr;
}

void TrackerLines::raise(uint32_t code) {
    CameraException* exception = at(Stage::KEPT);
    if (exception == nullptr || exception->code != code) {
        exception = &begin(Stage::RAISED, ExceptionKind::REPORTED, code);
    }
    mThread->stage = Stage::RAISED;
    // The tracker says nothing more if it is so.
    exception->collector = "took it";
}

void TrackerLines::save(uint32_t code) {
    const CameraException* const exception = at(Stage::RAISED);
    if (exception == nullptr || exception->kind != ExceptionKind::REPORTED ||
        exception->code != code) {
        begin(Stage::SAVED, ExceptionKind::REPORTED, code);
    }
    mThread->stage = Stage::SAVED;
}

void TrackerLines::tellNode(std::string_view payload) {
    uint32_t code = 0;
    std::string_view package;
    int camera = 0;
    uint32_t mode = 0;
    if (!takePayloadHead(payload, code) || !take(payload, "$$pkgName@@") ||
        !takeUntil(payload, "$$camID@@", package) || !takeNumber(payload, camera) ||
        !takeAfter(payload, "$$operationMode@@0x", mode, 16) ||
        !take(payload, "$$detailData@@otherData = ")) {
        return;
    }
    CameraException* exception = at(Stage::SAVED);
    if (exception == nullptr || exception->code != code) {
        exception = &begin(Stage::PAYLOAD, ExceptionKind::REPORTED, code);
    }
    mThread->stage = Stage::PAYLOAD;
    mThread->payloadWall = mLine->wall;
    exception->camera = camera;
    exception->mode = mode;
    exception->package = package;
    exception->detail = detailOf(payload);
    exception->node = "payload written";  // nothing more is said if it is so
}

void TrackerLines::answerSensorProbe(std::string_view payload) {
    uint32_t code = 0;
    if (!takePayloadHead(payload, code) || !take(payload, "$$detailData@@")) {
        return;
    }
    CameraException* exception = at(Stage::NAMING);
    if (exception == nullptr) {
        exception = &begin(Stage::PAYLOAD, ExceptionKind::SENSOR_PROBE, code);
    }
    mThread->stage = Stage::PAYLOAD;
    mThread->payloadWall = mLine->wall;
    exception->detail = payload;
    exception->node = "payload written";
}

void TrackerLines::reportDarkScreen(std::string_view payload) {
    uint32_t atom = 0;
    std::string_view package;
    uint32_t mode = 0;
    int camera = 0;
    if (!takeAfter(payload, "exceptionId:", atom) || !take(payload, ",pkgName:") ||
        !takeUntil(payload, ",captureMode:0x", package) || !takeNumber(payload, mode, 16) ||
        !takeAfter(payload, ",cameraID:", camera) || !take(payload, ",detailData:")) {
        return;
    }
    CameraException& exception = begin(Stage::STATS, ExceptionKind::DARK_SCREEN, atom);
    exception.camera = camera;
    exception.mode = mode;
    exception.package = package;
    exception.detail = detailOf(payload);
    exception.stats = "atom sent";  // nothing more is said if it is so
}

void TrackerLines::holdBack() {
    CameraException* exception = at(Stage::SAVED);
    if (exception == nullptr) {
        exception = &begin(Stage::NONE, ExceptionKind::REPORTED, 0);
    }
    mThread->stage = Stage::NONE;
    const bool isUnknown = exception->code != 0 &&
                           Track::findCamHalFbRow(static_cast<int32_t>(exception->code)) < 0;
    exception->node = isUnknown ? "not told, no row in the table" : "held back, 30 s";
}

void TrackerLines::failToOpenNode(int error) {
    CameraException* exception = at(Stage::PAYLOAD);
    if (exception == nullptr || exception->kind != ExceptionKind::REPORTED) {
        exception = &begin(Stage::NONE, ExceptionKind::SENSOR_PROBE,
                           static_cast<uint32_t>(Track::kProbeFailureRow.errCode));
    }
    mThread->stage = Stage::NONE;
    exception->node = fmt::format("cannot be opened: {}", std::strerror(error));
}

bool TrackerLines::addCapture(std::string_view text) {
    uint32_t code = 0;
    if (takeAfter(text, "jlc raise exception exceptionId = 0x", code, 16)) {
        raise(code);
    } else if (takeAfter(text, "EXCEPTION_ERR_CODE_SAVE code = 0x", code, 16)) {
        save(code);
    } else if (takeAfter(text, "Persistent EXCEPTION_ERR_CODE_SAVE code = 0x", code, 16)) {
        begin(Stage::KEPT, ExceptionKind::PERSISTENT, code);
    } else if (takeAfter(text, "kernel excption error code 0x", code, 16) ||
               takeAfter(text, "hal excption error code 0x", code, 16)) {
        if (code != 0) {
            begin(Stage::NONE, ExceptionKind::LEFT_BEHIND, code).detail =
                    mLine->text.starts_with('k') ? "left by the kernel"
                                                 : "left by the camera stack";
        }
    } else if (text.starts_with("input params invaild") || text.starts_with("input module_id:")) {
        mRefusedCalls++;
    } else {
        return false;
    }
    return true;
}

bool TrackerLines::addFeedback(std::string_view text) {
    int number = 0;
    if (text.starts_with("jlc_raise_exception failed")) {
        if (CameraException* const exception = at(Stage::RAISED)) {
            exception->collector = "failed";
        }
    } else if (text.starts_with("exception id in not camera type")) {
        if (CameraException* const exception = at(Stage::RAISED)) {
            exception->collector = "not asked, no camera type";
        }
    } else if (text.starts_with("skip exp feedback, ")) {
        holdBack();
    } else if (take(text, "final payload = ")) {
        tellNode(text);
    } else if (takeAfter(text, "fd err = ", number)) {
        failToOpenNode(number);
    } else if (take(text, "/proc/cam_kern_fb took ")) {
        if (CameraException* const exception = at(Stage::PAYLOAD)) {
            exception->node = fmt::format("took {}", text);
            mThread->stage = Stage::NONE;
        }
    } else if (take(text, "cannot read /proc/cam_kern_fb, ")) {
        begin(Stage::NAMING, ExceptionKind::SENSOR_PROBE,
              static_cast<uint32_t>(Track::kProbeFailureRow.errCode))
                .node = fmt::format("cannot be read, {}", text);
    } else if (text.starts_with("revCount = ")) {
        if (at(Stage::NAMING) == nullptr) {
            begin(Stage::NAMING, ExceptionKind::SENSOR_PROBE,
                  static_cast<uint32_t>(Track::kProbeFailureRow.errCode))
                    .node = "has no name";
        }
    } else {
        return false;
    }
    return true;
}

bool TrackerLines::addStats(std::string_view text) {
    if (text.starts_with("payload = exceptionId:")) {
        text.remove_prefix(sizeof("payload = ") - 1);
        reportDarkScreen(text);
    } else if (take(text, "payload = ")) {
        answerSensorProbe(text);
    } else if (text.starts_with("Stats service is not registered.")) {
        if (CameraException* const exception = at(Stage::STATS)) {
            exception->stats = "service not registered";
        }
    } else if (text.starts_with("Unable to get Stats service!")) {
        CameraException* const exception = at(Stage::STATS);
        if (exception != nullptr && exception->stats == "atom sent") {
            exception->stats = "service not running";
        }
    } else if (text.starts_with("Unable to send dark screen info to Stats service")) {
        if (CameraException* const exception = at(Stage::STATS)) {
            exception->stats = "service refused it";
        }
    } else {
        return false;
    }
    return true;
}

bool TrackerLines::addOther(std::string_view text) {
    int camera = 0;
    uint32_t mode = 0;
    if (takeAfter(text, "set mOpenID:", camera)) {
        if (takeAfter(text, " mOpMode:0x", mode, 16)) {
            *mProcess = {camera, mode};
        }
        return true;
    }
    if (text.starts_with("EventTrackJLogger 0x") || text.starts_with("~EventTrackJLogger 0x")) {
        *mProcess = {};
        return true;
    }
    return text.starts_with("get PackName Error! ") || text.starts_with("readExceptionErrCode") ||
           text.starts_with("kernel ") || text.starts_with("not found error code:");
}

}  // namespace JCam::Tool
