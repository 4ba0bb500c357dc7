#pragma once

#include <charconv>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "Workload.h"

namespace JCam::Bench {

/// Writes `text` to `out`; returns its end.
inline char* put(char* out, std::string_view text) {
    memcpy(out, text.data(), text.size());
    return out + text.size();
}

/// The fastest way to print a number below 100 with two digits: a table.
class DigitPairs {
  public:
    DigitPairs() {
        for (char tens = '0'; tens <= '9'; ++tens) {
            for (char ones = '0'; ones <= '9'; ++ones) {
                mPairs += {tens, ones};
            }
        }
    }

    char* put(char* out, uint32_t value) const {
        memcpy(out, mPairs.data() + 2UL * value, 2);
        return out + 2;
    }
    /// Six digits.
    char* putMicroseconds(char* out, uint32_t value) const {
        out = put(out, value / 10000);
        out = put(out, value / 100 % 100);
        return put(out, value % 100);
    }

  private:
    std::string mPairs;
};

/// The physical limit of a text logger: renders prepared events as lines of our layout, without
/// calls, waits or checks. Lengths, process, thread, module and date are constants.
class HandWrittenLines {
  public:
    static constexpr size_t kLongestLine = 1280;

    explicit HandWrittenLines(const Workload& work) : mText(work.text), mEvents(4096) {
        for (uint32_t i = 0; i < mEvents.size(); ++i) {
            mEvents[i] = {i * 244 % 1000000, i, !work.messagesOnly && i % 2 == 0};
        }
    }

    /// Writes the line of event `i` to `out`, which has kLongestLine bytes; returns its end.
    char* putLine(char* out, uint32_t i) const {
        const Event& event = mEvents[i % mEvents.size()];
        out = put(out, "03-15 14:25:30.");
        out = mDigits.putMicroseconds(out, event.microseconds);
        out = put(out, " 16942 17061 ");
        if (event.enter) {
            out = put(out, "D JLog    : R AppRequest:");
            out = std::to_chars(out, out + 10, event.number).ptr;
            out = put(out, " M[Preview:4] +  :processFrame #");
            out = std::to_chars(out, out + 10, i).ptr;
        } else {
            out = put(out, "I IspNode : ");
            out = put(out, mText);
        }
        *out++ = '\n';
        return out;
    }

  private:
    struct Event {
        uint32_t microseconds;
        uint32_t number;
        bool enter;
    };

    const std::string mText;
    std::vector<Event> mEvents;
    DigitPairs mDigits;
};

/// Renders `lines` lines by hand and writes them, 24 KiB at a time, on one thread.
nlohmann::json measureHandWritten(const Workload& work, unsigned int lines);

}  // namespace JCam::Bench
