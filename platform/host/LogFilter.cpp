#include "LogFilter.h"

#include <unistd.h>
#include <cstdio>

#include <algorithm>

namespace JCam::Platform {

namespace {

constexpr std::string_view kBlanks = " \t\r\n";
constexpr std::string_view kLetters = "VDIWEFS";  // from ANDROID_LOG_VERBOSE upwards
static_assert(ANDROID_LOG_VERBOSE + kLetters.size() - 1 == ANDROID_LOG_SILENT);

/// Parses what follows the tag in a word: nothing, or a colon and a letter.
int parsePriority(std::string_view suffix) {
    if (suffix.empty()) {
        return ANDROID_LOG_VERBOSE;
    }
    if (suffix.size() != 2) {
        return LogFilter::kUnset;
    }
    const size_t index = kLetters.find(suffix[1]);
    return index == std::string_view::npos ? LogFilter::kUnset
                                           : ANDROID_LOG_VERBOSE + static_cast<int>(index);
}

void reportWord(std::string_view word) {
    dprintf(STDERR_FILENO,
            "ANDROID_LOG_TAGS: '%.*s' ignored: neither TAG nor TAG:L with L one of %s\n",
            static_cast<int>(word.size()), word.data(), kLetters.data());
}

}  // namespace

LogFilter::LogFilter(std::string_view words) {
    size_t begin = 0;
    while ((begin = words.find_first_not_of(kBlanks, begin)) != std::string_view::npos) {
        const size_t end = std::min(words.find_first_of(kBlanks, begin), words.size());
        const std::string_view word = words.substr(begin, end - begin);
        if (!addWord(word)) {
            reportWord(word);
        }
        begin = end;
    }
    mLowestPriority = findLowest();
}

bool LogFilter::addWord(std::string_view word) {
    const size_t tagLength = std::min(word.find(':'), word.size());
    const int priority = parsePriority(word.substr(tagLength));
    if (tagLength == 0 || priority == kUnset) {
        return false;
    }
    const std::string_view tag = word.substr(0, tagLength);
    if (tag == "*") {
        mDefaultPriority = priority;
    } else {
        mTags.push_back({std::string(tag), priority});
    }
    return true;
}

int LogFilter::findLowest() const {
    int lowest = mDefaultPriority;
    for (const TagPriority& entry : mTags) {
        lowest = lowest == kUnset ? entry.priority : std::min(lowest, entry.priority);
    }
    return lowest;
}

int LogFilter::priorityOf(std::string_view tag) const {
    const auto entry = std::find_if(mTags.rbegin(), mTags.rend(),
                                    [tag](const TagPriority& each) { return each.tag == tag; });
    return entry == mTags.rend() ? mDefaultPriority : entry->priority;
}

}  // namespace JCam::Platform
