// The contents of one archive file, and what is worked out of them at most once. Any thread.
#pragma once

#include "platform/foundation/Data.h"

#include <mutex>

namespace zul {

class FirmwareFile {
  public:
    explicit FirmwareFile(Data contents);
    FirmwareFile(const FirmwareFile&) = delete;
    FirmwareFile& operator=(const FirmwareFile&) = delete;

    /// The bytes as they were read. Never null.
    const SharedData& contents() const { return _contents; }
    /// Zero-padded to a multiple of 4 bytes; the contents themselves when they need no padding. The first call may copy
    /// and logs nothing.
    const SharedData& padded() const;
    /// Whether all of it is S-record text; the first call reads through the contents.
    bool isSRecordText() const;

  private:
    const SharedData _contents;
    mutable std::once_flag _paddedOnce;
    mutable SharedData _padded;
    mutable std::once_flag _verdictOnce;
    mutable bool _isSRecordText = false;
};

} // namespace zul
