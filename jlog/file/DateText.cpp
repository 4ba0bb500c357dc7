#include "jlog/file/DateText.h"

#include "jlog/file/Digits.h"
#include "jlog/file/SignalSafeFormat.h"

namespace JCam::Utils::JLog::File {

void formatDate(char (&out)[kDateChars], const tm& local) {
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

void formatSeriesStamp(char (&out)[kSeriesStampBytes], const tm& local) {
    formatText(out, sizeof(out), "%d_%02d%02d_%02d%02d%02d", local.tm_year + 1900, local.tm_mon + 1,
               local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
}

}  // namespace JCam::Utils::JLog::File
