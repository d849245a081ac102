// Fields that belong to a printer object's record and that no operation uses, on any queue.
#pragma once

#include "platform/usb/IOReturn.h"

#include <cstdint>

namespace zul {

struct UnusedRecord {
    std::uint8_t configurationIndex = 0;
    std::uint8_t interfaceProtocol = 0;
    std::uint8_t interfaceNumber = 0;
    std::uint8_t interfaceAlternate = 0;
    std::uint32_t deviceProperties = 0;
    std::uint32_t readByteCount = 0;
    std::uint32_t writeByteCount = 0;
    std::uint32_t completedCount = 0;
    IOReturn USBReadStatus = kIOReturnSuccess;
};

} // namespace zul
