#pragma once

#pragma GCC visibility push(default)

namespace NSCam::Utils::ULog {

// Without the vendor's enumerators: the library passes numbers.
enum RequestTypeId : unsigned int {};
enum DetailsType : unsigned int {};

namespace File {

/// The stand-in for the vendor's camera file logger prints each call to the Android log, tag
/// "ULog", priority debug:
///     enter module=0x4 type=1 request=42 name=processFrame
///     details module=0x4 type=5 length=5 tag=Pipeline text=hello
/// Strings come last and are never cut; a null one prints as an empty one.
///
/// Stateless; any thread at any time. No function is virtual, like the vendor's.
class FileULoggerBase {
  public:
    FileULoggerBase(const FileULoggerBase&) = delete;
    FileULoggerBase& operator=(const FileULoggerBase&) = delete;

    void onLogEnter(unsigned int moduleId, const char* name, RequestTypeId requestType,
                    unsigned int requestNo);
    void onLogExit(unsigned int moduleId, const char* name, RequestTypeId requestType,
                   unsigned int requestNo);
    /// Reads at most `length` bytes of `text`.
    void onLogDetails(unsigned int moduleId, const char* tag, DetailsType type, const char* text,
                      unsigned long length);

  protected:
    constexpr FileULoggerBase() = default;
    ~FileULoggerBase() = default;
};

class FileULogger : public FileULoggerBase {
  public:
    /// The instance of the process; never null, never destroyed.
    static FileULogger* getInstance();

    void onInit();
    void onUninit();
    void onFlush(int timeoutSec);

  private:
    constexpr FileULogger() = default;
};

}  // namespace File
}  // namespace NSCam::Utils::ULog

#pragma GCC visibility pop
