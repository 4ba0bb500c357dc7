#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "jlog/file/Buffer.h"

/// \file
/// A black box: the file that holds the record buffers of a process, so that they outlive it.
///
///     0                  kBoxHeadBytes
///     +------------------+----------------+----------------+-----
///     | BoxHead          | block of slot 0| block of slot 1| ...   kBoxSlots times kBufferBytes
///     +------------------+----------------+----------------+-----
///
/// All that a process has stored before its end is there, in the order of its program: each thread
/// has stopped between two instructions. So atomics here order what the compiler may reorder, and
/// what threads of the living process see of each other.
namespace JCam::Utils::JLog::File {

/// Of the file, in front of the blocks, which thus begin at a page of any size there is on a
/// device.
inline constexpr size_t kBoxHeadBytes = 16384;
/// Blocks for the current buffer, the pool and twelve queued buffers.
inline constexpr size_t kBoxSlots = 16;
/// Of the whole file.
inline constexpr size_t kBoxBytes = kBoxHeadBytes + kBoxSlots * kBufferBytes;
/// The longest name of a file, with its NUL.
inline constexpr size_t kBoxFileNameBytes = 128;

/// "JCAMBOX" and its NUL, as a number.
inline constexpr uint64_t kBoxMagic = 0x00584F424D41434A;
inline constexpr uint32_t kBoxVersion = 1;

/// Where the names of records begin, which tells the layout of records.
inline constexpr uint32_t kBoxRecordLayout =
        LogDetails::kNameOffset << 16 | LogEnterExit::kNameOffset;

/// What the box says about a block.
struct BoxSlot {
    /// The running number of the buffer that has the block, from 1, in the order of opening; 0
    /// while the block holds no record that must be kept: then it is zero, or being cleared.
    std::atomic<uint64_t> sequence;
    /// The last buffer here that a crash dump has written; the number of its complete records comes
    /// first. If there are more by now, not all of them are in the crash file.
    std::atomic<uint64_t> dumpedRecords;
    std::atomic<uint64_t> dumpedSequence;
};

/// The head of a box. Times are seconds since the epoch.
struct BoxHead {
    /// kBoxMagic, which is written last.
    std::atomic<uint64_t> magic;
    uint32_t version;
    uint32_t headBytes;
    uint32_t slotBytes;
    uint32_t slotCount;
    uint32_t recordLayout;
    /// clockid_t of the time stamps.
    int32_t clock;
    /// The process.
    int32_t pid;
    /// Buffers that were opened, and not yet given up, and have no slot.
    std::atomic<uint32_t> outside;
    /// When the process began.
    int64_t processStart;
    /// When the box was made.
    int64_t boxStart;
    /// Where the process had the file in its memory: a record has the address of its message.
    uint64_t address;
    /// The file that a recovery has begun, a name without folder; empty before.
    char recoveredTo[kBoxFileNameBytes];
    BoxSlot slots[kBoxSlots];
};

static_assert(std::atomic<uint64_t>::is_always_lock_free && sizeof(BoxSlot) == 24);
static_assert(offsetof(BoxHead, slots) == 192 && sizeof(BoxHead) <= kBoxHeadBytes);

}  // namespace JCam::Utils::JLog::File
