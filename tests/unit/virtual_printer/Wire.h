// Helpers of the virtual printer tests: frames as a program sends them, replies as it reads them, and images.
#pragma once

#include "platform/foundation/Data.h"
#include "virtual_printer/VirtualPrinter.h"

#include <cstdio>
#include <doctest/doctest.h>
#include <string>
#include <vector>

namespace zul {

/// The 32 bytes of a frame header with these fields, padded with blanks.
inline Data header(const std::string& text, const std::string& size) {
    std::string bytes = "\x1BP" + text;
    bytes.resize(24, ' ');
    bytes += size;
    bytes.resize(32, ' ');
    return dataFromText(bytes);
}

inline Data frame(const std::string& text, const Data& payload = {}) {
    char size[9] = "";
    if (!payload.empty()) std::snprintf(size, sizeof(size), "%08zu", payload.size());
    Data bytes = header(text, size);
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    return bytes;
}

inline Data joined(const Data& one, const Data& other) {
    Data both = one;
    both.insert(both.end(), other.begin(), other.end());
    return both;
}

/// One S-record: type and the bytes between its count and its checksum.
inline std::string record(char type, const Data& contents) {
    char digits[3];
    unsigned sum = static_cast<unsigned>(contents.size() + 1);
    std::string line = {'S', type};
    std::snprintf(digits, sizeof(digits), "%02X", sum);
    line += digits;
    for (const std::uint8_t byte : contents) {
        std::snprintf(digits, sizeof(digits), "%02X", static_cast<unsigned>(byte));
        line += digits;
        sum += byte;
    }
    std::snprintf(digits, sizeof(digits), "%02X", ~sum & 0xFF);
    return line + digits;
}

/// A valid image of two data records with this version.
inline std::string imageText(const std::string& version) {
    Data name = joined({0, 0}, dataFromText(version));
    return record('0', name) + "\r\n" + record('1', {0, 0, 1, 2, 3}) + "\r\n" + record('1', {0, 3, 4, 5, 6}) + "\r\n" +
           record('5', {0, 2}) + "\r\n" + record('9', {0, 0}) + "\r\n";
}

inline Data image(const std::string& version) {
    return dataFromText(imageText(version));
}

inline VirtualPrinterSettings described(const std::string& description) {
    const auto parse = parseVirtualPrinter(description);
    REQUIRE_MESSAGE(parse.settings, parse.problem);
    return *parse.settings;
}

/// The data that the printer sends, transfer by transfer.
inline std::vector<std::string> textsOf(const VirtualEffects& effects) {
    std::vector<std::string> texts;
    for (const VirtualTransfer& transfer : effects.transfers) {
        texts.push_back(transfer.isStall ? "(stall)" : std::string(transfer.bytes.begin(), transfer.bytes.end()));
    }
    return texts;
}

using Texts = std::vector<std::string>;

/// The reply to one command, transfer by transfer.
inline Texts answers(VirtualPrinter& printer, const std::string& command, const Data& payload = {}) {
    return textsOf(printer.receive(frame(command, payload)));
}

/// The body of the reply; empty if there is none.
inline std::string body(VirtualPrinter& printer, const std::string& command, const std::string& payload = {}) {
    const Texts texts = answers(printer, command, dataFromText(payload));
    if (texts.size() != 2 || !texts[1].ends_with('\r')) return {};
    return texts[1].substr(0, texts[1].size() - 1);
}

} // namespace zul
