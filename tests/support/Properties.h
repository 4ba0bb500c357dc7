#pragma once

#include <initializer_list>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <cutils/properties.h>

namespace JCam::Support {

/// System properties set for a scope; at its end they are empty, which reads like absent.
class Properties {
  public:
    Properties(std::initializer_list<std::pair<const char*, std::string>> values = {}) {
        for (const auto& [key, value] : values) {
            set(key, value);
        }
    }
    ~Properties() {
        for (const std::string& key : mKeys) {
            property_set(key.c_str(), "");
        }
    }
    Properties(const Properties&) = delete;
    Properties& operator=(const Properties&) = delete;

    void set(const std::string& key, const std::string& value) {
        if (property_set(key.c_str(), value.c_str()) != 0) {
            throw std::invalid_argument("property " + key);
        }
        mKeys.push_back(key);
    }

  private:
    std::vector<std::string> mKeys;
};

}  // namespace JCam::Support
