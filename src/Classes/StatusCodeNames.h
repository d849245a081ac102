// Names of status and event codes, for log lines. Every function answers a constant text, never null. Any thread.
#pragma once

#include "platform/usb/IOReturn.h"

#include <cstdint>

namespace zul {

/// A stream's status, 0 to 7; "kCFStreamStatusUnknown" for anything else.
const char* strForCFStreamStatus(int status);
/// One stream event flag; "kCFStreamEventUnknown" for anything else, a combination of flags included.
const char* strForCFEventType(unsigned eventType);
/// A service's message code; "kIOMessageUnknown" for one without a name.
const char* strForIOMessage(std::uint32_t message);
/// A return code; "kIOReturnError" for every failure without a name.
const char* strForIOReturn(IOReturn code);
/// Symbolic name and description of an error number in the BSD numbering (1 to 43); "unknown" for any other.
const char* strForErrno(int number);
/// Description of a signal number in the BSD numbering (1 to 31 without 7); "unknown" for any other.
const char* strForSignal(int signal);

} // namespace zul
