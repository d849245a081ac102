// The path of the running program.
// Called for diagnostics; any thread.
#include "holven_Base/HOLVEN_NSObjectAdditions.h"

#include "holven_Base/HOLVEN_NSStringAdditions.h"
#include "holven_Base/HostProbe.h"
#include "platform/foundation/Format.h"

#include <optional>
#include <string>

namespace zul {

std::optional<std::string> pathToSelf() {
    const auto reported = HostProbe::current().executablePath();
    if (!reported || reported->empty()) return std::nullopt;
    const auto path = stringWithCString(reported->c_str(), reported->size(), StringEncoding::utf8);
    // Logged three times on purpose: support searches for a group of three lines.
    for (int line = 0; line < 3; ++line) {
        logText("2010-04-23tavik pathToSelf will return: %s", textOrNull(path));
    }
    return path;
}

} // namespace zul
