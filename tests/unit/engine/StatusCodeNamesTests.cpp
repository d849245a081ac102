// A literal copy of the tables of names: codes as numbers, names as texts, independent of the tables themselves.
#include "Classes/StatusCodeNames.h"

#include <cstring>
#include <doctest/doctest.h>
#include <set>
#include <string>

using namespace zul;

namespace {

struct Row {
    std::uint32_t code;
    const char* name;
};

constexpr Row kReturns[] = {
    {0, "kIOReturnSuccess"},
    {0xE0000001, "kIOReturnInvalid"},
    {0xE00002BD, "kIOReturnNoMemory"},
    {0xE00002BE, "kIOReturnNoResources"},
    {0xE00002BF, "kIOReturnIPCError"},
    {0xE00002C0, "kIOReturnNoDevice"},
    {0xE00002C1, "kIOReturnNotPrivileged"},
    {0xE00002C2, "kIOReturnBadArgument"},
    {0xE00002C3, "kIOReturnLockedRead"},
    {0xE00002C4, "kIOReturnLockedWrite"},
    {0xE00002C5, "kIOReturnExclusiveAccess"},
    {0xE00002D2, "kIOReturnStillOpen"},
    {0xE00002D6, "kIOReturnTimeout"},
    {0xE00002E7, "kIOReturnUnderrun"},
    {0xE00002E8, "kIOReturnOverrun"},
    {0xE00002E9, "kIOReturnDeviceError"},
    {0xE00002EA, "kIOReturnNoCompletion"},
    {0xE00002EB, "kIOReturnAborted"},
    {0xE00002EC, "kIOReturnNoBandwidth"},
    {0xE00002ED, "kIOReturnNotResponding"},
    {0xE00002F0, "kIOReturnNotFound"},
    {0xE0004001, "kIOUSBCRCErr"},
    {0xE0004002, "kIOUSBBitstufErr"},
    {0xE0004003, "kIOUSBDataToggleErr"},
    {0xE0004006, "kIOUSBPIDCheckErr"},
    {0xE0004007, "kIOUSBWrongPIDErr"},
    {0xE000400A, "kIOUSBReserved1Err"},
    {0xE000400B, "kIOUSBReserved2Err"},
    {0xE000400C, "kIOUSBBufferOverrunErr"},
    {0xE000400D, "kIOUSBBufferUnderrunErr"},
    {0xE000400E, "kIOUSBNotSent1Err"},
    {0xE000400F, "kIOUSBNotSent2Err"},
    {0xE0004010, "kIOUSBLinkErr"},
    {0xE000404B, "kIOUSBHighSpeedSplitError"},
    {0xE000404C, "kIOUSBLowLatencyFrameListNotPreviouslyAllocated"},
    {0xE000404D, "kIOUSBLowLatencyBufferNotPreviouslyAllocated"},
    {0xE000404E, "kIOUSBInterfaceNotFound"},
    {0xE000404F, "kIOUSBPipeStalled"},
    {0xE0004050, "kIOUSBTransactionReturned"},
    {0xE0004051, "kIOUSBTransactionTimeout"},
    {0xE0004056, "kIOUSBConfigNotFound"},
    {0xE0004057, "kIOUSBEndpointNotFound"},
    {0xE000405D, "kIOUSBNotEnoughPowerErr"},
    {0xE000405E, "kIOUSBNotEnoughPipesErr"},
    {0xE000405F, "kIOUSBNoAsyncPortErr"},
    {0xE0004060, "kIOUSBTooManyPipesErr"},
    {0xE0004061, "kIOUSBUnknownPipeErr"},
};

constexpr Row kMessages[] = {
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
};

constexpr const char* kErrnos[] = {
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
};

constexpr Row kSignals[] = {
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
};

constexpr const char* kStreamStatuses[] = {
    "kCFStreamStatusNotOpen", "kCFStreamStatusOpening", "kCFStreamStatusOpen",   "kCFStreamStatusReading",
    "kCFStreamStatusWriting", "kCFStreamStatusAtEnd",   "kCFStreamStatusClosed", "kCFStreamStatusError",
};

constexpr Row kStreamEvents[] = {
    {0, "kCFStreamEventNone"},           {1, "kCFStreamEventOpenCompleted"}, {2, "kCFStreamEventHasBytesAvailable"},
    {4, "kCFStreamEventCanAcceptBytes"}, {8, "kCFStreamEventErrorOccurred"}, {16, "kCFStreamEventEndEncountered"},
};

} // namespace

