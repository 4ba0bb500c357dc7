#include "PropertyFile.h"

#include <unistd.h>
#include <cstdio>

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

/// Hands the property of a line to the sink. Null, or what is wrong with the line.
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

bool readPropertyFile(std::istream& input, const char* name, const PropertySink& sink) {
    std::string line;
    for (size_t number = 1; std::getline(input, line); ++number) {
        if (const char* fault = readLine(line, sink)) {
            // The text itself is not printed: it may be long, or binary.
            dprintf(STDERR_FILENO, "%s:%zu: line ignored: %s\n", name, number, fault);
        }
    }
    return !input.bad();
}

}  // namespace JCam::Platform
