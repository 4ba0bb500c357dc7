#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <memory>
#include <string_view>

#include "jlog/file/BoxLayout.h"
#include "jlog/file/PathText.h"
#include "jlog/JLogMutex.h"

namespace JCam::Utils::JLog::File {

/// Takes the lock that says that a box is in use: it ends with the process, and with the first
/// descriptor of the file that the process closes. False if another process has it (errno EAGAIN),
/// or if there can be none.
bool lockBox(int fd);

/// Writes the folder of the boxes to `path` (kFolderPathBytes). False if there is to be no box.
bool boxFolder(char* path);

/// The black box of this process: gives record buffers the memory of a file, which outlives the
/// process, and keeps account of which of them hold records. BoxRecovery makes a text file of the
/// box that another process has left.
///
/// The file exists as long as the object. A lock that ends with the process and that a child made
/// by fork() does not have tells other processes that it is in use. Space is allocated when it is
/// made, so that no store to it can fail for want of space. In a child made by fork() the box is
/// replaced by memory of zeros: what the child logs does not get into it.
///
/// Threads: any. Signal-safe but for making and destroying it.
class BlackBox {
  public:
    /// Opens and locks a box that no process has any more. -1 if it is none; `problem` then has a
    /// reason to tell, if there is one. Any thread. Not signal-safe.
    static int openLeft(const PathText& path, const char*& problem);

    /// A box in the folder of the property "vendor.debug.camera.jlog.blackbox", for records with
    /// times of `clock`; null if that is empty, if this process has a box already, or if there can
    /// be none, which an ERROR line tells. Makes the folder, but not its parents.
    static std::unique_ptr<BlackBox> make(clockid_t clock);
    /// Deletes the file. No buffer may be left in it.
    ~BlackBox();
    BlackBox(const BlackBox&) = delete;
    BlackBox& operator=(const BlackBox&) = delete;

    /// A block that is free, all zero; null if there is none. May take some 10 us.
    char* takeBlock();
    /// Takes back a block, whatever is in it. False, and nothing done, if it is not of the box.
    bool giveBlock(const char* block);
    /// The slot of a block; null if the block is not of the box.
    [[nodiscard]] BoxSlot* slotOf(const char* block) const;

    /// A buffer, in the slot or in none, gets its first record. Before it is opened, and under the
    /// logger's mutex.
    void markOpened(BoxSlot* slot);
    /// A buffer with records is given up, or its text is in a file. Before it is cleared.
    void markEmptied(BoxSlot* slot);
    /// A crash dump has written all records of the buffer in the slot, which may be any address;
    /// `complete` of them were complete before it began.
    void markDumped(const BoxSlot* slot, uint32_t complete);

    /// Whether no block is free.
    [[nodiscard]] bool isUsedUp() const { return mFree.load(std::memory_order_relaxed) == 0; }
    /// Blocks that are not free.
    [[nodiscard]] size_t blocksInUse() const;
    /// Why records may be lost though they are in the box, in words: somebody has deleted or
    /// shortened the file; null if all is well. One system call.
    [[nodiscard]] const char* damage() const;

    [[nodiscard]] const PathText& path() const { return mPath; }
    [[nodiscard]] std::string_view folder() const {
        return mPath.view().substr(0, mPath.view().rfind('/'));
    }

  private:
    BlackBox() = default;
    /// What has failed; null if nothing has. errno tells why.
    const char* open(const char* folder);
    const char* createFile(const char* folder);
    void fillHead(clockid_t clock);
    [[nodiscard]] BoxHead& head() const { return *reinterpret_cast<BoxHead*>(mMemory); }
    [[nodiscard]] size_t indexOf(const char* block) const;
    static void leaveToParent();

    static bool isOwnNameLocked(std::string_view name) JLOG_REQUIRES(sMutex);

    /// Keeps boxes that this process makes and deletes from those that it looks at: its lock of a
    /// file keeps only others away.
    static JLogMutex sMutex;
    /// The number in the name of the box that this process has, or is making; 0 without one.
    static uint32_t sIndex JLOG_GUARDED_BY(sMutex);
    /// For the child of a fork; null before the memory is there. Sequentially consistent; rarely
    /// used.
    static std::atomic<BlackBox*> sBox;

    char* mMemory{nullptr};
    /// Keeps the lock: no other descriptor of the file may be closed by this process. -1 in a
    /// child.
    int mFd{-1};
    PathText mPath;
    bool mIsClaimed{false};
    /// One bit a block. A release gives a block back, an acquire takes it.
    std::atomic<uint32_t> mFree{(1U << kBoxSlots) - 1};
    /// Free blocks that were used before. They are cleared by the thread that takes them, which has
    /// use for them in its caches. Relaxed: mFree hands a block over.
    std::atomic<uint32_t> mUsed{0};
    /// The last sequence. Under the logger's mutex.
    uint64_t mOpened{0};
};

}  // namespace JCam::Utils::JLog::File
