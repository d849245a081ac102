// Motorola S-record text, padding and checksum: pure functions of their input. They log at the ordinary level. Any
// thread.
#pragma once

#include "platform/foundation/Data.h"

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>

namespace zul {

struct SRecordFault {
    std::size_t line = 0; // counted from 1, every separator ends a line; 0: the file as a whole
    std::string reason;   // in plain words
};

/// nullopt if every non-empty line is a valid record; otherwise the first fault. One pass, no copy per line.
std::optional<SRecordFault> findSRecordFault(const Data& data);

/// verifySRecData:
bool verifySRecData(const Data& data);
/// verifyMotorolaSFile:  Of data, of the file at a path, or of a file URL ("file://…"). False for a file that cannot be
/// read.
bool verifyMotorolaSFile(const Data& data);
bool verifyMotorolaSFile(const std::filesystem::path& pathOrURL);

/// Zero-padded to a multiple of 4 bytes; empty data stays empty. Logs when there is something to pad.
Data paddedData(Data data);
/// How long data of this length is when it is padded. Logs nothing.
std::size_t paddedLength(std::size_t length);
/// The log line of data that is padded; none where the lengths are the same.
void logPadding(std::size_t length, std::size_t padded);

/// One's complement of the byte sum, low 16 bits.
std::uint16_t checksumForData(const Data& data);

} // namespace zul
