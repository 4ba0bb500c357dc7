// The two files in which others leave exception codes, with any content: the Android log has that
// content in the pieces in which it is read.

#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include <android/log.h>

#include "Check.h"
#include "jlog/track/EventTrackJLogger.h"
#include "support/LogCapture.h"
#include "support/TempFolder.h"

namespace JCam::Fuzz {

using Utils::JLog::Track::EventTrackJLogger;

namespace {

const Support::TempFolder& folder() {
    static const Support::TempFolder kFolder;
    return kFolder;
}

std::string kernelFile() {
    return folder().path("hardware_exception");
}
std::string halFile() {
    return folder().path("mtkExceptionErrCode.txt");
}

/// Where the file is that the library knows by this path.
std::string placeOf(std::string_view path) {
    if (path == "/sys/class/jovix_cam/cam_event/hardware_exception") {
        return kernelFile();
    }
    return path == "data/vendor/camera_dump/mtkExceptionErrCode.txt" ? halFile()
                                                                     : std::string(path);
}

/// A piece ends with its line, at `maxChars` or where the content does, and is logged up to a NUL.
/// There are as many as the content has, but not more than `maxPieces`.
void checkPieces(const std::vector<std::string>& logged, std::string_view content, size_t maxChars,
                 size_t maxPieces) {
    for (const std::string& piece : logged) {
        const std::string_view read =
                content.substr(0, std::min(content.find('\n'), maxChars - 1) + 1);
        checkEqual(piece, read.substr(0, read.find('\0')), "a piece is what the file has");
        content.remove_prefix(read.size());
    }
    check(logged.size() == maxPieces || (logged.size() < maxPieces && content.empty()),
          "every piece is logged");
}

/// The tracker and the two files.
class Files {
  public:
    Files() { __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE); }

    void test(const std::string& kernel, const std::string& hal) {
        Support::writeFile(kernelFile(), kernel);
        const int kernelCode = readKernel(kernel);
        Support::writeFile(halFile(), hal);
        const int halCode = readHal(hal);

        Support::writeFile(halFile(), hal);
        mTracker->clearData();
        check(mTracker->readExceptionErrCode() == (kernelCode != 0 ? kernelCode : halCode),
              "the kernel's code goes first");
        checkEqual(Support::readFile(kernelFile()), kernel, "the kernel's file stays as it is");
        mLog.clear();
        check(mTracker->readExceptionErrCode() == 0 && mLog.lines().empty(),
              "only the first call reads");
    }

  private:
    int readKernel(const std::string& content) {
        mLog.clear();
        const int code = mTracker->readKernelExceptionErrCode();
        check(code == 0 || code == 0x10025001 || code == 0x10025003, "the code is a known one");
        std::vector<std::string> logged = pieces("kernel camera event ");
        // The line about the type, which follows, begins in the same way.
        logged.resize(std::min<size_t>(logged.size(), 1));
        checkPieces(logged, content, 31, 1);
        return code;
    }

    int readHal(const std::string& content) {
        mLog.clear();
        const int code = mTracker->readHalExceptionErrCode();
        const std::vector<std::string> logged = pieces("readExceptionErrCode = ");
        checkPieces(logged, content, 23, 32);
        const long first = logged.empty() ? 0 : strtol(logged[0].c_str(), nullptr, 10);
        check(code == static_cast<int>(first), "the code is the number in front");
        check(access(halFile().c_str(), F_OK) != 0, "the file is deleted");
        return code;
    }

    /// What follows `prefix` in the lines of the Android log.
    [[nodiscard]] std::vector<std::string> pieces(std::string_view prefix) const {
        std::vector<std::string> texts = mLog.texts(prefix);
        for (std::string& text : texts) {
            text.erase(0, prefix.size());
        }
        return texts;
    }

    Support::LogCapture mLog;
    EventTrackJLogger* const mTracker{EventTrackJLogger::getInstance()};
};

}  // namespace

}  // namespace JCam::Fuzz

// Visible to the library, which is another shared object.
#pragma GCC visibility push(default)

extern "C" FILE* fopen(const char* path, const char* mode) {
    using Function = FILE*(const char*, const char*);
    static auto* const sNext = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, "fopen"));
    return sNext(JCam::Fuzz::placeOf(path).c_str(), mode);
}

extern "C" int remove(const char* path) noexcept {
    return unlink(JCam::Fuzz::placeOf(path).c_str());
}

#pragma GCC visibility pop

/// A byte with the length of the kernel's file, and the two contents.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static JCam::Fuzz::Files sFiles;
    if (size > 0) {
        const std::string contents(reinterpret_cast<const char*>(data + 1), size - 1);
        const size_t kernelBytes = std::min<size_t>(data[0], contents.size());
        sFiles.test(contents.substr(0, kernelBytes), contents.substr(kernelBytes));
    }
    return 0;
}
