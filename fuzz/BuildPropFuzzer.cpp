#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

#include <cutils/properties.h>

#include "Check.h"
#include "MemoryFile.h"
#include "platform/host/PropertyFile.h"
#include "PropertyModel.h"
#include "StderrText.h"
#include "Text.h"

// A file of properties with any content: what is taken from it, and which of its lines are
// reported, in the order of the lines. Then its values once more, with their blanks, as numbers.

namespace JCam::Fuzz {

namespace {

constexpr std::string_view kLineBlanks = " \t\r\v\f";

std::string setting(std::string_view key, std::string_view value) {
    return std::string(key).append("=").append(value).append("\n");
}

std::string report(const char* path, size_t line) {
    return std::string(path) + ":" + std::to_string(line) + ": line ignored";
}

/// What reading the line must come to; a property that is offered, and too long, is both.
std::string readLine(std::string_view line, const std::string& lineReport) {
    const std::string_view text = trimmed(line, kLineBlanks);
    const bool isText = line.find('\0') == std::string_view::npos;
    if (isText && (text.empty() || text.front() == '#')) {
        return "";
    }
    const size_t separator = text.find('=');
    const std::string_view key = trimmed(text.substr(0, separator), kLineBlanks);
    if (!isText || separator == std::string_view::npos || key.empty() ||
        key.find_first_of(kLineBlanks) != std::string_view::npos) {
        return lineReport + "\n";
    }
    const std::string_view value = trimmed(text.substr(separator + 1), kLineBlanks);
    return setting(key, value) + (isStorable(key, value) ? "" : lineReport + "\n");
}

std::string readFile(std::string_view content, const char* path) {
    std::string events;
    for (size_t number = 1; !content.empty(); ++number) {
        const std::string_view line = content.substr(0, content.find('\n'));
        events += readLine(line, report(path, number));
        content.remove_prefix(std::min(line.size() + 1, content.size()));
    }
    return events;
}

/// The reports on stderr without what is wrong with each line, for which no words are promised.
std::string takeReports() {
    std::string reports = takeStderrText();
    for (size_t fault = 0; (fault = reports.find(": line ignored: ", fault)) < reports.size();) {
        fault = reports.find(':', fault + 1);
        reports.erase(fault, reports.find('\n', fault) - fault);
    }
    return reports;
}

void checkFile(std::string_view content) {
    static const MemoryFile sFile;
    sFile.assign(content);
    std::string events;
    const bool complete = Platform::readPropertyFile(
            sFile.path(), [&events](const std::string& key, const std::string& value) {
                events += takeReports() + setting(key, value);
                return isStorable(key, value);
            });
    events += takeReports();
    check(complete, "the file is read to its end");
    checkEqual(events, readFile(content, sFile.path()), "properties and reports");
}

void checkValue(const std::string& value) {
    static const std::string sKey = "ro.fuzz";
    check(property_set(sKey.c_str(), value.c_str()) == 0, "a read-only property of any length");
    char area[PROPERTY_VALUE_MAX];
    const int length = property_get(sKey.c_str(), area, nullptr);
    const std::string_view kept = std::string_view(value).substr(0, kMaxValueChars);
    checkEqual(area, kept, "the value, cut");
    check(static_cast<size_t>(length) == kept.size(), "its length");
    // Two defaults: one of them is not the number.
    for (const int32_t fallback : {-7, 0x7FFFFFFF}) {
        check(property_get_int32(sKey.c_str(), fallback) ==
                      numberOf<int32_t>(value).value_or(fallback),
              "32 bits");
        check(property_get_int64(sKey.c_str(), fallback) ==
                      numberOf<int64_t>(value).value_or(fallback),
              "64 bits");
    }
}

/// What stands between any two "=", blanks and line ends included, is a value.
void checkValues(std::string_view content) {
    while (!content.empty()) {
        const std::string_view value = content.substr(0, content.find('='));
        checkValue(std::string(value.substr(0, value.find('\0'))));
        content.remove_prefix(std::min(value.size() + 1, content.size()));
    }
}

}  // namespace

}  // namespace JCam::Fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view content(reinterpret_cast<const char*>(data), size);
    JCam::Fuzz::checkFile(content);
    JCam::Fuzz::checkValues(content);
    return 0;
}
