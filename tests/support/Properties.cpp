#include "support/Properties.h"

#include <stdexcept>

#include <cutils/properties.h>

namespace JCam::Support {

Properties::Properties(std::initializer_list<std::pair<const char*, std::string>> values) {
    for (const auto& [key, value] : values) {
        set(key, value);
    }
}

Properties::~Properties() {
    for (const std::string& key : mKeys) {
        property_set(key.c_str(), "");
    }
}

void Properties::set(const std::string& key, const std::string& value) {
    if (property_set(key.c_str(), value.c_str()) != 0) {
        throw std::invalid_argument("property " + key);
    }
    mKeys.push_back(key);
}

}  // namespace JCam::Support
