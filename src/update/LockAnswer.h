// The reply of the process that holds a printer's lock to another process: one line of JSON. Pure functions, any
// thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zul {

/// The longest reply in bytes, including its line end.
inline constexpr std::size_t kLongestLockAnswer = 4096;

/// The holder of a lock and its activity. It comes from another process: display it, but do not trust it.
struct LockAnswer {
    std::string program{}; // "zulctl", "zul-printer-utility"
    int pid = 0;           // 0 if not known
    std::string user{};
    std::int64_t since = 0; // when the activity began, in seconds since 1970; 0 if not known
    std::string activity{}; // "update", "claim", "counter reset" and the like
    std::string phase{};    // of an update, by its name in the phase table; else empty
    std::string deviceID{}; // the printer's IEEE 1284 device ID, as the holder has read it; empty if not known

    bool operator==(const LockAnswer&) const = default;
};

/// The text in a form that any terminal or window can display: without control characters, line separators and marks
/// that change the direction of writing, with invalid UTF-8 replaced, and cut to at most 128 bytes.
std::string displayableName(const std::string& text);

/// The line to send, with its line end. All texts go through displayableName(); the device ID may have 1024 bytes.
std::string lockAnswerLine(const LockAnswer& answer);

/// Reads such a line, with or without its line end. It comes from another process, so it may contain anything. nullopt
/// if it is longer than kLongestLockAnswer or not a JSON object in valid UTF-8. A member that is absent or of a wrong
/// type keeps its default. The texts are limited as in lockAnswerLine(). Never throws.
std::optional<LockAnswer> parseLockAnswer(std::string_view line);

} // namespace zul
