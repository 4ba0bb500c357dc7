#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <thread>

#include "Event.h"
#include "Workload.h"

namespace JCam::Bench {

/// Takes what a front end passes on.
class BackEnd {
  public:
    virtual ~BackEnd() = default;
    virtual void onEnter(unsigned int module, const char* name, unsigned int request) = 0;
    virtual void onDetails(unsigned int module, const char* tag, uint8_t level, const char* text,
                           size_t bytes) = 0;
};

/// What a good engineer writes by hand where all lines have one order and a crash handler is to
/// find the events: all threads pack them back to back into one buffer. A call takes its place with
/// a compare-exchange, ends with a full fence and a subtraction, and takes no lock. The thread that
/// finds no room opens the next buffer and wakes the consumer, which polls nothing. The floor for
/// a logger that does these things, with nothing that a product needs besides. It is in a shared
/// library, behind a static front end that calls a back end of many, as such a logger is.
///
/// Bounded: a caller that finds no free buffer waits. One object at a time.
class BufferContender : public EventCalls<BufferContender>, private BackEnd {
  public:
    explicit BufferContender(const Workload& work);
    /// Writes the rest. No thread may log any more.
    ~BufferContender() override;
    BufferContender(const BufferContender&) = delete;
    BufferContender& operator=(const BufferContender&) = delete;

    /// Returns when everything logged is in the file. No thread may log meanwhile.
    void drain();

  private:
    friend class EventCalls<BufferContender>;
    struct Buffer;
    struct Place;
    /// As many bytes as the rings of four threads.
    static constexpr uint32_t kBuffers = 16;

    static void enter(unsigned int module, const char* name, unsigned int request);
    static void details(unsigned int module, const char* tag, uint8_t level, const char* text,
                        size_t bytes);
    void onEnter(unsigned int module, const char* name, unsigned int request) override;
    void onDetails(unsigned int module, const char* tag, uint8_t level, const char* text,
                   size_t bytes) override;
    Place reserve(size_t nameBytes, size_t textBytes);
    static void publish(Place place);
    void replace(Buffer& full);
    void consume();

    static std::atomic<BackEnd*> sBackEnd;

    EventFile mFile;  // the consumer's
    const std::unique_ptr<Buffer[]> mBuffers;
    std::atomic<Buffer*> mCurrent;
    /// Buffers that are full. The consumer sleeps on it.
    alignas(64) std::atomic<uint32_t> mFull{0};
    /// Of these, how many are in the file.
    alignas(64) std::atomic<uint32_t> mWritten{0};
    std::atomic<bool> mStop{false};
    std::thread mConsumer;
};

}  // namespace JCam::Bench
