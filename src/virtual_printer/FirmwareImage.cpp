// Parses S-records line by line, deliberately without the program's own check. Called by a virtual printer when an
// image is complete.
#include "virtual_printer/FirmwareImage.h"

#include "platform/foundation/Data.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <sstream>
#include <string>

namespace zul {

namespace {

std::optional<Data> bytesOfHex(const std::string& hex) {
    const auto valueOf = [](char digit) {
        if (digit >= '0' && digit <= '9') return digit - '0';
        if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
        if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
        return -1;
    };
    if (hex.size() % 2 != 0) return std::nullopt;
    Data bytes;
    bytes.reserve(hex.size() / 2);
    for (std::size_t at = 0; at < hex.size(); at += 2) {
        const int high = valueOf(hex[at]);
        const int low = valueOf(hex[at + 1]);
        if (high < 0 || low < 0) return std::nullopt;
        bytes.push_back(static_cast<std::uint8_t>(high << 4 | low));
    }
    return bytes;
}

// The record's bytes without count and checksum; nullopt if the record is invalid.
std::optional<Data> contentsOfRecord(const std::string& line) {
    if (line.size() < 4 || line[0] != 'S' || line[1] < '0' || line[1] > '9') return std::nullopt;
    auto bytes = bytesOfHex(line.substr(2));
    if (!bytes || bytes->size() < 2 || bytes->front() != bytes->size() - 1) return std::nullopt;
    unsigned sum = 0;
    for (const std::uint8_t byte : *bytes) sum += byte;
    if ((sum & 0xFF) != 0xFF) return std::nullopt; // the checksum complements the rest
    return Data(bytes->begin() + 1, bytes->end() - 1);
}

std::size_t numberOf(const Data& bigEndian) {
    std::size_t number = 0;
    for (const std::uint8_t byte : bigEndian) number = number << 8 | byte;
    return number;
}

} // namespace

std::optional<std::string> versionOfFirmwareImage(const Data& image) {
    std::string text(image.begin(), image.end());
    // The host pads the image with zeros.
    text.resize(text.find_last_not_of('\0') + 1);
    std::istringstream lines(text);
    std::optional<std::string> version;
    std::size_t dataRecords = 0;
    bool ended = false;
    for (std::string line; std::getline(lines, line);) {
        if (line.ends_with('\r')) line.pop_back();
        if (line.empty()) continue;
        const auto contents = contentsOfRecord(line);
        // One bad record, or a record after the end, makes the whole image invalid.
        if (!contents || ended) return std::nullopt;
        // Types 1 to 3 carry data, 5 and 6 their number, 0 the version, 7 to 9 end the image.
        if (line[1] >= '1' && line[1] <= '3') ++dataRecords;
        if ((line[1] == '5' || line[1] == '6') && numberOf(*contents) != dataRecords) return std::nullopt;
        if (line[1] == '0' && contents->size() > 2) version = std::string(contents->begin() + 2, contents->end());
        ended = line[1] >= '7';
    }
    return ended ? version : std::nullopt;
}

} // namespace zul
