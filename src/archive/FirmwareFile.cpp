// The bytes of one file with their padded copy and S-record check. Created by FirmwareArchive, used by every printer of
// the model on its command queue.
#include "archive/FirmwareFile.h"

#include "archive/SRecord.h"
#include "platform/foundation/Data.h"

#include <cstddef>
#include <memory>
#include <mutex>
#include <utility>

namespace zul {

FirmwareFile::FirmwareFile(Data contents) : _contents(std::make_shared<const Data>(std::move(contents))) {}

const SharedData& FirmwareFile::padded() const {
    // On the first use and not in the constructor: tables are never padded, and most files are only verified.
    std::call_once(_paddedOnce, [this] {
        const std::size_t length = paddedLength(_contents->size());
        if (length == _contents->size()) {
            // Shared, because a copy would double the memory of an image.
            _padded = _contents;
            return;
        }
        Data copy;
        copy.reserve(length);
        copy = *_contents;
        copy.resize(length, 0);
        _padded = std::make_shared<const Data>(std::move(copy));
    });
    return _padded;
}

bool FirmwareFile::isSRecordText() const {
    std::call_once(_verdictOnce, [this] { _isSRecordText = verifySRecData(*_contents); });
    return _isSRecordText;
}

} // namespace zul
