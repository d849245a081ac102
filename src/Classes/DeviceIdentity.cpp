// The values that identify a printer. One lock guards them, and is held only during each access. The printer sets them
// on the main queue; every queue reads them.
#include "Classes/DeviceIdentity.h"

#include "platform/foundation/Format.h"

#include <array>
#include <cstddef>
#include <mutex>
#include <optional>
#include <string>

namespace zul {

namespace {

// In the order of the texts.
constexpr std::array<const char*, kIdentityTexts> kKeyPaths = {
    "raw1284DeviceID", "deviceID", "manufacturer", "model", "vendorUSB",   "productUSB",
    "serialNumberUSB", "status",   "statusString", "image", "locationText"};

} // namespace

const char* DeviceIdentity::keyPathOf(IdentityText which) {
    return kKeyPaths.at(static_cast<std::size_t>(which));
}

std::optional<std::string> DeviceIdentity::text(IdentityText which) const {
    const std::scoped_lock lock(_mutex);
    return _texts.at(static_cast<std::size_t>(which));
}

void DeviceIdentity::setText(IdentityText which, const std::optional<std::string>& value) {
    const std::scoped_lock lock(_mutex);
    _texts.at(static_cast<std::size_t>(which)) = value;
}

std::string DeviceIdentity::key() const {
    // Without the lock: the numbers are set once, before another queue knows the printer.
    return formatted("%.4X%.4X%.8X", vendor, product, location);
}

std::string DeviceIdentity::description() const {
    const std::scoped_lock lock(_mutex);
    // Under one lock, not through text(), so that the three belong to one moment.
    const auto of = [this](IdentityText which) { return _texts.at(static_cast<std::size_t>(which)); };
    const auto manufacturer = of(IdentityText::manufacturer);
    const auto model = of(IdentityText::model);
    return textOrNull(manufacturer ? manufacturer : of(IdentityText::vendorUSB)) + ' ' +
           textOrNull(model ? model : of(IdentityText::productUSB)) + ' ' +
           textOrNull(of(IdentityText::serialNumberUSB));
}

} // namespace zul
