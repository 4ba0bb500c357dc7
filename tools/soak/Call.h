#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "Random.h"

namespace JCam::Soak {

/// Which of the front end's functions is called.
enum class CallKind : uint8_t {
    ENTER,
    EXIT,
    DETAILS,
    FLUSH,
    SET_LEVEL,
    SET_FILTER,
    UPDATE_LEVEL,
};
inline constexpr size_t kCallKinds = 7;

/// The longest text of a call.
inline constexpr size_t kMaxTextBytes = 5000;
/// The longest name.
inline constexpr size_t kMaxNameBytes = 200;

/// Bytes that names and texts are taken from: every value, newlines, conversions of printf, UTF-8
/// whole and torn, and what looks like a line of the file itself. Constant, so any thread.
class Material {
  public:
    explicit Material(uint64_t seed);

    /// A piece without NUL.
    [[nodiscard]] std::string_view name(Random& random) const;
    /// A piece that may have NULs.
    [[nodiscard]] std::string_view text(Random& random) const;

  private:
    std::string mBytes;
    std::string mBytesWithNuls;
};

/// One call of a thread, with its arguments.
struct Call {
    CallKind kind;
    /// The test for this kind of call comes first, and if it says no, there is no call.
    bool asksFirst;
    uint32_t moduleId;
    /// The request number, the level, or the seconds to wait for a flush.
    uint32_t number;
    uint64_t filter;
    std::string_view name;
    std::string_view text;

    /// Whether it leaves a record, if it is made.
    [[nodiscard]] bool isRecord() const { return kind <= CallKind::DETAILS; }
};

/// Call `index` of the thread with this seed: always the same one, so that nobody has to keep it.
[[nodiscard]] Call makeCall(const Material& material, uint64_t threadSeed, uint64_t index);

}  // namespace JCam::Soak
