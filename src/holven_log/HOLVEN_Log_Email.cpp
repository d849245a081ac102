// Checks e-mail addresses as users type them into a form.
// A pure function; any thread.
#include "holven_log/HOLVEN_Log.h"
#include "platform/foundation/Format.h"

#include <string>
#include <unicode/locid.h>
#include <unicode/regex.h>
#include <unicode/unistr.h>

namespace zul {

namespace {

// A local part, "@", and a dotted domain or a bracketed address. The range \x21-\x5a\x53-\x7f overlaps itself and is
// kept, so that the same addresses are accepted as before.
// clang-format off
constexpr const char* kAddressPattern =
    R"x((?:[a-z0-9!#$%\&'*+/=?\^_`{|}~-]+(?:\.[a-z0-9!#$%\&'*+/=?\^_`{|}~-]+)*)x"
    R"x(|"(?:[\x01-\x08\x0b\x0c\x0e-\x1f\x21\x23-\x5b\x5d-\x7f]|\\[\x01-\x09\x0b\x0c\x0e-\x7f])*")@)x"
    R"x((?:(?:[a-z0-9](?:[a-z0-9-]*[a-z0-9])?\.)+[a-z0-9](?:[a-z0-9-]*[a-z0-9])?)x"
    R"x(|\[(?:(?:25[0-5]|2[0-4][0-9]|[01]?[0-9][0-9]?)\.){3}(?:25[0-5]|2[0-4][0-9]|[01]?[0-9][0-9]?)x"
    R"x(|[a-z0-9-]*[a-z0-9]:(?:[\x01-\x08\x0b\x0c\x0e-\x1f\x21-\x5a\x53-\x7f]|\\[\x01-\x09\x0b\x0c\x0e-\x7f])+)\]))x";
// clang-format on

} // namespace

bool HOLVEN_Log::validateEmailAddress(const std::string& emailAddress) {
    icu::UnicodeString address = icu::UnicodeString::fromUTF8(emailAddress);
    logText("Passed emailAddress=[%s] with length=[%lu]...", emailAddress,
            static_cast<unsigned long>(address.length()));
    UErrorCode status = U_ZERO_ERROR;
    icu::RegexMatcher matcher(icu::UnicodeString::fromUTF8(kAddressPattern), /*flags=*/0, status);
    if (U_FAILURE(status)) return false;
    matcher.reset(address.toLower(icu::Locale::getRoot()));
    const bool matches = matcher.matches(status);
    return U_SUCCESS(status) && matches;
}

} // namespace zul
