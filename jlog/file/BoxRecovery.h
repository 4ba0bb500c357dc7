#pragma once

#include <dirent.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include "jlog/file/BoxReader.h"
#include "jlog/file/FileJLogWriter.h"
#include "jlog/file/PathText.h"

namespace JCam::Utils::JLog::File {

/// Makes text files of the boxes that dead processes have left, and deletes the boxes. Goes on in
/// small steps, so that its thread can do other things in between.
///
/// It may end at any step and leaves nothing half done that the next one would not know of: a box
/// is deleted when its file is complete and on the disk, and knows the name of its file before that
/// has text. The next recovery deletes such a file and begins anew. A box whose file could not be
/// written stays.
///
/// Only regular files are touched that have a box's name, belong to this user, have no other name,
/// and are not in use. What else has such a name, and what cannot be read, is left alone, with one
/// ERROR line a start.
///
/// Threads: one at a time. Not signal-safe. Allocates.
class BoxRecovery {
  public:
    /// Of the boxes in `folder`, but for that of this process. Files go to the folder of
    /// `logWriter`, and the clean-up spares its open file. It must outlive the object. While there
    /// is another recovery in this process, there is nothing to do: locks do not keep the two
    /// apart.
    BoxRecovery(const char* folder, const FileJLogWriter& logWriter);
    ~BoxRecovery();
    BoxRecovery(const BoxRecovery&) = delete;
    BoxRecovery& operator=(const BoxRecovery&) = delete;

    /// Looks at the next file of the folder, takes the next block of a box, which takes a
    /// millisecond or two, or finishes its file, which takes as long as the disk does. False when
    /// nothing is left.
    bool step();

  private:
    /// The box that is being recovered.
    struct Found {
        Found(int descriptor, const PathText& itsPath)
                : fd(descriptor), path(itsPath), reader(descriptor) {}

        int fd;
        PathText path;
        BoxReader reader;
        size_t nextBlock{0};
        uint32_t records{0};
        /// From the first record on, or when there is to be a first line alone.
        std::unique_ptr<FileJLogWriter> writer;
        bool isDone{false};
    };

    void consider(const char* name);
    /// False if there can be no file.
    bool recoverBlock();
    bool openFile();
    /// Deletes a file that is not complete, and its name in the box. False if it is still there.
    [[nodiscard]] bool deleteFile(const char* path) const;
    [[nodiscard]] bool noteFile(std::string_view name) const;
    void finish();
    /// Is done with a box, and deletes its file unless that is finished.
    void drop();

    /// A recovery is under way in this process.
    static std::atomic<bool> sIsBusy;

    PathText mPath;
    const FileJLogWriter& mLogWriter;
    const bool mIsOnlyOne;
    DIR* const mFolder;
    std::unique_ptr<Found> mFound;
    /// For one block; null before there is a box, and without memory.
    std::unique_ptr<char[]> mBlock;
};

}  // namespace JCam::Utils::JLog::File
