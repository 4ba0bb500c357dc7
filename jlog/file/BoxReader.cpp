#include "jlog/file/BoxReader.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "jlog/file/LineRenderer.h"
#include "jlog/file/LocalTime.h"
#include "jlog/file/SignalSafeFormat.h"

namespace JCam::Utils::JLog::File {

namespace {

/// "YYYY-MM-DD hh:mm:ss".
struct Stamp {
    explicit Stamp(int64_t seconds) {
        const tm local = localTime(seconds);
        formatText(text, sizeof(text), "%04d-%02d-%02d %02d:%02d:%02d", local.tm_year + 1900,
                   local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
    }
    char text[64];
};

/// Whether a recovery gives such a name to a file with the records of `pid`. What the box says is
/// to be deleted, and may say anything.
bool isRecoveredName(std::string_view name, int32_t pid) {
    char begin[32];
    const size_t length = formatText(begin, sizeof(begin), "cam_jlog_%d_BB_", pid);
    constexpr std::string_view kEnd = ".txt";
    if (!name.starts_with(std::string_view(begin, length)) || !name.ends_with(kEnd)) {
        return false;
    }
    name.remove_suffix(kEnd.size());
    return name.find_first_not_of("0123456789_", length) == std::string_view::npos;
}

/// Whether the calendar has a place for a time, and a process may have been running then.
bool isTime(int64_t seconds) {
    constexpr int64_t kEndOfYear9999 = 253402300799;
    return seconds >= 0 && seconds <= kEndOfYear9999;
}

bool isOpened(const BoxSlot& slot) {
    return slot.sequence.load(std::memory_order_relaxed) != 0;
}

/// Whether a crash dump has written the buffer of the slot.
bool isMarked(const BoxSlot& slot) {
    return slot.dumpedSequence.load(std::memory_order_relaxed) ==
           slot.sequence.load(std::memory_order_relaxed);
}

}  // namespace

BoxReader::BoxReader(int fd) : mFd(fd) {
    checkHead();
    if (mProblem == nullptr) {
        findBlocks();
    }
}

void BoxReader::checkHead() {
    const size_t count = readAt(0, reinterpret_cast<char*>(&mHead), sizeof(mHead));
    const uint64_t magic = mHead.magic.load(std::memory_order_relaxed);
    struct stat status = {};
    const bool isOfItsSize =
            fstat(mFd, &status) == 0 && (status.st_size == 0 || status.st_size == off_t{kBoxBytes});
    mIsUnborn = mProblem == nullptr && magic == 0 && isOfItsSize &&
                std::none_of(std::begin(mHead.slots), std::end(mHead.slots), isOpened);
    if (mProblem != nullptr) {
        // No part of what there is may be taken for all of it.
    } else if (magic != kBoxMagic) {
        mProblem = mIsUnborn ? "without a head" : "not a black box";
    } else if (mHead.version != kBoxVersion || mHead.headBytes != kBoxHeadBytes ||
               mHead.slotBytes != kBufferBytes || mHead.slotCount != kBoxSlots ||
               mHead.recordLayout != kBoxRecordLayout) {
        mProblem = "a black box of another layout";
    } else if (count < sizeof(mHead) || mHead.pid <= 0 || mHead.address > UINT64_MAX - kBoxBytes ||
               !isTime(mHead.processStart) || !isTime(mHead.boxStart)) {
        mProblem = "a black box with a damaged head";
    }
    mHead.recoveredTo[kBoxFileNameBytes - 1] = '\0';
    if (mProblem != nullptr || !isRecoveredName(mHead.recoveredTo, mHead.pid)) {
        mHead.recoveredTo[0] = '\0';
    }
}

void BoxReader::findBlocks() {
    for (size_t i = 0; i < kBoxSlots; ++i) {
        const BoxSlot& slot = mHead.slots[i];
        if (isOpened(slot)) {
            mSlots[mCount++] = i;
            mIsPartDumped |= isMarked(slot);
        }
    }
    std::sort(mSlots.begin(), mSlots.begin() + mCount, [this](size_t a, size_t b) {
        return mHead.slots[a].sequence.load(std::memory_order_relaxed) <
               mHead.slots[b].sequence.load(std::memory_order_relaxed);
    });
}

size_t BoxReader::readAt(size_t offset, char* out, size_t count) {
    size_t done = 0;
    while (done < count) {
        const ssize_t got = pread(mFd, out + done, count - done, static_cast<off_t>(offset + done));
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            mProblem = "it cannot be read";
        }
        if (got <= 0) {
            break;
        }
        done += static_cast<size_t>(got);
    }
    return done;
}

uint32_t BoxReader::readBlock(size_t index, char* block) {
    const size_t number = mSlots[index];
    const size_t count = readAt(kBoxHeadBytes + number * kBufferBytes, block, kBufferBytes);
    const uint64_t blockThen = mHead.address + kBoxHeadBytes + number * kBufferBytes;
    RecordWalk walk(block, block + count);
    uint32_t complete = 0;
    while (const LogHeader* header = walk.next()) {
        if (header->type() == RECORD_INCOMPLETE) {
            continue;
        }
        ++complete;
        const auto offset = static_cast<size_t>(reinterpret_cast<const char*>(header) - block);
        if (header->type() == RECORD_DETAILS && header->size() > LogDetails::kNameOffset) {
            mIsDamaged |=
                    !relocate(*reinterpret_cast<LogDetails*>(block + offset), blockThen + offset);
        }
    }
    mIsDamaged |= count < kBufferBytes || walk.bytesLeft >= sizeof(LogHeader);
    // What is cut off, or behind an impossible size.
    memset(block + (walk.place - block), 0, static_cast<size_t>(block + kBufferBytes - walk.place));
    const BoxSlot& slot = mHead.slots[number];
    const bool isDumped =
            isMarked(slot) && slot.dumpedRecords.load(std::memory_order_relaxed) == complete;
    return isDumped ? 0 : complete;
}

bool BoxReader::relocate(LogDetails& record, uint64_t recordThen) {
    const auto messageThen = reinterpret_cast<uint64_t>(record.message);
    const bool isInside =
            messageThen >= recordThen && messageThen - recordThen < record.header.size();
    // A message that is elsewhere stays nowhere, and its record is stepped over.
    record.message = isInside ? reinterpret_cast<const char*>(&record) + (messageThen - recordThen)
                              : nullptr;
    return isInside;
}

bool BoxReader::hasLosses() const {
    return mHead.outside.load(std::memory_order_relaxed) > 0 && !mIsPartDumped;
}

void BoxReader::describe(char* out, size_t room) const {
    const uint32_t outside = mHead.outside.load(std::memory_order_relaxed);
    size_t length = formatText(
            out, room, "BLACK BOX : pid = %d, start = %s, box = %s, ended %s", mHead.pid,
            Stamp(mHead.processStart).text, Stamp(mHead.boxStart).text,
            mIsPartDumped ? "behind a crash dump, which lacks records" : "without a dump");
    if (outside > 0 && length < room) {
        // A dump has them, as far as it got.
        length +=
                formatText(out + length, room - length, "; up to %u buffers were outside the box%s",
                           outside, mIsPartDumped ? "" : ", and are lost");
    }
    if (length < room) {
        formatText(out + length, room - length, "\n");
    }
}

}  // namespace JCam::Utils::JLog::File
