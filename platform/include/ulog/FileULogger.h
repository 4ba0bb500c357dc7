#pragma once

#pragma GCC visibility push(default)

namespace NSCam::Utils::ULog {

// The vendor's enumerators are not part of what the library relies on: it passes numbers.
enum RequestTypeId : unsigned int {};
enum DetailsType : unsigned int {};

namespace File {

/// The vendor's camera file logger as a stand-in: each call becomes one message of the Android log,
/// tag "ULog", priority debug, for example
///     enter module=0x4 type=1 request=42 name=processFrame
///     details module=0x4 type=5 length=5 tag=Pipeline text=hello
/// Strings come last and in full, whatever their length; a null one prints as an empty one.
///
/// It is stateless: any thread may call it at any time. None of its functions is virtual, as with
/// the vendor's.
class FileULoggerBase {
  public:
    FileULoggerBase(const FileULoggerBase&) = delete;
    FileULoggerBase& operator=(const FileULoggerBase&) = delete;

    void onLogEnter(unsigned int moduleId, const char* name, RequestTypeId requestType,
                    unsigned int requestNo);
    void onLogExit(unsigned int moduleId, const char* name, RequestTypeId requestType,
                   unsigned int requestNo);
    /// `length` is the bytes of `text`, of which no more are read.
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
