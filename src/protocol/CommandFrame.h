// The vendor's command frames as bytes: pure functions, no printer needed. Any thread.
#pragma once

#include "platform/foundation/Data.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zul {

// Command codes by name, for those that the program sends.
enum CommandCode : std::uint32_t {
    kCommandStatus = 0,
    kCommandFirmwareVersion = 1,
    kCommandSerialNumber = 2,
    kCommandTableClear = 19,
    kCommandTableWrite = 20,
    kCommandTableVersion = 21,
    kCommandTableName = 22,
    kCommandTableChecksum = 23,
    kCommandLifetimeCounter = 32,
    kCommandCounterClear = 35,
    kCommandEnterLoader = 40,
    kCommandProgramFlash = 41,
    kCommandSetISerial = 42,
    kCommandGetISerial = 43,
};

constexpr std::size_t kFrameHeaderSize = 32; // bytes before the payload

/// Text of the command; nullopt for the numbers that are reserved or beyond the last.
std::optional<std::string_view> commandText(std::uint32_t code);

/// How many payload bytes the frame of this command announces and carries, when given this many.
std::size_t payloadSizeForCommand(std::uint32_t code, std::size_t givenSize);

/// A frame's field for the payload's size: eight digits, or blanks for 0. Also blanks for a size that needs more than
/// eight digits: a frame must never announce fewer bytes than it carries.
std::string payloadSizeField(std::size_t size);

/// The whole frame: escape, "P", text, size of the payload, payload. A payload that does not fit a fixed size leaves
/// blanks.
Data commandFrame(std::uint32_t code, const Data* payload);

/// Numbers of the internal errors that the frame of this command with a payload of givenSize bytes has: its text (486)
/// or its payload's size (494) does not fit. Such a frame is sent all the same.
std::vector<int> commandFrameErrors(std::uint32_t code, std::size_t givenSize);

} // namespace zul
