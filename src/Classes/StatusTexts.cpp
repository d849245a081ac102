#include "Classes/StatusTexts.h"

#include "platform/foundation/Bundle.h"
#include "platform/foundation/Data.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

namespace zul {

namespace {

struct StatusText {
    std::int64_t code;
    std::string_view text;
};

// Shown as they stand: the mixed capitals are the vendor's, and operators know them from the printers' manuals.
constexpr auto kStatusTexts = std::to_array<StatusText>({
    {0, operatorText("Idle")},
    {1, operatorText("Printing")},
    {500, operatorText("Head cool down cycle")},
    {510, operatorText("Motor cool down cycle")},
    {900, operatorText("Sleeping (standby mode)")},
    {1000, operatorText("Cover Open")},
    {1010, operatorText("Scrap Box Missing")},
    {1100, operatorText("Paper End")},
    {1200, operatorText("Ribbon End")},
    {1300, operatorText("Paper Jam")},
    {1400, operatorText("Ribbon Error")},
    {1500, operatorText("Wrong Paper")},
    {1600, operatorText("Bad Data")},
    {2000, operatorText("Head Voltage Error")},
    {2100, operatorText("Head Position Error")},
    {2200, operatorText("Power supply Error")},
    {2300, operatorText("Cutter Error")},
    {2400, operatorText("Pinch Roller Error")},
    {2500, operatorText("Head Temp High Error")},
    {2600, operatorText("Media Temp Error")},
    {2610, operatorText("Motor Temp Error")},
    {2700, operatorText("Ribbon Tension Error")},
    {2800, operatorText("RFID Module Error")},
    {3000, operatorText("System Fail Error")},
});
static_assert(kStatusTexts.size() == 24 && std::ranges::is_sorted(kStatusTexts, {}, &StatusText::code));

} // namespace

std::string textForStatus(const std::optional<std::string>& rawStatus) {
    if (rawStatus == kLoaderStatus) return operatorText("Firmware Update Mode");
    if (!rawStatus) return "<NULL>";
    const std::int64_t code = integerValue(*rawStatus);
    const auto found = std::ranges::lower_bound(kStatusTexts, code, {}, &StatusText::code);
    return found == kStatusTexts.end() || found->code != code ? operatorText("Unknown Status")
                                                              : std::string(found->text);
}

} // namespace zul
