#include "FileWindow.h"

#include <algorithm>

#include <fmt/format.h>

#include "Fault.h"

namespace JCam::Soak {

FileWindow::FileWindow(const std::filesystem::path& path)
        : mFile(path, std::ios::binary), mBytes(kWindowBytes) {
    if (!mFile) {
        throw Fault(fmt::format("cannot open {}", path.string()));
    }
}

std::string_view FileWindow::ahead() {
    if (mEnd - mBegin < kAheadBytes && mFile) {
        std::copy(mBytes.data() + mBegin, mBytes.data() + mEnd, mBytes.data());
        mEnd -= mBegin;
        mBegin = 0;
        mFile.read(mBytes.data() + mEnd, static_cast<std::streamsize>(kWindowBytes - mEnd));
        mEnd += static_cast<size_t>(mFile.gcount());
    }
    return {mBytes.data() + mBegin, mEnd - mBegin};
}

void FileWindow::advance(size_t bytes) {
    mBegin += bytes;
    mOffset += bytes;
}

}  // namespace JCam::Soak
