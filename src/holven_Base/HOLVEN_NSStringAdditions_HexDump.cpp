// Hex dumps: one row format for the traffic log and for whole dumps.
// Pure functions; any thread.
#include "holven_Base/HOLVEN_NSStringAdditions.h"
#include "platform/foundation/Data.h"
#include "platform/foundation/Format.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <utility>

namespace zul {

namespace {
constexpr std::size_t kRowLength = 16;

void appendRepeats(std::string& text, unsigned long& repeats) {
    if (repeats > 0) text += formatted("* last line repeated %lu times\n", repeats);
    repeats = 0;
}
} // namespace

std::string hexDumpRow(std::span<const std::uint8_t> row, PercentSign percentSign) {
    std::string text;
    for (std::size_t cell = 0; cell < kRowLength; ++cell) {
        text += cell < row.size() ? formatted("%.2x ", row[cell]) : "   ";
        if (cell == 7) text += ' ';
    }
    text += " |";
    for (const std::uint8_t byte : row) {
        if (byte == '%' && percentSign == PercentSign::doubled) text += '%';
        text += byte >= 0x20 && byte <= 0x7E ? static_cast<char>(byte) : '.';
    }
    return text + '|';
}

std::string hexdump(const Data& data, std::size_t location, std::size_t length) {
    const std::size_t start = std::min(location, data.size());
    const std::span<const std::uint8_t> bytes = std::span(data).subspan(start, std::min(length, data.size() - start));
    std::string text;
    std::string lastRow;
    unsigned long repeats = 0;
    for (std::size_t offset = 0; offset < bytes.size(); offset += kRowLength) {
        const auto part = bytes.subspan(offset, std::min(kRowLength, bytes.size() - offset));
        std::string row = hexDumpRow(part, PercentSign::single);
        if (row == lastRow) {
            ++repeats;
            continue;
        }
        appendRepeats(text, repeats);
        text += formatted("%.8lx  %s\n", static_cast<unsigned long>(start + offset), row);
        lastRow = std::move(row);
    }
    appendRepeats(text, repeats);
    return text;
}

} // namespace zul
