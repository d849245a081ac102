// Quotes for a POSIX shell.
// Called for proposed commands; any thread.
#include "platform/foundation/ShellWord.h"

#include <string>
#include <string_view>

namespace zul {

std::string shellWord(const std::string& text) {
    constexpr std::string_view kPlain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-./+,:@%";
    if (!text.empty() && text.find_first_not_of(kPlain) == std::string::npos) return text;
    std::string quoted = "'";
    for (const char character : text) {
        if (character == '\'') {
            quoted += "'\\''"; // closes the quotes, adds an escaped quote, and opens them again
        } else {
            quoted += character;
        }
    }
    return quoted + "'";
}

} // namespace zul
