#pragma once

#include <glog/logging.h>
#include <cstdint>

#include "Workload.h"

namespace JCam::Bench {

/// glog formats and writes on the callers' threads, in its own line layout.
class GlogContender {
  public:
    explicit GlogContender(const Workload& work) : mWork(work) {
        FLAGS_logtostderr = false;
        FLAGS_stderrthreshold = google::GLOG_FATAL;
        FLAGS_logbufsecs = 30;
        google::InitGoogleLogging("jlog_loadbench");
        google::SetLogDestination(google::GLOG_INFO, (work.folder / "glog.").c_str());
    }
    ~GlogContender() { google::ShutdownGoogleLogging(); }
    GlogContender(const GlogContender&) = delete;
    GlogContender& operator=(const GlogContender&) = delete;

    static void logEnter(unsigned int request) {
        LOG(INFO) << "R AppRequest:" << request << " M[Preview:4] +  :" << Workload::kName << " #"
                  << request;
    }
    void logMessage() { LOG(INFO) << Workload::kTag << ": " << mWork.text; }
    static void drain() { google::FlushLogFiles(google::GLOG_INFO); }

    /// Lines that are no event: each file begins with four.
    static uint64_t foreignLines(uint64_t files) { return 4 * files; }

  private:
    const Workload& mWork;
};

}  // namespace JCam::Bench
