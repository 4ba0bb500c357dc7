#include "reader/Series.h"

namespace JCam::Reader {

std::optional<Record> Series::next() {
    for (;;) {
        if (mRecords) {
            if (std::optional<Record> record = mRecords->next()) {
                return record;
            }
        }
        if (mOpened == mFiles.size()) {
            return std::nullopt;
        }
        const LogFile& file = mFiles[mOpened++];
        mMapped.emplace(file.path);
        mRecords.emplace(mMapped->bytes(), file.pid);
        if (!mMapped->isOpen()) {
            Record record;
            record.skipped = "the file cannot be read";
            return record;
        }
    }
}

}  // namespace JCam::Reader
