#include <ulog/FileULogger.h>

#include <android/log.h>

#include <cstdio>
#include <cstring>

#include <string>
#include <string_view>
#include <type_traits>

namespace NSCam::Utils::ULog::File {

namespace {

constexpr const char* kTag = "ULog";
constexpr size_t kNumberBytes = 96;  // the part of a message before its strings

bool isWanted() {
    return __android_log_is_loggable(ANDROID_LOG_DEBUG, kTag, ANDROID_LOG_VERBOSE) != 0;
}

/// Not by __android_log_print, which would cut the text.
void print(const std::string& message) {
    __android_log_write(ANDROID_LOG_DEBUG, kTag, message.c_str());
}

const char* nonNull(const char* text) {
    return text == nullptr ? "" : text;
}

void printRequest(const char* event, unsigned int moduleId, const char* name,
                  RequestTypeId requestType, unsigned int requestNo) {
    if (!isWanted()) {
        return;
    }
    char numbers[kNumberBytes];
    const int numberLength = std::snprintf(
            numbers, sizeof(numbers), "%s module=0x%x type=%u request=%u name=", event, moduleId,
            static_cast<unsigned int>(requestType), requestNo);
    print(std::string(numbers, static_cast<size_t>(numberLength)) + nonNull(name));
}

}  // namespace

// NOLINTBEGIN(readability-convert-member-functions-to-static): members of an object at the vendor

void FileULoggerBase::onLogEnter(unsigned int moduleId, const char* name, RequestTypeId requestType,
                                 unsigned int requestNo) {
    printRequest("enter", moduleId, name, requestType, requestNo);
}

void FileULoggerBase::onLogExit(unsigned int moduleId, const char* name, RequestTypeId requestType,
                                unsigned int requestNo) {
    printRequest("exit", moduleId, name, requestType, requestNo);
}

void FileULoggerBase::onLogDetails(unsigned int moduleId, const char* tag, DetailsType type,
                                   const char* text, unsigned long length) {
    if (!isWanted()) {
        return;
    }
    char numbers[kNumberBytes];
    const int numberLength = std::snprintf(numbers, sizeof(numbers),
                                           "details module=0x%x type=%u length=%lu tag=", moduleId,
                                           static_cast<unsigned int>(type), length);
    const char* begin = nonNull(text);
    std::string message =
            std::string(numbers, static_cast<size_t>(numberLength)) + nonNull(tag) + " text=";
    print(message.append(begin, strnlen(begin, length)));
}

void FileULogger::onInit() {
    print("init");
}

void FileULogger::onUninit() {
    print("uninit");
}

void FileULogger::onFlush(int timeoutSec) {
    print("flush " + std::to_string(timeoutSec));
}

// NOLINTEND(readability-convert-member-functions-to-static)

FileULogger* FileULogger::getInstance() {
    static_assert(std::is_trivially_destructible_v<FileULogger>);
    static constinit FileULogger sInstance;
    return &sInstance;
}

}  // namespace NSCam::Utils::ULog::File
