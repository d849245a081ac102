// Parses S-record lines in one pass: firmware images are megabytes of text, so no line is copied.
// Called by FirmwareFile and the command line; any thread.
#include "archive/SRecord.h"

#include "holven_log/HOLVEN_Log.h"
#include "platform/files/Files.h"
#include "platform/foundation/Data.h"
#include "platform/foundation/Format.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace zul {

namespace {

constexpr std::size_t kPaddingBlock = 4;
constexpr std::string_view kFileScheme = "file://";

int hexDigit(char character) {
    if (character >= '0' && character <= '9') return character - '0';
    if (character >= 'A' && character <= 'F') return character - 'A' + 10;
    if (character >= 'a' && character <= 'f') return character - 'a' + 10;
    return -1;
}

// Two characters as one byte; the first non-hexadecimal digit ends the number.
unsigned hexByte(std::string_view line, std::size_t at) {
    unsigned value = 0;
    for (std::size_t index = at; index < at + 2 && index < line.size(); ++index) {
        const int digit = hexDigit(line[index]);
        if (digit < 0) break;
        value = value * 16 + static_cast<unsigned>(digit);
    }
    return value;
}

// The fault of the line; null if it is a valid record.
const char* faultOfLine(std::string_view line) {
    if (line[0] != 'S') return "does not begin with \"S\"";
    if (line.size() < 2 || line[1] < '0' || line[1] > '9') return "has no record type digit after the \"S\"";
    if (line.size() < 4) return "is too short to be a record";
    const unsigned count = hexByte(line, 2);
    if (count == 0) return "announces no bytes, not even a checksum";
    if ((line.size() - 4) / 2 != count) return "is not as long as its byte count says";
    unsigned sum = count;
    for (unsigned index = 0; index + 1 < count; ++index) sum += hexByte(line, 4 + 2 * index);
    const unsigned checksum = hexByte(line, 4 + 2 * (count - 1));
    return (~sum & 0xFFU) == checksum ? nullptr : "does not match its checksum";
}

// Length of the line separator at this position; 0 if there is none. LF, VT, FF, CR, and U+0085, U+2028 and U+2029 in
// UTF-8.
std::size_t separatorLength(std::string_view text, std::size_t at) {
    const auto byte = static_cast<unsigned char>(text[at]);
    if (byte >= 0x0A && byte <= 0x0D) return 1;
    if (byte == 0xC2) return text.substr(at, 2) == "\xC2\x85" ? 2 : 0;
    if (byte == 0xE2) return text.substr(at, 3) == "\xE2\x80\xA8" || text.substr(at, 3) == "\xE2\x80\xA9" ? 3 : 0;
    return 0;
}

// The path of a file URL: what follows the scheme and the host, with its percent escapes decoded. Returns nullopt if an
// escape is malformed or is a zero byte, which would end the path early.
std::optional<std::string> pathOfFileURL(std::string_view url) {
    url.remove_prefix(kFileScheme.size());
    url.remove_prefix(std::min(url.find('/'), url.size()));
    url = url.substr(0, url.find_first_of("?#"));
    std::string path;
    for (std::size_t at = 0; at < url.size(); ++at) {
        if (url[at] != '%') {
            path += url[at];
            continue;
        }
        const bool isWhole = at + 2 < url.size() && hexDigit(url[at + 1]) >= 0 && hexDigit(url[at + 2]) >= 0;
        const unsigned byte = isWhole ? hexByte(url, at + 1) : 0;
        if (byte == 0) return std::nullopt;
        path += static_cast<char>(byte);
        at += 2;
    }
    return path;
}

void logOrdinary(const std::string& text) {
    HOLVEN_Log::debug(text);
}

} // namespace

std::optional<SRecordFault> findSRecordFault(const Data& data) {
    if (data.empty()) return SRecordFault{0, "the file is empty"};
    // A padded image has zeros after its text; they are not part of a line.
    const auto end = std::ranges::find(data, std::uint8_t{0});
    const std::string_view text(reinterpret_cast<const char*>(data.data()),
                                static_cast<std::size_t>(end - data.begin()));
    // Checked for the whole text, because separators of several bytes are searched for below.
    if (!stringFromUTF8(text)) return SRecordFault{0, "the file is not text (not valid UTF-8)"};

    std::size_t lineNumber = 1;
    std::size_t start = 0;
    for (std::size_t at = 0; at <= text.size();) {
        const std::size_t separator = at == text.size() ? 1 : separatorLength(text, at);
        if (separator == 0) {
            ++at;
            continue;
        }
        const std::string_view line = text.substr(start, at - start);
        // Every separator ends a line, so CR LF yields an empty line in between, which is valid.
        if (const char* fault = line.empty() ? nullptr : faultOfLine(line)) return SRecordFault{lineNumber, fault};
        at += separator;
        start = at;
        ++lineNumber;
    }
    return std::nullopt;
}

bool verifySRecData(const Data& data) {
    return !findSRecordFault(data);
}

bool verifyMotorolaSFile(const Data& data) {
    return verifySRecData(data);
}

bool verifyMotorolaSFile(const std::filesystem::path& pathOrURL) {
    const std::string text = pathOrURL.string();
    const auto path = text.starts_with(kFileScheme) ? pathOfFileURL(text) : std::optional(text);
    return path && verifySRecData(contentsOfFile(*path).value_or(Data{}));
}

Data paddedData(Data data) {
    const std::size_t padded = paddedLength(data.size());
    logPadding(data.size(), padded);
    data.resize(padded, 0);
    return data;
}

std::size_t paddedLength(std::size_t length) {
    return (length + kPaddingBlock - 1) / kPaddingBlock * kPaddingBlock;
}

void logPadding(std::size_t length, std::size_t padded) {
    if (length != padded) logOrdinary(formatted("padding data of length %u to length %u", length, padded));
}

std::uint16_t checksumForData(const Data& data) {
    std::uint32_t unsignedSum = 0;
    std::uint32_t signedSum = 0; // two's complement; it may exceed the largest signed number
    std::for_each(data.rbegin(), data.rend(), [&](std::uint8_t byte) {
        unsignedSum += byte;
        signedSum += static_cast<std::uint32_t>(static_cast<std::int8_t>(byte));
    });
    logOrdinary(formatted("ucount = %u;scount = %d", unsignedSum, static_cast<std::int32_t>(signedSum)));
    unsignedSum ^= 0xFFFFFFFFU;
    signedSum ^= 0xFFFFFFFFU;
    logOrdinary(formatted("u16count = %u;s16count = %d", unsignedSum, static_cast<std::int32_t>(signedSum)));
    const auto low = static_cast<std::uint16_t>(unsignedSum);
    // The second value is a signed number printed in hexadecimal: a negative one is sign-extended to 32 bits.
    const auto signedLow = static_cast<std::int32_t>(static_cast<std::int16_t>(signedSum));
    logOrdinary(formatted("u16count ~= %.4x;s16count ~= %.4x", low, static_cast<std::uint32_t>(signedLow)));
    return low;
}

} // namespace zul
