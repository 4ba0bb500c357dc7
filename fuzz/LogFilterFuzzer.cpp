#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include <android/log.h>

#include "Check.h"
#include "platform/host/LogFilter.h"
#include "StderrText.h"
#include "Text.h"

// Filter words of any kind, and the rule by which a filter and the minimum priority decide
// together.

namespace JCam::Fuzz {

namespace {

using Platform::LogFilter;

/// The filter of the process, which is made before there is any input.
constexpr char kFilterVariable[] = "ANDROID_LOG_TAGS";
constexpr char kProcessWords[] = "Quiet:S Warn:W";

/// Filter words taken by their description.
struct FilterModel {
    explicit FilterModel(std::string_view words) {
        for (const std::string_view word : tokens(words, " \t\r\n")) {
            add(word);
        }
    }

    void add(std::string_view word) {
        constexpr std::string_view kLetters = "VDIWEFS";
        const std::string_view tag = word.substr(0, word.find(':'));
        const std::string_view suffix = word.substr(tag.size());
        const size_t letter = suffix.size() == 2 ? kLetters.find(suffix[1]) : kLetters.size();
        if (tag.empty() || (!suffix.empty() && letter >= kLetters.size())) {
            const std::string shown(word.substr(0, word.find('\0')));
            reports += "ANDROID_LOG_TAGS: '" + shown + "' ignored\n";
            return;
        }
        const int priority = suffix.empty() ? 2 : 2 + static_cast<int>(letter);
        priorities[tag] = priority;
        allPriorities.push_back(priority);
    }

    [[nodiscard]] int priorityOf(std::string_view tag) const {
        auto found = priorities.find(tag);
        if (found == priorities.end()) {
            found = priorities.find("*");
        }
        return found == priorities.end() ? LogFilter::kUnset : found->second;
    }

    std::map<std::string_view, int> priorities;
    /// Those of words that others on the same tag have overruled, too.
    std::vector<int> allPriorities;
    std::string reports;
};

/// The reports on stderr without their reasons, for which no words are promised.
std::string takeReports() {
    constexpr std::string_view kEnd = "' ignored";
    std::string reports = takeStderrText();
    for (size_t end = 0; (end = reports.find(kEnd, end)) < reports.size(); ++end) {
        end += kEnd.size();
        reports.erase(end, reports.find('\n', end) - end);
    }
    return reports;
}

void checkLowest(const LogFilter& filter, const FilterModel& model) {
    const std::vector<int>& all = model.allPriorities;
    if (all.empty()) {
        check(filter.lowestPriority() == LogFilter::kUnset, "no word, no lowest priority");
        return;
    }
    check(filter.lowestPriority() >= *std::min_element(all.begin(), all.end()),
          "a word has the lowest priority");
    for (const auto& [tag, priority] : model.priorities) {
        check(filter.lowestPriority() <= priority, "no tag has a lower priority");
    }
}

void checkWords(std::string_view words) {
    const FilterModel model(words);
    const LogFilter filter(words);
    checkEqual(takeReports(), model.reports, "reports");
    check(filter.defaultPriority() == model.priorityOf("*"), "the priority of the star");
    checkLowest(filter, model);
    check(filter.priorityOf("") == model.priorityOf(""), "an empty tag");
    for (const std::string_view word : tokens(words, " \t\r\n")) {
        const std::string_view tag = word.substr(0, word.find(':'));
        for (const std::string_view each : {word, tag, tag.substr(0, tag.size() / 2)}) {
            check(filter.priorityOf(each) == model.priorityOf(each), "the priority of a tag");
        }
    }
}

/// The lower of the tag's priority and the minimum, or the one that is set, or the caller's
/// default.
int thresholdOf(const char* tag, int minimum, int defaultPriority) {
    static const FilterModel sModel(kProcessWords);
    const int own = sModel.priorityOf(tag);
    if (own != LogFilter::kUnset && minimum != ANDROID_LOG_DEFAULT) {
        return std::min(own, minimum);
    }
    if (own != LogFilter::kUnset) {
        return own;
    }
    return minimum != ANDROID_LOG_DEFAULT ? minimum : defaultPriority;
}

void checkLoggable(const std::string& tag, int minimum, int defaultPriority) {
    __android_log_set_minimum_priority(minimum);
    check(__android_log_get_minimum_priority() == minimum, "the minimum stays");
    for (const char* each : {"Quiet", "Warn", tag.c_str()}) {
        const int threshold = thresholdOf(each, minimum, defaultPriority);
        for (int priority = -1; priority <= 9; ++priority) {
            check((__android_log_is_loggable(priority, each, defaultPriority) != 0) ==
                          (priority >= threshold),
                  "what is loggable");
        }
    }
}

}  // namespace

}  // namespace JCam::Fuzz

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** argv) {
    using JCam::Fuzz::kFilterVariable;
    using JCam::Fuzz::kProcessWords;
    const char* words = getenv(kFilterVariable);
    if (words == nullptr || strcmp(words, kProcessWords) != 0) {
        setenv(kFilterVariable, kProcessWords, 1);
        execv("/proc/self/exe", *argv);
        JCam::Fuzz::check(false, "execv");
    }
    return 0;
}

/// The minimum priority, the caller's default, and the words.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) {
        return 0;
    }
    const std::string_view words(reinterpret_cast<const char*>(data + 2), size - 2);
    JCam::Fuzz::checkWords(words);
    const std::string tag(words.substr(0, words.find_first_of(" :")));
    JCam::Fuzz::checkLoggable(tag, static_cast<int8_t>(data[0]), static_cast<int8_t>(data[1]));
    return 0;
}
