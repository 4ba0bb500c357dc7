#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>

namespace JCam::Tool {

/// Collects text or bytes and writes them to a file or to standard output. What cannot be written
/// throws std::system_error; its code is std::errc::broken_pipe if the reader has gone away.
class Output {
  public:
    /// Standard output.
    Output();
    /// Makes a file, or replaces what it held.
    explicit Output(const std::filesystem::path& path);
    ~Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    void write(std::string_view bytes) {
        if (bytes.size() > mBuffer.capacity() - mBuffer.size()) {
            flush();
        }
        if (bytes.size() > mBuffer.capacity()) {
            writeAll(bytes);
        } else {
            mBuffer.append(bytes);
        }
    }
    void flush();
    /// Writes the rest and closes the file; whoever does not call it does not learn of errors.
    void close();

    [[nodiscard]] bool isTerminal() const { return mIsTerminal; }
    [[nodiscard]] size_t bytesWritten() const { return mWritten + mBuffer.size(); }

  private:
    void writeAll(std::string_view bytes);

    int mFd;
    bool mIsTerminal = false;
    size_t mWritten = 0;
    std::string mName;
    std::string mBuffer;
};

}  // namespace JCam::Tool
