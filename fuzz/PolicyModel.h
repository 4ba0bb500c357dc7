#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace JCam::Fuzz {

/// The start-up policy once more, with its tables written down: what each step of a host must leave
/// behind in the statics of the library, and on the Android log under the tags of the policy.
struct PolicyModel {
    /// As property_set: false if the value cannot be kept.
    bool set(const std::string& key, const std::string& value);
    void create(int mask);
    void destroy();
    void updateLogLevel();
    void setLevel(uint32_t newLevel);
    /// Enters a scope of MODULE_VIDEO.
    void logEnter(const std::string& name, uint32_t requestNo);

    int inited{0};
    int debugLevel{0};
    uint32_t defaultLevel{0};
    bool releaseVer{false};
    bool preVer{false};
    bool marketVer{false};
    bool laoEnable{false};
    bool enabledForMarket{false};
    bool enabledForPre{false};

    uint32_t initLevel{0};
    uint32_t level{0};
    uint32_t mode{0};
    uint64_t filter{0};
    /// The mode whose logger is installed; 1 where that is the default one.
    uint32_t installed{1};

    /// Lines on the Android log, until someone takes them.
    std::string lines;

  private:
    [[nodiscard]] std::string text(std::string_view key, const char* defaultValue) const;
    [[nodiscard]] bool isTrue(std::string_view key) const { return text(key, "false") == "true"; }
    template <typename Integer>
    [[nodiscard]] Integer number(std::string_view key, Integer defaultValue) const;

    void classify();
    uint32_t allowedMode(uint32_t requested, int mask);
    uint32_t levelFor(uint32_t forMode);
    uint32_t cachedLevel();

    std::map<std::string, std::string, std::less<>> mProperties;
};

}  // namespace JCam::Fuzz
