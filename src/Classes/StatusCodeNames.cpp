// Names of status and event codes. Every table is sorted by code, which the compiler checks. Any thread; called where a
// code is logged or shown.
#include "Classes/StatusCodeNames.h"

#include "platform/usb/IOReturn.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

namespace zul {

namespace {

template <class Code> struct CodeName {
    Code code;
    const char* name;
};

template <class Table> constexpr bool isSortedAndUnique(const Table& table) {
    return std::ranges::adjacent_find(table, [](const auto& one, const auto& next) { return one.code >= next.code; }) ==
           table.end();
}

template <class Table, class Code> const char* nameForCode(const Table& table, Code code, const char* fallback) {
    const auto found = std::ranges::lower_bound(table, code, {}, [](const auto& entry) { return entry.code; });
    return found != table.end() && found->code == code ? found->name : fallback;
}

constexpr auto kStreamStatusNames = std::to_array<CodeName<int>>({
    {0, "kCFStreamStatusNotOpen"},
    {1, "kCFStreamStatusOpening"},
    {2, "kCFStreamStatusOpen"},
    {3, "kCFStreamStatusReading"},
    {4, "kCFStreamStatusWriting"},
    {5, "kCFStreamStatusAtEnd"},
    {6, "kCFStreamStatusClosed"},
    {7, "kCFStreamStatusError"},
});
static_assert(kStreamStatusNames.size() == 8 && isSortedAndUnique(kStreamStatusNames));

// Single flags only: a combination has no name.
constexpr auto kStreamEventNames = std::to_array<CodeName<unsigned>>({
    {0, "kCFStreamEventNone"},
    {1, "kCFStreamEventOpenCompleted"},
    {2, "kCFStreamEventHasBytesAvailable"},
    {4, "kCFStreamEventCanAcceptBytes"},
    {8, "kCFStreamEventErrorOccurred"},
    {16, "kCFStreamEventEndEncountered"},
});
static_assert(kStreamEventNames.size() == 6 && isSortedAndUnique(kStreamEventNames));

// The last row is not a message: it is the USB error of the same value, and is named so on purpose.
constexpr auto kMessageNames = std::to_array<CodeName<std::uint32_t>>({
    {0xE0000010, "kIOMessageServiceIsTerminated"},     {0xE0000020, "kIOMessageServiceIsSuspended"},
    {0xE0000030, "kIOMessageServiceIsResumed"},        {0xE0000100, "kIOMessageServiceIsRequestingClose"},
    {0xE0000101, "kIOMessageServiceIsAttemptingOpen"}, {0xE0000110, "kIOMessageServiceWasClosed"},
    {0xE0000120, "kIOMessageServiceBusyStateChange"},  {0xE0000130, "kIOMessageServicePropertyChange"},
    {0xE0000200, "kIOMessageCanDevicePowerOff"},       {0xE0000210, "kIOMessageDeviceWillPowerOff"},
    {0xE0000220, "kIOMessageDeviceWillNotPowerOff"},   {0xE0000230, "kIOMessageDeviceHasPoweredOn"},
    {0xE0000240, "kIOMessageCanSystemPowerOff"},       {0xE0000250, "kIOMessageSystemWillPowerOff"},
    {0xE0000260, "kIOMessageSystemWillNotPowerOff"},   {0xE0000270, "kIOMessageCanSystemSleep"},
    {0xE0000280, "kIOMessageSystemWillSleep"},         {0xE0000290, "kIOMessageSystemWillNotSleep"},
    {0xE0000300, "kIOMessageSystemHasPoweredOn"},      {0xE0000310, "kIOMessageSystemWillRestart"},
    {0xE0000320, "kIOMessageSystemWillPowerOn"},       {0xE0000330, "kIOMessageCopyClientID"},
    {0xE000400D, "kIOUSBBufferUnderrunErr"},
});
static_assert(kMessageNames.size() == 23 && isSortedAndUnique(kMessageNames));

// kIOReturnError is not in the table: it is what every code without a name is called, itself included.
constexpr auto kReturnNames = std::to_array<CodeName<IOReturn>>({
    {kIOReturnSuccess, "kIOReturnSuccess"},
    {kIOReturnInvalid, "kIOReturnInvalid"},
    {kIOReturnNoMemory, "kIOReturnNoMemory"},
    {kIOReturnNoResources, "kIOReturnNoResources"},
    {kIOReturnIPCError, "kIOReturnIPCError"},
    {kIOReturnNoDevice, "kIOReturnNoDevice"},
    {kIOReturnNotPrivileged, "kIOReturnNotPrivileged"},
    {kIOReturnBadArgument, "kIOReturnBadArgument"},
    {kIOReturnLockedRead, "kIOReturnLockedRead"},
    {kIOReturnLockedWrite, "kIOReturnLockedWrite"},
    {kIOReturnExclusiveAccess, "kIOReturnExclusiveAccess"},
    {kIOReturnStillOpen, "kIOReturnStillOpen"},
    {kIOReturnTimeout, "kIOReturnTimeout"},
    {kIOReturnUnderrun, "kIOReturnUnderrun"},
    {kIOReturnOverrun, "kIOReturnOverrun"},
    {kIOReturnDeviceError, "kIOReturnDeviceError"},
    {kIOReturnNoCompletion, "kIOReturnNoCompletion"},
    {kIOReturnAborted, "kIOReturnAborted"},
    {kIOReturnNoBandwidth, "kIOReturnNoBandwidth"},
    {kIOReturnNotResponding, "kIOReturnNotResponding"},
    {kIOReturnNotFound, "kIOReturnNotFound"},
    {kIOUSBCRCErr, "kIOUSBCRCErr"},
    {kIOUSBBitstufErr, "kIOUSBBitstufErr"},
    {kIOUSBDataToggleErr, "kIOUSBDataToggleErr"},
    {kIOUSBPIDCheckErr, "kIOUSBPIDCheckErr"},
    {kIOUSBWrongPIDErr, "kIOUSBWrongPIDErr"},
    {kIOUSBReserved1Err, "kIOUSBReserved1Err"},
    {kIOUSBReserved2Err, "kIOUSBReserved2Err"},
    {kIOUSBBufferOverrunErr, "kIOUSBBufferOverrunErr"},
    {kIOUSBBufferUnderrunErr, "kIOUSBBufferUnderrunErr"},
    {kIOUSBNotSent1Err, "kIOUSBNotSent1Err"},
    {kIOUSBNotSent2Err, "kIOUSBNotSent2Err"},
    {kIOUSBLinkErr, "kIOUSBLinkErr"},
    {kIOUSBHighSpeedSplitError, "kIOUSBHighSpeedSplitError"},
    {kIOUSBLowLatencyFrameListNotPreviouslyAllocated, "kIOUSBLowLatencyFrameListNotPreviouslyAllocated"},
    {kIOUSBLowLatencyBufferNotPreviouslyAllocated, "kIOUSBLowLatencyBufferNotPreviouslyAllocated"},
    {kIOUSBInterfaceNotFound, "kIOUSBInterfaceNotFound"},
    {kIOUSBPipeStalled, "kIOUSBPipeStalled"},
    {kIOUSBTransactionReturned, "kIOUSBTransactionReturned"},
    {kIOUSBTransactionTimeout, "kIOUSBTransactionTimeout"},
    {kIOUSBConfigNotFound, "kIOUSBConfigNotFound"},
    {kIOUSBEndpointNotFound, "kIOUSBEndpointNotFound"},
    {kIOUSBNotEnoughPowerErr, "kIOUSBNotEnoughPowerErr"},
    {kIOUSBNotEnoughPipesErr, "kIOUSBNotEnoughPipesErr"},
    {kIOUSBNoAsyncPortErr, "kIOUSBNoAsyncPortErr"},
    {kIOUSBTooManyPipesErr, "kIOUSBTooManyPipesErr"},
    {kIOUSBUnknownPipeErr, "kIOUSBUnknownPipeErr"},
});
static_assert(kReturnNames.size() == 47 && isSortedAndUnique(kReturnNames));

// Numbered as on the systems that the printers' tools come from (35 is EAGAIN), not as on Linux; row n is number n + 1.
constexpr auto kErrnoNames = std::to_array<const char*>({
    "EPERM - Operation not permitted",
    "ENOENT - No such file or directory",
    "ESRCH - No such process",
    "EINTR - Interrupted system call",
    "EIO - Input/output error",
    "ENXIO - Device not configured",
    "E2BIG - Argument list too long",
    "ENOEXEC - Exec format error",
    "EBADF - Bad file descriptor",
    "ECHILD - No child processes",
    "EDEADLK - Resource deadlock avoided",
    "ENOMEM - Cannot allocate memory",
    "EACCES - Permission denied",
    "EFAULT - Bad address",
    "ENOTBLK - Block device required",
    "EBUSY - Device / Resource busy",
    "EEXIST - File exists",
    "EXDEV - Cross-device link",
    "ENODEV - Operation not supported by device",
    "ENOTDIR - Not a directory",
    "EISDIR - Is a directory",
    "EINVAL - Invalid argument",
    "ENFILE - Too many open files in system",
    "EMFILE - Too many open files",
    "ENOTTY - Inappropriate ioctl for device",
    "ETXTBSY - Text file busy",
    "EFBIG - File too large",
    "ENOSPC - No space left on device",
    "ESPIPE - Illegal seek",
    "EROFS - Read-only file system",
    "EMLINK - Too many links",
    "EPIPE - Broken pipe",
    "EDOM - Numerical argument out of domain",
    "ERANGE - Result too large",
    "EAGAIN - Resource temporarily unavailable; Operation would block",
    "EINPROGRESS - Operation now in progress",
    "EALREADY - Operation already in progress",
    "ENOTSOCK - Socket operation on non-socket",
    "EDESTADDRREQ - Destination address required",
    "EMSGSIZE - Message too long",
    "EPROTOTYPE - Protocol wrong type for socket",
    "ENOPROTOOPT - Protocol not available",
    "EPROTONOSUPPORT - Protocol not supported",
});
static_assert(kErrnoNames.size() == 43);

// 7 has no row on purpose. The numbering is that of the error numbers above.
constexpr auto kSignalNames = std::to_array<CodeName<int>>({
    {1, "HangUP"},
    {2, "INTerrupt"},
    {3, "QUIT"},
    {4, "ILLegal instruction"},
    {5, "trace TRAP"},
    {6, "ABoRT"},
    {8, "Floating Point Exception"},
    {9, "KILL"},
    {10, "BUS error"},
    {11, "SEGmentation Violation"},
    {12, "bad argument to SYStem call"},
    {13, "write on a PIPE with no one to read it"},
    {14, "ALaRM clock"},
    {15, "software TERMination signal from kill"},
    {16, "URGent condition on IO channel"},
    {17, "sendable STOP signal not from tty"},
    {18, "Tty SToP signal"},
    {19, "CONTinue a stopped process"},
    {20, "to parent on CHiLD stop or exit"},
    {21, "to readers pgrp upon background TTy read IN"},
    {22, "like TTin for OUtput"},
    {23, "Input/Output possible signal"},
    {24, "eXceeded CPU time limit"},
    {25, "eXceeded File SiZe limit"},
    {26, "Virtual Time ALaRM"},
    {27, "PROFiling time alarm"},
    {28, "WINdow size CHanges"},
    {29, "INFOrmation request"},
    {30, "USeR 1"},
    {31, "USeR 2"},
});
static_assert(kSignalNames.size() == 30 && isSortedAndUnique(kSignalNames));

} // namespace

const char* strForCFStreamStatus(int status) {
    return nameForCode(kStreamStatusNames, status, "kCFStreamStatusUnknown");
}

const char* strForCFEventType(unsigned eventType) {
    return nameForCode(kStreamEventNames, eventType, "kCFStreamEventUnknown");
}

const char* strForIOMessage(std::uint32_t message) {
    return nameForCode(kMessageNames, message, "kIOMessageUnknown");
}

const char* strForIOReturn(IOReturn code) {
    return nameForCode(kReturnNames, code, "kIOReturnError");
}

const char* strForErrno(int number) {
    if (number < 1 || number > static_cast<int>(kErrnoNames.size())) return "unknown";
    return kErrnoNames[static_cast<std::size_t>(number - 1)];
}

const char* strForSignal(int signal) {
    return nameForCode(kSignalNames, signal, "unknown");
}

} // namespace zul
