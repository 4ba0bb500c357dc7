#include "StderrText.h"

#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <utility>

namespace JCam::Fuzz {

namespace {

std::string& stderrText() {
    static std::string sText;
    return sText;
}

}  // namespace

std::string takeStderrText() {
    return std::exchange(stderrText(), {});
}

}  // namespace JCam::Fuzz

// Visible to other shared objects.
extern "C" __attribute__((visibility("default"))) int dprintf(int fd, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    int chars = 0;
    if (fd == STDERR_FILENO) {
        char* text = nullptr;
        chars = vasprintf(&text, format, arguments);
        JCam::Fuzz::stderrText().append(text, static_cast<size_t>(chars));
        free(text);
    } else {
        chars = vdprintf(fd, format, arguments);
    }
    va_end(arguments);
    return chars;
}
