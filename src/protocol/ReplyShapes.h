// The form that a reply to a query can have. Replies carry no mark of their query, so one that came too late is read as
// the reply to the next; most of those are recognised by their form. When in doubt a form fits: a reply that does not
// fit costs one repeated query, and a reply that is repeated word for word is taken for the printer's answer. Pure
// functions, no printer needed. Any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace zul {

enum class ReplyShape {
    anyText,
    status,           // "00000", "01000 now", "FU00001"
    firmwareVersion,  // "VK14 01.60", "RZ7_ALLFWU_2.05"
    serialNumber,     // any short text
    lifetimeCounter,  // "CL0000042", "12345"
    tableVersion,     // "0160"
    tableChecksum,    // "1F2E"
    usbSerialSetting, // "0001"
};

/// The shape of the answers to a command; anyText for commands whose answers are not judged.
ReplyShape replyShapeFor(std::uint32_t command);

/// Whether the body of a reply, up to its carriage return, can be an answer of this shape. An empty one always can;
/// text that is not UTF-8 (nullopt) never.
bool fitsShape(const std::optional<std::string>& text, ReplyShape shape);

/// Whether these bytes are the header of a reply: eight digits, of which some may be blank at either end.
bool isReplyHeader(std::span<const std::uint8_t> bytes);

} // namespace zul
