#pragma once

#include <android/log.h>

#include <string>
#include <string_view>
#include <vector>

namespace JCam::Platform {

/// The filter words of ANDROID_LOG_TAGS: "TAG:L" and "TAG", separated by blanks. The tag "*" stands
/// for every tag that has no word of its own. Immutable, so reading it takes no lock.
class LogFilter {
  public:
    /// Returned for a tag that the filter does not mention.
    static constexpr int kUnset = ANDROID_LOG_UNKNOWN;

    /// Reports each malformed word on stderr and skips it.
    explicit LogFilter(std::string_view words);

    /// The lowest priority to log for `tag`, or kUnset.
    [[nodiscard]] int priorityOf(std::string_view tag) const;
    /// The priority of "*", or kUnset.
    [[nodiscard]] int defaultPriority() const { return mDefaultPriority; }
    /// The lowest priority of all words, of which only the last "*" counts; or kUnset.
    [[nodiscard]] int lowestPriority() const { return mLowestPriority; }

  private:
    struct TagPriority {
        std::string tag;
        int priority;
    };

    bool addWord(std::string_view word);
    [[nodiscard]] int findLowest() const;

    std::vector<TagPriority> mTags;  // in the order of the words; the last one of a tag counts
    int mDefaultPriority = kUnset;
    int mLowestPriority = kUnset;
};

}  // namespace JCam::Platform
