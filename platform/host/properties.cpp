#include <cutils/properties.h>

#include <unistd.h>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <map>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <utility>

#include "ErrnoKeeper.h"
#include "PropertyFile.h"

using JCam::Platform::ErrnoKeeper;

namespace {

constexpr size_t kMaxValueLength = PROPERTY_VALUE_MAX - 1;

size_t copyCut(std::string_view from, char* to) {
    const size_t length = from.copy(to, kMaxValueLength);
    to[length] = '\0';
    return length;
}

class PropertyStore {
  public:
    /// Copies the value, cut to kMaxValueLength, and returns its length; 0 if there is none.
    size_t get(std::string_view key, char* value) const {
        const std::shared_lock lock(mMutex);
        const auto property = mValues.find(key);
        return copyCut(property == mValues.end() ? std::string_view() : property->second, value);
    }

    /// Unlike on a device, a "ro." property may be set again, so that one process can play several
    /// builds in turn.
    bool set(std::string key, std::string value) {
        if (key.empty() || (value.size() > kMaxValueLength && !key.starts_with("ro."))) {
            return false;
        }
        const std::unique_lock lock(mMutex);
        mValues.insert_or_assign(std::move(key), std::move(value));
        return true;
    }

  private:
    mutable std::shared_mutex mMutex;
    std::map<std::string, std::string, std::less<>> mValues;  // guarded by mMutex
};

void loadFile(const char* path, PropertyStore& store) {
    const bool complete = JCam::Platform::readPropertyFile(
            path, [&store](const std::string& key, const std::string& value) {
                return store.set(key, value);
            });
    if (!complete) {
        dprintf(STDERR_FILENO, "JCAM_PROPERTIES: cannot read %s: %s\n", path, std::strerror(errno));
    }
}

PropertyStore* makeStore() {
    const ErrnoKeeper errnoKeeper;
    auto* store = new PropertyStore;
    const char* path = std::getenv("JCAM_PROPERTIES");
    if (path != nullptr && *path != '\0') {
        loadFile(path, *store);
    }
    return store;
}

/// Created on first use, because another library's constructor may read a property before those of
/// this one run. Never destroyed, because destructors read properties too.
PropertyStore& processStore() {
    static PropertyStore* const sStore = makeStore();
    return *sStore;
}

/// Reads the file when the library is loaded, so that its errors show at once and a later setenv
/// has no effect.
__attribute__((constructor)) void loadStore() {
    processStore();
}

template <typename Integer>
Integer getInteger(const char* key, Integer defaultValue) {
    char value[PROPERTY_VALUE_MAX];
    property_get(key, value, nullptr);

    const ErrnoKeeper errnoKeeper;
    errno = 0;
    char* end = nullptr;
    const intmax_t number = std::strtoimax(value, &end, 0);
    // Anything may follow the number.
    const bool isNumber = end != value && errno != ERANGE && std::in_range<Integer>(number);
    return isNumber ? static_cast<Integer>(number) : defaultValue;
}

}  // namespace

int property_get(const char* key, char* value, const char* default_value) {
    size_t length = processStore().get(key == nullptr ? "" : key, value);
    if (length == 0 && default_value != nullptr) {
        length = copyCut(default_value, value);
    }
    return static_cast<int>(length);
}

int32_t property_get_int32(const char* key, int32_t default_value) {
    return getInteger(key, default_value);
}

int64_t property_get_int64(const char* key, int64_t default_value) {
    return getInteger(key, default_value);
}

int property_set(const char* key, const char* value) {
    const bool stored = key != nullptr && processStore().set(key, value == nullptr ? "" : value);
    return stored ? 0 : -1;
}
