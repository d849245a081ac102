// Generates the sample files: S-records and colour tables with valid syntax and invented contents, always the same
// bytes. Called by make_sample_archive and by tests.
#include "sample_archive/SampleFiles.h"

#include "platform/foundation/Data.h"
#include "platform/foundation/Format.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <string>
#include <string_view>
#include <vector>

namespace zul {

namespace {

// The class name of the product whose archive this is; it is the key of the digests.
constexpr std::string_view kDigestKey = "TBUSBPrinterZUL";

struct SampleFirmware {
    std::string_view version; // what the printer reports with it; the file's name without ".fw"
    unsigned addressBytes;    // 2, 3 or 4: records S1, S2 or S3, ended by S9, S8 or S7
    unsigned recordBytes;     // data bytes of one record
    unsigned records;
    std::string_view lineEnd;
};

// Sizes like real firmware, 0.5 to 3 MB of text; every record type occurs. The two-byte addresses wrap around.
constexpr auto kFirmware = std::to_array<SampleFirmware>({
    {"VK14 01.61", 4, 32, 24000, "\r\n"},
    {"VK18 01.30", 3, 32, 30000, "\r\n"},
    {"VK-RZ7 02.06", 3, 24, 40000, "\n"},
    {"VK18DUP 1.40PRN", 4, 16, 50000, "\r\n"},
    {"VK26 01.52", 2, 32, 8000, "\n"},
    {"VK28 01.05", 4, 32, 35000, "\r\n"},
});

constexpr auto kTables = std::to_array<std::string_view>(
    {"VK14_300_0161.cwd", "VK14_600_0161.cwd", "VK18_300_0130.cwd", "VK18_600_0130.cwd", "VK-RZ7_300_0201.cwd",
     "VK-RZ7_600_0100.cwd", "VK26_300_0111.cwd", "VK26_600_0111.cwd", "VK26_610_0111.cwd", "VK28_SD_300_0101.cwd",
     "VK28_PP_300_0101.cwd", "VK28_SD_600_0101.cwd", "VK28_PP_600_0101.cwd", "VK28_SD_610_0101.cwd",
     "VK28_PP_610_0101.cwd", "VK28_SD_620_0101.cwd", "VK28_PP_620_0101.cwd"});

// Pseudo-random bytes that are the same on every machine: a 64-bit xorshift, seeded with the file's name.
class Bytes {
  public:
    explicit Bytes(std::string_view seed) {
        for (const char character : seed) _state = _state * 1099511628211ULL + static_cast<unsigned char>(character);
    }
    std::uint8_t next() {
        _state ^= _state << 13;
        _state ^= _state >> 7;
        _state ^= _state << 17;
        return static_cast<std::uint8_t>(_state >> 32);
    }

  private:
    std::uint64_t _state = 14695981039346656037ULL;
};

std::string record(char type, const Data& addressAndData) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string line = {'S', type};
    unsigned sum = 0;
    const auto add = [&](unsigned byte) {
        line += kDigits[byte >> 4 & 15];
        line += kDigits[byte & 15];
        sum += byte;
    };
    add(static_cast<unsigned>(addressAndData.size() + 1));
    for (const std::uint8_t byte : addressAndData) add(byte);
    add(~sum & 0xFF);
    return line;
}

Data bigEndian(std::uint32_t value, unsigned bytes) {
    Data result;
    for (unsigned shift = bytes; shift-- > 0;) result.push_back(static_cast<std::uint8_t>(value >> 8 * shift));
    return result;
}

Data firmwareText(const SampleFirmware& firmware) {
    std::string text;
    const auto addLine = [&](const std::string& line) { text.append(line).append(firmware.lineEnd); };
    Data header = {0, 0};
    header.insert(header.end(), firmware.version.begin(), firmware.version.end());
    addLine(record('0', header));
    Bytes bytes(firmware.version);
    const char dataType = static_cast<char>('0' + firmware.addressBytes - 1);
    for (unsigned index = 0; index < firmware.records; ++index) {
        Data contents = bigEndian(index * firmware.recordBytes, firmware.addressBytes);
        for (unsigned byte = 0; byte < firmware.recordBytes; ++byte) contents.push_back(bytes.next());
        addLine(record(dataType, contents));
    }
    const bool fitsShortCount = firmware.records <= 0xFFFF && firmware.addressBytes != 3;
    addLine(record(fitsShortCount ? '5' : '6', bigEndian(firmware.records, fitsShortCount ? 2 : 3)));
    addLine(record(static_cast<char>('0' + 11 - firmware.addressBytes), bigEndian(0, firmware.addressBytes)));
    return dataFromText(text);
}

Data tableContents(std::string_view name) {
    constexpr std::size_t kSmallest = 24 * 1024;
    Bytes bytes(name);
    // Odd lengths on purpose: tables are sent unpadded.
    Data contents(kSmallest + 64 * std::size_t{bytes.next()} + 1);
    for (std::uint8_t& byte : contents) byte = bytes.next();
    return contents;
}

} // namespace

std::vector<SampleFile> sampleFiles() {
    std::vector<SampleFile> files;
    for (const SampleFirmware& firmware : kFirmware) {
        files.push_back({std::string(firmware.version) + ".fw", firmwareText(firmware)});
    }
    for (const std::string_view name : kTables) files.push_back({std::string(name), tableContents(name)});
    return files;
}

std::string sampleDigest(const Data& contents) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned length = 0;
    HMAC(EVP_sha256(), kDigestKey.data(), static_cast<int>(kDigestKey.size()), contents.data(), contents.size(),
         digest.data(), &length);
    std::string text;
    for (unsigned index = 0; index < length; ++index) text += formatted("%.2x", digest[index]);
    return text + "00"; // every digest text includes a final zero byte
}

} // namespace zul
