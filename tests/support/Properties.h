#pragma once

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

namespace JCam::Support {

/// System properties set for a scope; at its end they are empty, which reads like absent.
class Properties {
  public:
    Properties() = default;
    Properties(std::initializer_list<std::pair<const char*, std::string>> values);
    ~Properties();
    Properties(const Properties&) = delete;
    Properties& operator=(const Properties&) = delete;

    void set(const std::string& key, const std::string& value);

  private:
    std::vector<std::string> mKeys;
};

}  // namespace JCam::Support
