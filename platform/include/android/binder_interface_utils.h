#pragma once

// What the interfaces of binder services derive from: the part of the NDK's C++ wrappers that the
// library and its tests use.

#include <memory>
#include <utility>

#pragma GCC visibility push(default)

namespace ndk {

/// An object that only shared pointers own.
class SharedRefBase {
  public:
    SharedRefBase() = default;
    virtual ~SharedRefBase();
    SharedRefBase(const SharedRefBase&) = delete;
    SharedRefBase& operator=(const SharedRefBase&) = delete;

    template <typename T, typename... Args>
    static std::shared_ptr<T> make(Args&&... args) {
        return std::make_shared<T>(std::forward<Args>(args)...);
    }
};

class ICInterface : public SharedRefBase {
  public:
    ICInterface() = default;
    ~ICInterface() override;
};

}  // namespace ndk

#pragma GCC visibility pop
