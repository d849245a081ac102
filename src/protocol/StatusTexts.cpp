// The table of status codes and their texts. Pure functions, any thread; called by the engine for each status that was
// read, and by the programs.
#include "protocol/StatusTexts.h"

#include "platform/foundation/Data.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zul {

namespace {

struct StatusText {
    std::int64_t code;
    std::string_view text;
};

// Shown as they are in every language: the mixed capitals are the vendor's, and operators know the texts from the
// printers' manuals.
constexpr auto kStatusTexts = std::to_array<StatusText>({
    {0, "Idle"},
    {1, "Printing"},
    {500, "Head cool down cycle"},
    {510, "Motor cool down cycle"},
    {900, "Sleeping (standby mode)"},
    {1000, "Cover Open"},
    {1010, "Scrap Box Missing"},
    {1100, "Paper End"},
    {1200, "Ribbon End"},
    {1300, "Paper Jam"},
    {1400, "Ribbon Error"},
    {1500, "Wrong Paper"},
    {1600, "Bad Data"},
    {2000, "Head Voltage Error"},
    {2100, "Head Position Error"},
    {2200, "Power supply Error"},
    {2300, "Cutter Error"},
    {2400, "Pinch Roller Error"},
    {2500, "Head Temp High Error"},
    {2600, "Media Temp Error"},
    {2610, "Motor Temp Error"},
    {2700, "Ribbon Tension Error"},
    {2800, "RFID Module Error"},
    {3000, "System Fail Error"},
});
static_assert(kStatusTexts.size() == 24 && std::ranges::is_sorted(kStatusTexts, {}, &StatusText::code));

} // namespace

std::string textForStatus(const std::optional<std::string>& rawStatus) {
    if (rawStatus == kLoaderStatus) return "Firmware Update Mode";
    if (!rawStatus) return "<NULL>";
    // The number alone decides: some printers add text after it ("01000 now").
    const std::int64_t code = integerValue(*rawStatus);
    const auto found = std::ranges::lower_bound(kStatusTexts, code, {}, &StatusText::code);
    return found == kStatusTexts.end() || found->code != code ? "Unknown Status" : std::string(found->text);
}

} // namespace zul
