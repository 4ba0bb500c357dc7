#pragma once

#include <cstddef>

#include "jlog/file/Buffer.h"

namespace JCam::Utils::JLog::File {

class BlackBox;
class FileJLogWriter;

/// Writes the records that a logger has in memory, in its queue and its current buffer, into a
/// crash file. Other threads may be changing that memory, and it may be damaged: pointers are
/// probed before they are followed, links are counted and compared, and the text of a buffer is
/// written out before the next one is touched.
///
/// Runs after a fatal signal, by the rules of CrashHandler.cpp.
class CrashDump {
  public:
    /// `writer` is one that makeSignalSafe() was called on. `box` may be null. All must outlive the
    /// object.
    CrashDump(FileJLogWriter& writer, const BufferSlot& current, const BufferList& queue,
              BlackBox* box)
            : mWriter(writer), mCurrent(current), mQueue(queue), mBox(box) {}

    /// Writes the crash file: a line with the name of the signal and the address of the fault, the
    /// queue, and the current buffer. With `smallDump` a current buffer of 12800 bytes of records
    /// or more is written alone. The clean-up spares the open file of `logWriter`, which may be
    /// null.
    void write(const char* signalName, const void* address, const FileJLogWriter* logWriter,
               bool smallDump);

  private:
    /// The dump's place in the queue.
    struct QueueWalk {
        const Buffer* next;
        const Buffer* last;  // the last one written; null before the first
        size_t left;         // buffers to come, at most
    };

    void writeRecords(bool smallDump);
    void writeQueue(const Buffer* end);
    /// Writes the queue up to `end`, or up to a link that leads nowhere.
    void writeForward(QueueWalk& walk, const Buffer* end);
    /// Goes from the back of the queue to the oldest buffer that was not written.
    void findFromBack(QueueWalk& walk);
    /// Writes what can be read of the records of `buffer`, whose head can.
    void writeBuffer(const Buffer& buffer);

    FileJLogWriter& mWriter;
    const BufferSlot& mCurrent;
    const BufferList& mQueue;
    BlackBox* const mBox;
};

}  // namespace JCam::Utils::JLog::File
