// Checks, pads and sums Motorola S-record text. Pure functions apart from their log lines, which have the ordinary
// level. Any thread.
#pragma once

#include "platform/foundation/Data.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace zul {

/// The first fault of a file.
struct SRecordFault {
    std::size_t line = 0; // from 1, every separator ends a line; 0: the file as a whole
    std::string reason;   // for people
};

/// nullopt if every non-empty line is a valid record; otherwise the first fault.
std::optional<SRecordFault> findSRecordFault(const Data& data);

/// verifySRecData:
bool verifySRecData(const Data& data);
/// verifyMotorolaSFile:  For data, for the file at a path, or for a file URL ("file://…"). False if the file cannot be
/// read.
bool verifyMotorolaSFile(const Data& data);
bool verifyMotorolaSFile(const std::filesystem::path& pathOrURL);

/// The data padded with zero bytes to a multiple of 4; empty data stays empty. Logs if it pads.
Data paddedData(Data data);
/// The padded length in bytes for data of this length. Does not log.
std::size_t paddedLength(std::size_t length);
/// Writes the log line of a padding; no line if the lengths are equal.
void logPadding(std::size_t length, std::size_t padded);

/// One's complement of the byte sum, low 16 bits.
std::uint16_t checksumForData(const Data& data);

} // namespace zul
