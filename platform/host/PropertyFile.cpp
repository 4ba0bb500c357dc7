#include "PropertyFile.h"

#include <unistd.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include <string_view>

namespace JCam::Platform {

namespace {

constexpr std::string_view kBlanks = " \t\r\v\f";

std::string_view trim(std::string_view text) {
    const size_t begin = text.find_first_not_of(kBlanks);
    if (begin == std::string_view::npos) {
        return {};
    }
    return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

/// Passes the property of a line to the sink. Returns null, or what is wrong with the line.
const char* readLine(std::string_view line, const PropertySink& sink) {
    if (line.find('\0') != std::string_view::npos) {
        return "a NUL byte";  // a C string would end there
    }
    line = trim(line);
    if (line.empty() || line.front() == '#') {
        return nullptr;
    }
    const size_t separator = line.find('=');
    if (separator == std::string_view::npos) {
        return "no '='";
    }
    const std::string_view key = trim(line.substr(0, separator));
    if (key.empty() || key.find_first_of(kBlanks) != std::string_view::npos) {
        return "no key, or one with a blank in it";
    }
    const std::string_view value = trim(line.substr(separator + 1));
    return sink(std::string(key), std::string(value)) ? nullptr : "value too long";
}

}  // namespace

bool readPropertyFile(const char* path, const PropertySink& sink) {
    FILE* const file = std::fopen(path, "re");
    if (file == nullptr) {
        return false;
    }
    char* text = nullptr;
    size_t room = 0;
    size_t number = 1;
    // C's getline: C++ standard libraries differ on whether a folder reads as an empty file.
    for (ssize_t length = 0; (length = getline(&text, &room, file)) >= 0; ++number) {
        std::string_view line(text, static_cast<size_t>(length));
        if (line.ends_with('\n')) {
            line.remove_suffix(1);
        }
        if (const char* fault = readLine(line, sink)) {
            // Without the text, which may be long or binary.
            dprintf(STDERR_FILENO, "%s:%zu: line ignored: %s\n", path, number, fault);
        }
    }
    const int error = std::ferror(file) != 0 ? errno : 0;
    std::free(text);
    static_cast<void>(std::fclose(file));  // it was only read
    errno = error;
    return error == 0;
}

}  // namespace JCam::Platform
