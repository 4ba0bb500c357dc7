#pragma once

// Owners of binder objects and statuses: the part of the NDK's C++ wrappers that the library and
// its tests use.

#include <android/binder_ibinder.h>
#include <android/binder_status.h>

#include <utility>

namespace ndk {

/// Holds one strong reference to a binder object, or none.
class SpAIBinder {
  public:
    /// Takes over one reference from the caller.
    explicit SpAIBinder(AIBinder* binder) : mBinder(binder) {}
    ~SpAIBinder() {
        if (mBinder != nullptr) {
            AIBinder_decStrong(mBinder);
        }
    }
    SpAIBinder(const SpAIBinder&) = delete;
    SpAIBinder& operator=(const SpAIBinder&) = delete;

    [[nodiscard]] AIBinder* get() const { return mBinder; }

  private:
    AIBinder* mBinder;
};

/// Owns a status, or none. Move-only.
class [[nodiscard]] ScopedAStatus {
  public:
    explicit ScopedAStatus(AStatus* status = nullptr) : mStatus(status) {}
    ~ScopedAStatus() { AStatus_delete(mStatus); }
    ScopedAStatus(const ScopedAStatus&) = delete;
    ScopedAStatus& operator=(const ScopedAStatus&) = delete;
    ScopedAStatus(ScopedAStatus&& other) noexcept
            : mStatus(std::exchange(other.mStatus, nullptr)) {}
    ScopedAStatus& operator=(ScopedAStatus&&) = delete;

    static ScopedAStatus ok() { return ScopedAStatus(AStatus_newOk()); }
    static ScopedAStatus fromStatus(binder_status_t status) {
        return ScopedAStatus(AStatus_fromStatus(status));
    }

    /// False if there is none.
    [[nodiscard]] bool isOk() const { return mStatus != nullptr && AStatus_isOk(mStatus); }

  private:
    AStatus* mStatus;
};

}  // namespace ndk
