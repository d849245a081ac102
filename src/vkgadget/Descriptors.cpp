// The little-endian descriptor blocks for FunctionFS.
// Constant; used once, when the function is opened.
#include "vkgadget/Descriptors.h"

#include "platform/foundation/Data.h"

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <linux/usb/functionfs.h>

namespace zul {

namespace {

constexpr std::uint8_t kInterfaceDescriptor = 4;
constexpr std::uint8_t kEndpointDescriptor = 5;
constexpr std::uint8_t kPrinterClass = 7;
constexpr std::uint8_t kPrinterSubclass = 1;
constexpr std::uint8_t kBidirectional = 2;
constexpr std::uint8_t kBulk = 2;
constexpr std::uint32_t kDescriptorsPerInterface = 3;

void append(Data& data, std::initializer_list<std::uint8_t> bytes) {
    data.insert(data.end(), bytes);
}

void appendNumber(Data& data, std::uint32_t number) {
    for (int shift = 0; shift < 32; shift += 8) data.push_back(static_cast<std::uint8_t>(number >> shift));
}

void setLength(Data& data) {
    for (std::size_t i = 0; i < 4; ++i) data[4 + i] = static_cast<std::uint8_t>(data.size() >> (8 * i));
}

void appendEndpoint(Data& data, std::uint8_t address, std::uint16_t packetSize) {
    // clang-format off
    append(data, { 7, kEndpointDescriptor,
                   address,                                         // unique; the core assigns the number that the host sees
                   kBulk,
                   static_cast<std::uint8_t>(packetSize & 0xFF), static_cast<std::uint8_t>(packetSize >> 8),
                   0 });                                            // interval, not used for bulk
    // clang-format on
}

void appendInterface(Data& data, std::uint8_t number, std::uint16_t packetSize) {
    // clang-format off
    append(data, { 9, kInterfaceDescriptor,
                   number,
                   0,                                               // alternate setting
                   2,                                               // endpoints
                   kPrinterClass, kPrinterSubclass, kBidirectional,
                   0 });                                            // no string
    // clang-format on
    appendEndpoint(data, static_cast<std::uint8_t>(2 * number + 1), packetSize);
    appendEndpoint(data, static_cast<std::uint8_t>(0x80 | (2 * number + 2)), packetSize);
}

} // namespace

Data functionDescriptors(int interfaces) {
    Data data;
    appendNumber(data, FUNCTIONFS_DESCRIPTORS_MAGIC_V2);
    appendNumber(data, 0); // total length, set below
    // Some hosts send the printer class's soft reset to the recipient "other", which the kernel passes on only with the
    // last flag.
    appendNumber(data, FUNCTIONFS_HAS_FS_DESC | FUNCTIONFS_HAS_HS_DESC | FUNCTIONFS_ALL_CTRL_RECIP);
    for (int speed = 0; speed < 2; ++speed) {
        appendNumber(data, kDescriptorsPerInterface * static_cast<std::uint32_t>(interfaces));
    }
    for (const std::uint16_t packetSize : {kFullSpeedPacketSize, kHighSpeedPacketSize}) {
        for (int number = 0; number < interfaces; ++number) {
            appendInterface(data, static_cast<std::uint8_t>(number), packetSize);
        }
    }
    setLength(data);
    return data;
}

Data functionStrings() {
    Data data;
    appendNumber(data, FUNCTIONFS_STRINGS_MAGIC);
    appendNumber(data, 0); // total length, set below
    appendNumber(data, 0); // strings
    appendNumber(data, 0); // languages
    setLength(data);
    return data;
}

} // namespace zul
