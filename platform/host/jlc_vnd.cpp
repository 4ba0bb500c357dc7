// The stand-in for the maker's log collector prints each record to the Android log: tag "jlc_vnd",
// priority info.

#include <jlc/jlc_exception.h>

#include <android/log.h>

#include <algorithm>
#include <cinttypes>
#include <cstdint>
#include <iterator>

namespace {

constexpr const char* kTag = "jlc_vnd";

template <typename Bytes>
bool isZero(const Bytes& bytes) {
    return std::all_of(std::begin(bytes), std::end(bytes), [](uint8_t byte) { return byte == 0; });
}

}  // namespace

int jlc_raise_exception(JlcExceptionRecord* record) {
    if (record == nullptr) {
        return -1;
    }
    const bool padded = isZero(record->zero12) && isZero(record->zero32);
    __android_log_print(ANDROID_LOG_INFO, kTag,
                        "exception 0x%" PRIx32 " at second %" PRId64 ", words %" PRIu32
                        " and %" PRIu32 ", %s",
                        record->exceptionId, record->timeSec, record->opaque24, record->opaque28,
                        padded ? "other bytes zero" : "refused: other bytes are not zero");
    return padded ? 0 : -1;
}
