#include "WriteWalk.h"

namespace JCam::Soak {

namespace {

/// A full text buffer: of its 24576 bytes one stays free for the NUL of a formatter.
constexpr size_t kTextBytes = 24575;
/// From so many bytes on it is written out. The date is a line's first part, and counts: if the
/// buffer is to be written out behind it, the rest of its line begins the next one.
constexpr size_t kFlushMark = 23452;
constexpr size_t kDateBytes = 14;

bool dateReachesMark(size_t bufferedBytes) {
    return bufferedBytes < kFlushMark && bufferedBytes + kDateBytes >= kFlushMark;
}

}  // namespace

bool WriteWalk::isFull() const {
    return mSize == kTextBytes || (mDateMayBeHeld && mSize == kTextBytes + kDateBytes);
}

bool WriteWalk::isTooLong() const {
    return mSize > kTextBytes + (mDateMayBeHeld ? kDateBytes : 0);
}

void WriteWalk::advance(size_t bytes) {
    mLeft -= bytes;
    if (mLeft == 0) {
        begin(mNumber);
    }
}

void WriteWalk::begin(size_t index) {
    mDateMayBeHeld = dateReachesMark(mSize) ||
                     (mDateMayBeHeld && mSize > kDateBytes && dateReachesMark(mSize - kDateBytes));
    mNumber = index + 1;
    mSize = index < mSizes.size() ? mSizes[index] : 0;
    mLeft = mSize;
}

}  // namespace JCam::Soak
