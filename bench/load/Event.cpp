#include "Event.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>

namespace JCam::Bench {

EventFile::EventFile(const Workload& work, const char* name) {
    const std::string path = (work.folder / name).string();
    mFd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (mFd < 0) {
        throw std::runtime_error("cannot create " + path);
    }
}

EventFile::~EventFile() {
    ::close(mFd);
}

void EventFile::writeText() {
    const char* begin = mText;
    while (begin < mEnd) {
        const ssize_t written = ::write(mFd, begin, static_cast<size_t>(mEnd - begin));
        if (written <= 0) {
            break;  // the lines that are missing will be noticed
        }
        begin += written;
    }
    mEnd = mText;
}

void EventFile::rememberDate(time_t second) {
    tm local = {};
    localtime_r(&second, &local);
    char text[32];
    mDate.assign(text, strftime(text, sizeof(text), "%m-%d %H:%M:%S.", &local));
    mSecond = second;
}

void EventFile::rememberThread(int32_t tid) {
    char text[32];
    mOrigin.assign(text,
                   static_cast<size_t>(snprintf(text, sizeof(text), " %5d %5d ", getpid(), tid)));
    mTid = tid;
}

}  // namespace JCam::Bench
