#include "Recovery.h"

#include <unistd.h>

#include <system_error>
#include <thread>

#include <fmt/format.h>

#include "Crash.h"
#include "ExitStatus.h"
#include "jlog/JLogInitializer.h"
#include "LedgerBook.h"
#include "reader/LogFile.h"

namespace CameraHost {

std::vector<std::filesystem::path> listBoxes(const std::string& folder) {
    const std::string own = fmt::format("cam_jlog_{}_", getpid());
    std::vector<std::filesystem::path> boxes;
    std::error_code error;
    for (std::filesystem::directory_iterator i(folder, error), end; !error && i != end;
         i.increment(error)) {
        const std::filesystem::path& path = i->path();
        if (path.extension() == ".box" && !path.filename().string().starts_with(own)) {
            boxes.push_back(path);
        }
    }
    return boxes;
}

Recovery recoverBoxes(const Options& options, std::chrono::microseconds bound) {
    const LedgerBook ledgers(1);  // tells when, before the logger stops
    const auto begin = std::chrono::steady_clock::now().time_since_epoch();
    const ChildEnd end = runInChild(
            [&] {
                const JCam::Utils::JLog::JLogInitializer initializer(options.mask);
                while (!listBoxes(options.blackBox).empty()) {
                    std::this_thread::sleep_for(std::chrono::microseconds(200));
                }
                ledgers.mark();
                return EXIT_FINE;
            },
            bound);
    for (const JCam::Reader::LogFile& file : JCam::Reader::listLogFiles(options.folder, end.pid)) {
        std::filesystem::remove(file.path);
    }
    const bool isFine = !end.hung && end.sig == 0 && end.exitStatus == EXIT_FINE;
    return {isFine && listBoxes(options.blackBox).empty(), end.hung,
            ledgers.markedNs() - std::chrono::nanoseconds(begin).count()};
}

}  // namespace CameraHost