TEST_CASE("every named return code has its own name") {
    REQUIRE(std::size(kReturns) == 46 + 1);
    for (const Row& row : kReturns) CHECK(std::string(strForIOReturn(static_cast<IOReturn>(row.code))) == row.name);
}

TEST_CASE("a return code of 0 is named success") {
    CHECK(std::string(strForIOReturn(IOReturn{0})) == "kIOReturnSuccess");
}

TEST_CASE("a return code without a name is called an error, the general error code included") {
    CHECK(std::string(strForIOReturn(static_cast<IOReturn>(-1))) == "kIOReturnError");
    CHECK(std::string(strForIOReturn(static_cast<IOReturn>(0xE00002BC))) == "kIOReturnError");
    CHECK(std::string(strForIOReturn(static_cast<IOReturn>(0xE0004004))) == "kIOReturnError");
    CHECK(std::string(strForIOReturn(static_cast<IOReturn>(1))) == "kIOReturnError");
}

TEST_CASE("every service message has its name") {
    REQUIRE(std::size(kMessages) == 23);
    for (const Row& row : kMessages) CHECK(std::string(strForIOMessage(row.code)) == row.name);
}

TEST_CASE("a message without a name is unknown") {
    CHECK(std::string(strForIOMessage(0)) == "kIOMessageUnknown");
    CHECK(std::string(strForIOMessage(0xE0000011)) == "kIOMessageUnknown");
    CHECK(std::string(strForIOMessage(0xFFFFFFFF)) == "kIOMessageUnknown");
}

TEST_CASE("every error number from 1 to 43 has its symbol and description") {
    REQUIRE(std::size(kErrnos) == 43);
    for (int number = 1; number <= 43; ++number) CHECK(std::string(strForErrno(number)) == kErrnos[number - 1]);
}

TEST_CASE("error numbers are in the BSD numbering") {
    CHECK(std::string(strForErrno(11)).starts_with("EDEADLK - "));
    CHECK(std::string(strForErrno(35)).starts_with("EAGAIN - "));
}

TEST_CASE("an error number of 0, below, or from 44 on is unknown") {
    for (const int number : {0, -1, 44, 1000}) CHECK(std::string(strForErrno(number)) == "unknown");
}

TEST_CASE("every signal has its description") {
    REQUIRE(std::size(kSignals) == 30);
    for (const Row& row : kSignals) CHECK(std::string(strForSignal(static_cast<int>(row.code))) == row.name);
}

TEST_CASE("signal 7 and numbers outside 1 to 31 are unknown") {
    for (const int number : {7, 0, -1, 32}) CHECK(std::string(strForSignal(number)) == "unknown");
}

TEST_CASE("every stream status from 0 to 7 has its name, others are unknown") {
    REQUIRE(std::size(kStreamStatuses) == 8);
    for (int status = 0; status < 8; ++status)
        CHECK(std::string(strForCFStreamStatus(status)) == kStreamStatuses[status]);
    for (const int status : {-1, 8}) CHECK(std::string(strForCFStreamStatus(status)) == "kCFStreamStatusUnknown");
}

TEST_CASE("every single stream event has its name") {
    REQUIRE(std::size(kStreamEvents) == 6);
    for (const Row& row : kStreamEvents) CHECK(std::string(strForCFEventType(row.code)) == row.name);
}

TEST_CASE("a combination of stream events is unknown") {
    for (const unsigned flags : {3U, 5U, 17U, 32U})
        CHECK(std::string(strForCFEventType(flags)) == "kCFStreamEventUnknown");
}
