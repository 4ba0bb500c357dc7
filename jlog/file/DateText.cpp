#include "jlog/file/DateText.h"

#include "jlog/file/Digits.h"

namespace JCam::Utils::JLog::File {

void formatDate(char (&out)[kDateChars], time_t seconds) {
    tm local = {};
    if (localtime_r(&seconds, &local) == nullptr) {
        local = {};
    }
    const int fields[] = {local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min,
                          local.tm_sec};
    constexpr char kSeparators[] = {'-', ' ', ':', ':'};
    char* end = out;
    for (size_t i = 0; i < sizeof(fields) / sizeof(fields[0]); ++i) {
        if (i > 0) {
            *end++ = kSeparators[i - 1];
        }
        end = putTwoDigits(end, static_cast<unsigned int>(fields[i]));
    }
}

}  // namespace JCam::Utils::JLog::File
