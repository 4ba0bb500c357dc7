#pragma once

#include <charconv>
#include <concepts>
#include <cstddef>
#include <string_view>

namespace CameraHost {

/// Reads a text from left to right. Each function consumes what it was asked for and returns true,
/// or consumes nothing and returns false. It never reads past the end.
class TextCursor {
  public:
    explicit TextCursor(std::string_view text) : mRest(text) {}

    [[nodiscard]] std::string_view rest() const { return mRest; }

    [[nodiscard]] bool take(std::string_view expected) {
        if (!mRest.starts_with(expected)) {
            return false;
        }
        mRest.remove_prefix(expected.size());
        return true;
    }

    /// A number without sign.
    template <std::unsigned_integral T>
    [[nodiscard]] bool takeNumber(T& number, int base = 10) {
        const auto [end, error] =
                std::from_chars(mRest.data(), mRest.data() + mRest.size(), number, base);
        if (error != std::errc{}) {
            return false;
        }
        mRest.remove_prefix(static_cast<size_t>(end - mRest.data()));
        return true;
    }

    /// A number of exactly `digits` digits that is not above `max`.
    [[nodiscard]] bool takeField(size_t digits, unsigned int max) {
        TextCursor field(mRest.substr(0, digits));
        unsigned int number = 0;
        if (mRest.size() < digits || !field.takeNumber(number) || !field.rest().empty() ||
            number > max) {
            return false;
        }
        mRest.remove_prefix(digits);
        return true;
    }

    /// One blank or more.
    [[nodiscard]] bool takeBlanks() {
        const size_t blanks = mRest.find_first_not_of(' ');
        if (mRest.empty() || blanks == 0) {
            return false;
        }
        mRest.remove_prefix(blanks == std::string_view::npos ? mRest.size() : blanks);
        return true;
    }

  private:
    std::string_view mRest;
};

}  // namespace CameraHost
