#include "reader/Series.h"

namespace JCam::Reader {

const Record* Series::next() {
    for (;;) {
        if (mRecords) {
            if (const Record* const record = mRecords->next()) {
                return record;
            }
        }
        if (mOpened == mFiles.size()) {
            return nullptr;
        }
        const LogFile& file = mFiles[mOpened++];
        mMapped.emplace(file.path);
        mRecords.emplace(mMapped->bytes(), file.pid);
        if (!mMapped->isOpen()) {
            mUnreadable.skipped = "the file cannot be read";
            return &mUnreadable;
        }
    }
}

}  // namespace JCam::Reader
