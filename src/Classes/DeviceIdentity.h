// The numbers and strings that identify a printer, and the keys and names that are made of them. Holds values only; the
// printer reads them from the device. Any thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

namespace zul {

/// The texts that a printer shows of itself; nullopt while one is not known.
enum class IdentityText {
    raw1284DeviceID,
    deviceID,
    manufacturer,
    model,
    vendorUSB,
    productUSB,
    serialNumberUSB,
    status,
    statusString,
    image,
    locationText, // where it is attached ("1-2")
};
inline constexpr std::size_t kIdentityTexts = static_cast<std::size_t>(IdentityText::locationText) + 1; // the last

class DeviceIdentity {
  public:
    /// The key path under which observers are notified of a change of this text.
    static const char* keyPathOf(IdentityText which);

    /// nullopt while the text is not known.
    std::optional<std::string> text(IdentityText which) const;
    /// Stores a text without notices; nullopt: not known.
    void setText(IdentityText which, const std::optional<std::string>& value);

    /// Numbers of the USB device. Set once, before any other queue knows the printer.
    std::uint32_t location = 0;
    std::uint16_t vendor = 0;
    std::uint16_t product = 0;

    /// "VVVVPPPPLLLLLLLL": vendor, product and location in hexadecimal digits.
    std::string key() const;
    /// Manufacturer, model and USB serial number; the USB strings where the 1284 ID does not have them.
    std::string description() const;

  private:
    mutable std::mutex _mutex;
    std::array<std::optional<std::string>, kIdentityTexts> _texts;
};

} // namespace zul
