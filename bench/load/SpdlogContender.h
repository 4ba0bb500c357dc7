#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <thread>

#include <spdlog/async.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include "Workload.h"

namespace JCam::Bench {

/// spdlog's asynchronous logger with one worker and a line like ours. A caller waits when the queue
/// is full, so no line is lost. The queue holds a whole burst, so in bursts no caller waits.
class SpdlogContender {
  public:
    explicit SpdlogContender(const Workload& work) : mWork(work) {
        constexpr size_t kQueueSlots = 524288;
        spdlog::init_thread_pool(kQueueSlots, 1);
        mPool = spdlog::thread_pool();
        auto sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(
                (work.folder / "spdlog.txt").string());
        mEnters = makeLogger("JLog", sink);
        mMessages = makeLogger(Workload::kTag, sink);
    }
    ~SpdlogContender() {
        mEnters.reset();
        mMessages.reset();
        mPool.reset();
        spdlog::shutdown();
    }
    SpdlogContender(const SpdlogContender&) = delete;
    SpdlogContender& operator=(const SpdlogContender&) = delete;

    void logEnter(unsigned int request) {
        mEnters->debug("R AppRequest:{} M[Preview:4] +  :{} #{}", request, Workload::kName,
                       request);
    }
    void logMessage() {
        mMessages->info(spdlog::string_view_t(mWork.text.data(), mWork.text.size()));
    }
    void drain() {
        while (mPool->queue_size() > 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

    /// Lines that are no event.
    static uint64_t foreignLines(uint64_t /*files*/) { return 0; }

  private:
    std::shared_ptr<spdlog::logger> makeLogger(const char* name, const spdlog::sink_ptr& sink) {
        auto logger = std::make_shared<spdlog::async_logger>(name, sink, mPool,
                                                             spdlog::async_overflow_policy::block);
        logger->set_level(spdlog::level::debug);
        logger->set_pattern("%m-%d %H:%M:%S.%f %5P %5t %L %-8n: %v");
        return logger;
    }

    const Workload& mWork;
    std::shared_ptr<spdlog::details::thread_pool> mPool;
    std::shared_ptr<spdlog::logger> mEnters;
    std::shared_ptr<spdlog::logger> mMessages;
};

}  // namespace JCam::Bench
