// A printer as far as it can be identified: its texts as observed properties, its USB numbers, and the names made of
// them. Getters: any thread. Setters: main queue, which notifies the observers of the text.
#pragma once

#include "Classes/DeviceIdentity.h"
#include "Classes/PrinterReporter.h"
#include "Classes/USBInterfaceHelpers.h"
#include "holven_Base/HOLVEN_NSStringAdditions.h"
#include "platform/foundation/KeyValueObserving.h"

#include <cstdint>
#include <optional>
#include <string>

namespace zul {

class IdentifiedPrinter : public KeyValueObservable, public PrinterReporter {
  public:
    using Text = std::optional<std::string>;

    // Observed texts: nullopt while one is not known; each setter notifies the observers of the key of its name.
    Text statusString() const { return _identity.text(IdentityText::statusString); }
    void setStatusString(const Text& value) { setText(IdentityText::statusString, value); }
    Text raw1284DeviceID() const { return _identity.text(IdentityText::raw1284DeviceID); }
    void setRaw1284DeviceID(const Text& value) { setText(IdentityText::raw1284DeviceID, value); }
    Text deviceID() const { return _identity.text(IdentityText::deviceID); }
    void setDeviceID(const Text& value) { setText(IdentityText::deviceID, value); }
    Text manufacturer() const { return _identity.text(IdentityText::manufacturer); }
    void setManufacturer(const Text& value) { setText(IdentityText::manufacturer, value); }
    Text model() const { return _identity.text(IdentityText::model); }
    void setModel(const Text& value) { setText(IdentityText::model, value); }
    Text vendorUSB() const { return _identity.text(IdentityText::vendorUSB); }
    void setVendorUSB(const Text& value) { setText(IdentityText::vendorUSB, value); }
    Text productUSB() const { return _identity.text(IdentityText::productUSB); }
    void setProductUSB(const Text& value) { setText(IdentityText::productUSB, value); }
    Text serialNumberUSB() const { return _identity.text(IdentityText::serialNumberUSB); }
    void setSerialNumberUSB(const Text& value) { setText(IdentityText::serialNumberUSB, value); }
    Text status() const { return _identity.text(IdentityText::status); }
    void setStatus(const Text& value) { setText(IdentityText::status, value); }
    /// Name of the picture; the subclass has one for each model.
    virtual Text image() const { return _identity.text(IdentityText::image); }
    void setImage(const Text& value) { setText(IdentityText::image, value); }
    /// Where the printer is attached ("1-2"), for messages; set by whoever makes the object.
    std::string locationText() const { return _identity.text(IdentityText::locationText).value_or(""); }
    void setLocationText(const std::string& location) { setText(IdentityText::locationText, location); }

    /// "VVVVPPPPLLLLLLLL": vendor, product and location of the USB device in hexadecimal digits.
    std::string keyUSBdevice() const { return _identity.key(); }
    /// The location in hexadecimal digits; vendor and product in decimal ones.
    std::string idLocation() const;
    std::string idVendor() const;
    std::string idProduct() const;
    std::uint16_t vendorNumber() const { return _identity.vendor; }
    std::uint16_t productNumber() const { return _identity.product; }
    std::uint32_t locationNumber() const { return _identity.location; }
    std::string descriptionUTF8() const override { return _identity.description(); }

    /// substringFromString:fromPrefix:toTerminator:options:inclusive:  nullopt for an empty text, a missing prefix or a
    /// missing terminator.
    static Text substringFromString(const std::string& text, const Text& prefix, const Text& terminator,
                                    CompareOptions options, Marks inclusive);
    /// The same, ignoring case, without the marks.
    static Text noninclusiveCaseInsensitiveSubstringFromString(const std::string& text, const Text& prefix,
                                                               const Text& terminator);
    /// Shorter names of known vendors; others unchanged.
    static Text normalizedVendorString(const Text& vendor);

  protected:
    /// Stores a text and notifies its observers, on the calling thread.
    void setText(IdentityText which, const Text& value);

    DeviceIdentity _identity;
};

} // namespace zul
