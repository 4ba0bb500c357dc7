#include <android/log.h>
#include <cutils/properties.h>

#include <unistd.h>
#include <cstdio>

#include <string_view>

// Runs the commands of its arguments in turn:
//     log DIGIT TAG TEXT, minimum DIGIT, restore, get KEY
int main(int, char** argv) {
    while (*++argv != nullptr) {
        const std::string_view command = *argv;
        if (command == "log") {
            __android_log_write(argv[1][0] - '0', argv[2], argv[3]);
            argv += 3;
        } else if (command == "minimum") {
            __android_log_set_minimum_priority(**++argv - '0');
        } else if (command == "restore") {
            __android_log_set_logger(nullptr);
        } else if (command == "get") {
            char value[PROPERTY_VALUE_MAX];
            property_get(*++argv, value, nullptr);
            dprintf(STDERR_FILENO, "[%s]\n", value);
        }
    }
}
