#include <memory>
#include <string>

#include <fmt/format.h>

#include "tools/jlog/commands/Commands.h"

namespace JCam::Tool {

int exportTo(const Logs& logs, const Selection& selection, const Options& options) {
    const std::unique_ptr<Output> out = options.outputFile == "-"
                                                ? std::make_unique<Output>()
                                                : std::make_unique<Output>(options.outputFile);
    static_cast<void>(logs);
    static_cast<void>(selection);
    out->close();
    return EXIT_FINE;
}

}  // namespace JCam::Tool
