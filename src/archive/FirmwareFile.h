// The contents of one archive file, with derived values that are computed at most once. Any thread.
#pragma once

#include "platform/foundation/Data.h"

#include <mutex>

namespace zul {

class FirmwareFile {
  public:
    /// Takes the bytes over; computes nothing yet.
    explicit FirmwareFile(Data contents);
    FirmwareFile(const FirmwareFile&) = delete;
    FirmwareFile& operator=(const FirmwareFile&) = delete;

    /// The bytes of the file. Never null.
    const SharedData& contents() const { return _contents; }
    /// The contents padded with zero bytes to a multiple of 4; the same object if no padding is needed. The first call
    /// may copy. Does not log.
    const SharedData& padded() const;
    /// Whether the whole contents are S-record text. The first call scans the contents.
    bool isSRecordText() const;

  private:
    const SharedData _contents;
    mutable std::once_flag _paddedOnce;
    mutable SharedData _padded;
    mutable std::once_flag _verdictOnce;
    mutable bool _isSRecordText = false;
};

} // namespace zul
