#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>

#include <fmt/format.h>

#include "jlog/file/BoxReader.h"
#include "jlog/file/LineRenderer.h"
#include "jlog/file/TextBuffer.h"
#include "tools/jlog/commands/Commands.h"
#include "tools/jlog/export/UtcClock.h"

namespace JCam::Tool {

namespace {

namespace fs = std::filesystem;
namespace File = Utils::JLog::File;

using Descriptor = std::unique_ptr<FILE, decltype(&fclose)>;

Descriptor openBox(const fs::path& path) {
    // Asked first: to open a pipe would wait for its writer.
    if (fs::exists(path) && !fs::is_regular_file(path)) {
        throw std::runtime_error(path.string() + ": not a file");
    }
    Descriptor file(fopen(path.c_str(), "re"), &fclose);
    if (!file) {
        throw std::runtime_error(path.string() + ": " + std::strerror(errno));
    }
    return file;
}

/// Standard output, or a file that is new: the name may be that of a log, or of the box.
std::unique_ptr<Output> openOutput(const fs::path& path) {
    if (path.empty() || path == "-") {
        return std::make_unique<Output>();
    }
    if (fs::is_regular_file(path)) {
        throw std::invalid_argument("--output: " + path.string() + " is there already");
    }
    return std::make_unique<Output>(path);
}

/// Writes the records of a block. The text of one may begin in `text`, and what is left there is
/// not written yet.
void writeRecords(const char* block, File::LineRenderer& renderer, File::TextBuffer& text,
                  Output& out) {
    File::RecordWalk walk(block, block + File::kBufferBytes);
    while (renderer.renderToLimit(walk, text)) {
        // The line has the whole buffer for itself, so that it is not cut.
        out.write(text.text());
        text.holdOverDate();
        text.takeInLine();
    }
}

}  // namespace

int recover(const Options& options) {
    setTimeZone(options.timeZone);
    const fs::path& path = options.paths.front();
    const Descriptor file = openBox(path);
    File::BoxReader box(fileno(file.get()));
    if (box.isUnborn()) {
        throw std::runtime_error(path.string() + ": its process ended while it made the box");
    }
    if (box.problem() != nullptr) {
        throw std::runtime_error(path.string() + ": " + box.problem());
    }
    struct alignas(File::kCacheLineBytes) Block {
        char bytes[File::kBufferBytes];
    };
    const auto block = std::make_unique<Block>();
    File::LineRenderer renderer(box.pid());
    File::TextBuffer text;
    std::unique_ptr<Output> out;
    for (size_t i = 0; i < box.blocks(); ++i) {
        if (box.readBlock(i, block->bytes) == 0) {
            continue;
        }
        if (!out) {
            out = openOutput(options.outputFile);
            char line[256];
            box.describe(line, sizeof(line));
            out->write(line);
        }
        writeRecords(block->bytes, renderer, text, *out);
    }
    if (box.isDamaged()) {
        fmt::print(stderr, "jlog: {}: a part of it is missing, and records with it\n",
                   path.string());
    }
    if (!out) {
        fmt::print(stderr, "jlog: {}: nothing to recover, its records are in the other files\n",
                   path.string());
        return EXIT_FOUND;
    }
    out->write(text.text());
    out->close();
    return EXIT_FINE;
}

}  // namespace JCam::Tool
