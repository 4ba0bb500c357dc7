#include "support/ReferenceWriter.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <string_view>
#include <utility>

#include "jlog/ModuleTable.h"

namespace JCam::Support {

namespace {

char letterOf(unsigned int level) {
    constexpr std::string_view kLetters = "VEWIDD";
    return level < kLetters.size() ? kLetters[level] : 'V';
}

}  // namespace

ReferenceWriter::ReferenceWriter(int pid, Sink sink)
        : mPid(pid), mSink(std::move(sink)), mBuffer() {}

void ReferenceWriter::enterExit(const Utils::JLog::File::LogEnterExit& record, char direction) {
    const char* module = Utils::JLog::getModuleName(record.moduleId);
    date(record.header.timestamp);
    append(snprintf(mBuffer.data() + mBytes, room(),
                    ".%06ld %5d %5d D JLog    : R %s:%u M[%s:%x] %c  :%s #%u\n",
                    record.header.timestamp.tv_nsec / 1000, mPid, record.header.tid, "AppRequest",
                    record.requestNo, module != nullptr ? module : "(null)", record.moduleId,
                    direction, record.name(), record.serial));
}

void ReferenceWriter::details(const Utils::JLog::File::LogDetails& record) {
    date(record.header.timestamp);
    append(snprintf(mBuffer.data() + mBytes, room(), ".%06ld %5d %5d %c %-8s: %s\n",
                    record.header.timestamp.tv_nsec / 1000, mPid, record.header.tid,
                    letterOf(record.level), record.name(), record.message));
}

void ReferenceWriter::flush() {
    if (mBytes > 0) {
        mSink(mBuffer.data(), mBytes);
    }
    mBytes = 0;
}

void ReferenceWriter::date(const timespec& timestamp) {
    tm local = {};
    if (localtime_r(&timestamp.tv_sec, &local) == nullptr) {
        local = {};
    }
    append(static_cast<int>(strftime(mBuffer.data() + mBytes, room(), "%m-%d %H:%M:%S", &local)));
}

void ReferenceWriter::append(int formatted) {
    mBytes += std::min(static_cast<size_t>(formatted), room() - 1);
    if (mBytes >= 23452) {
        flush();
    }
}

}  // namespace JCam::Support
