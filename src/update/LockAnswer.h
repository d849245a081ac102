// What the holder of a printer's lock answers to other processes: one line of JSON. Pure functions over text, any
// thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zul {

/// No answer is longer, its line end included, in bytes.
inline constexpr std::size_t kLongestLockAnswer = 4096;

struct LockAnswer {
    std::string program{}; // "zulctl", "zul-printer-utility"
    int pid = 0;           // 0 if not known
    std::string user{};
    std::int64_t since = 0; // when the lock was taken, in seconds since 1970; 0 if not known
    std::string activity{}; // "update", "claim", "counter reset" and the like
    std::string phase{};    // of an update, by its name in the phase table

    bool operator==(const LockAnswer&) const = default;
};

/// The text as it can be displayed anywhere, at most 128 bytes of it: without control characters and marks that change
/// the direction of writing, invalid UTF-8 replaced.
std::string displayableName(const std::string& text);

/// The line that is sent, with its line end. All texts are made displayable.
std::string lockAnswerLine(const LockAnswer& answer);

/// Reads such a line, with or without its line end; it comes from another process, so it may be anything. nullopt for
/// what is too long or not an object in valid UTF-8. A member that is absent or of a wrong type keeps its default;
/// texts are treated as for sending. Never throws.
std::optional<LockAnswer> parseLockAnswer(std::string_view line);

} // namespace zul
