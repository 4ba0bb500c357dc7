#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "tools/jlog/analysis/Analysis.h"

namespace JCam::Tool {

/// Finds warnings and errors that differ in their numbers.
class Complaints {
  public:
    explicit Complaints(std::vector<Complaint>& complaints) : mComplaints(complaints) {}

    void add(char level, uint32_t tag, std::string_view text, int64_t wall) {
        mKey.assign(1, level).append(std::to_string(tag)).append(1, ':');
        for (const char c : text) {
            if (c < '0' || c > '9') {
                mKey += c;
            } else if (mKey.back() != '0') {
                mKey += '0';
            }
        }
        auto found = mFound.find(mKey);
        if (found == mFound.end()) {
            // What has no pattern must not fill the memory.
            constexpr size_t kMaxPatterns = 10000;
            if (mFound.size() == kMaxPatterns) {
                return;
            }
            found = mFound.emplace(mKey, mComplaints.size()).first;
            mComplaints.push_back({level, tag, 0, std::string(text), wall});
        }
        mComplaints[found->second].count++;
    }

  private:
    std::vector<Complaint>& mComplaints;
    std::unordered_map<std::string, size_t> mFound;
    std::string mKey;  // here to keep its memory
};

}  // namespace JCam::Tool
