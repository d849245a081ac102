// The return codes of all USB operations. One 32-bit code space for all buses: a bus converts its own codes where they
// enter, and passes unknown values through.
#pragma once

#include <cstdint>

namespace zul {

/// Not ignored by accident: a caller that does not need a code casts it to void. Any other 32-bit value is a valid
/// code, too.
enum class [[nodiscard]] IOReturn : std::uint32_t{
    kIOReturnSuccess = 0,
    kIOReturnInvalid = 0xE0000001,
    kIOReturnError = 0xE00002BC, // any failure without a specific code
    kIOReturnNoMemory = 0xE00002BD,
    kIOReturnNoResources = 0xE00002BE,
    kIOReturnIPCError = 0xE00002BF,
    kIOReturnNoDevice = 0xE00002C0,      // the device has left the bus
    kIOReturnNotPrivileged = 0xE00002C1, // no permission to open the device node
    kIOReturnBadArgument = 0xE00002C2,
    kIOReturnLockedRead = 0xE00002C3,
    kIOReturnLockedWrite = 0xE00002C4,
    kIOReturnExclusiveAccess = 0xE00002C5, // another process holds the interface
    kIOReturnStillOpen = 0xE00002D2,
    kIOReturnTimeout = 0xE00002D6,
    kIOReturnUnderrun = 0xE00002E7,
    kIOReturnOverrun = 0xE00002E8,
    kIOReturnDeviceError = 0xE00002E9,
    kIOReturnNoCompletion = 0xE00002EA,
    kIOReturnAborted = 0xE00002EB,
    kIOReturnNoBandwidth = 0xE00002EC,
    kIOReturnNotResponding = 0xE00002ED,
    kIOReturnNotFound = 0xE00002F0,
    kIOUSBCRCErr = 0xE0004001,
    kIOUSBBitstufErr = 0xE0004002,
    kIOUSBDataToggleErr = 0xE0004003,
    kIOUSBPIDCheckErr = 0xE0004006,
    kIOUSBWrongPIDErr = 0xE0004007,
    kIOUSBReserved1Err = 0xE000400A,
    kIOUSBReserved2Err = 0xE000400B,
    kIOUSBBufferOverrunErr = 0xE000400C,
    kIOUSBBufferUnderrunErr = 0xE000400D,
    kIOUSBNotSent1Err = 0xE000400E,
    kIOUSBNotSent2Err = 0xE000400F,
    kIOUSBLinkErr = 0xE0004010,
    kIOUSBHighSpeedSplitError = 0xE000404B,
    kIOUSBLowLatencyFrameListNotPreviouslyAllocated = 0xE000404C,
    kIOUSBLowLatencyBufferNotPreviouslyAllocated = 0xE000404D,
    kIOUSBInterfaceNotFound = 0xE000404E,
    kIOUSBPipeStalled = 0xE000404F,
    kIOUSBTransactionReturned = 0xE0004050,
    kIOUSBTransactionTimeout = 0xE0004051,
    kIOUSBConfigNotFound = 0xE0004056,
    kIOUSBEndpointNotFound = 0xE0004057,
    kIOUSBNotEnoughPowerErr = 0xE000405D,
    kIOUSBNotEnoughPipesErr = 0xE000405E,
    kIOUSBNoAsyncPortErr = 0xE000405F,
    kIOUSBTooManyPipesErr = 0xE0004060,
    kIOUSBUnknownPipeErr = 0xE0004061,
};
using enum IOReturn;

/// The code as log lines print it with "%d".
constexpr std::int32_t asSigned(IOReturn code) {
    return static_cast<std::int32_t>(code);
}

/// The code as log lines print it with "%x".
constexpr std::uint32_t asHex(IOReturn code) {
    return static_cast<std::uint32_t>(code);
}

/// Messages about a service to contexts that registered interest in it.
enum class IOMessage : std::uint32_t {
    kIOMessageServiceIsTerminated = 0xE0000010,
    kIOMessageServiceIsAttemptingOpen = 0xE0000101,
    kIOMessageServiceWasClosed = 0xE0000110,
    kIOMessageServiceBusyStateChange = 0xE0000120,
};
using enum IOMessage;

} // namespace zul
