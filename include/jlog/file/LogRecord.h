#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <ctime>

#include "jlog/JLogger.h"

/// \file
/// The packed records of the file logger. Records stand back to back in a buffer, each a multiple
/// of 8 bytes long and so aligned to 8:
///
///     0        4        8                       24                37 / 41
///     +--------+--------+-----------------------+-----------------+------------------+
///     |type,   | tid    | timestamp             | fixed fields of | name NUL         |
///     |size<<8 |        | seconds   nanoseconds | the record type | [message NUL]    |
///     +--------+--------+-----------------------+-----------------+------------------+
///
/// A record belongs to the thread that reserved it until that thread publishes its type; from then
/// on it never changes. Nothing here allocates, locks or waits.

/// File logging: records and their buffers, the flush thread, the writer of the files, the crash
/// hook, and the way to the vendor's file logger.
namespace JCam::Utils::JLog::File {

/// Characters of a name or tag that a record keeps.
inline constexpr size_t kMaxNameChars = 128;
/// Characters of a message that a record keeps.
inline constexpr size_t kMaxMessageChars = 1023;
/// Every record's size, and so every record's place, is a multiple of this.
inline constexpr size_t kRecordAlignment = 8;

/// What a record is. Readers step over any other value.
enum RecordType : uint8_t {
    RECORD_INCOMPLETE = 0,  ///< reserved, still being filled: readers step over it
    RECORD_ENTER = 1,       ///< a LogEnterExit
    RECORD_EXIT = 2,        ///< a LogEnterExit
    RECORD_DETAILS = 7,     ///< a LogDetails
};

/// The head of every record.
struct LogHeader {
    /// The type in the low 8 bits, the size of the whole record in the high 24: one word, so that a
    /// reader that races with the writer sees 0, which is space without a size yet, or a valid size
    /// with type 0, or a complete record.
    std::atomic<uint32_t> sizeAndType;
    /// Kernel thread id of the thread that logged.
    int32_t tid;
    /// Taken right after the reservation, from the logger's clock.
    timespec timestamp;

    /// Marks `bytes` as reserved, before all else that is written to the record. Relaxed: a crash
    /// dump that sees zeros here steps over them.
    void reserve(uint32_t bytes) {
        sizeAndType.store(bytes << kSizeShift, std::memory_order_relaxed);
    }

    /// Declares the record complete. The release makes every field visible to a reader that sees
    /// the type with type()'s acquire. Relaxed is enough for the load: only this thread stores.
    void publish(RecordType type) {
        sizeAndType.store(sizeAndType.load(std::memory_order_relaxed) | type,
                          std::memory_order_release);
    }

    /// Acquire: after a type other than RECORD_INCOMPLETE the whole record may be read.
    [[nodiscard]] RecordType type() const {
        return static_cast<RecordType>(sizeAndType.load(std::memory_order_acquire) & kTypeMask);
    }

    /// Bytes of the whole record. Relaxed: fixed at the reservation.
    [[nodiscard]] uint32_t size() const {
        return sizeAndType.load(std::memory_order_relaxed) >> kSizeShift;
    }

  private:
    static constexpr uint32_t kSizeShift = 8;
    static constexpr uint32_t kTypeMask = 0xFF;
};

/// An enter or an exit event. The name runs on behind the structure.
struct LogEnterExit {
    /// Where the name begins, in bytes from the start of the record.
    static constexpr size_t kNameOffset = 37;

    /// Its type is RECORD_ENTER or RECORD_EXIT.
    LogHeader header;
    /// Running number of the logger's enter and exit records, from 1; wraps.
    uint32_t serial;
    /// As the caller gave it.
    uint32_t moduleId;
    /// As the caller gave it.
    uint32_t requestNo;
    /// Always 1, an application request.
    uint8_t requestType;
    /// Where the name begins; name() has all of it.
    char nameHead[3];

    /// NUL-terminated, at most kMaxNameChars characters.
    [[nodiscard]] const char* name() const {
        return reinterpret_cast<const char*>(this) + kNameOffset;
    }
};

/// A message. Name and text run on behind the structure.
struct LogDetails {
    /// Where the tag begins, in bytes from the start of the record.
    static constexpr size_t kNameOffset = 41;

    /// Its type is RECORD_DETAILS.
    LogHeader header;
    /// As the caller gave it. No line shows it.
    uint32_t moduleId;
    /// The text, inside this same record; NUL-terminated, at most kMaxMessageChars characters.
    const char* message;
    /// A JLogLevel; 255 for all that is above.
    uint8_t level;
    /// Where the tag begins; name() has all of it.
    char nameHead[7];

    /// The caller's tag: NUL-terminated, at most kMaxNameChars characters.
    [[nodiscard]] const char* name() const {
        return reinterpret_cast<const char*>(this) + kNameOffset;
    }
};

// The layouts are read by a crash handler and, in a memory dump, by people.
static_assert(std::atomic<uint32_t>::is_always_lock_free && sizeof(std::atomic<uint32_t>) == 4);
static_assert(sizeof(timespec) == 16);
static_assert(sizeof(LogHeader) == 24 && alignof(LogHeader) == kRecordAlignment);
static_assert(offsetof(LogHeader, tid) == 4 && offsetof(LogHeader, timestamp) == 8);
static_assert(sizeof(LogEnterExit) == 40 && sizeof(LogEnterExit) % kRecordAlignment == 0);
static_assert(offsetof(LogEnterExit, serial) == 24 && offsetof(LogEnterExit, moduleId) == 28);
static_assert(offsetof(LogEnterExit, requestNo) == 32 && offsetof(LogEnterExit, requestType) == 36);
static_assert(offsetof(LogEnterExit, nameHead) == LogEnterExit::kNameOffset);
static_assert(sizeof(LogDetails) == 48 && sizeof(LogDetails) % kRecordAlignment == 0);
static_assert(offsetof(LogDetails, moduleId) == 24 && offsetof(LogDetails, message) == 32);
static_assert(offsetof(LogDetails, level) == 40);
static_assert(offsetof(LogDetails, nameHead) == LogDetails::kNameOffset);

}  // namespace JCam::Utils::JLog::File
