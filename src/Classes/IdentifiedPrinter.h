// A printer as far as it can be identified: its texts as observed properties, its USB numbers, and the names made of
// them. Getters: any thread. Setters: main queue, which notifies the observers of the text.
#pragma once

#include "Classes/DeviceIdentity.h"
#include "Classes/PrinterReporter.h"
#include "Classes/USBInterfaceHelpers.h"
#include "platform/foundation/KeyValueObserving.h"
#include "platform/foundation/OptionalText.h"

#include <cstdint>
#include <optional>
#include <set>
#include <string>

namespace zul {

class IdentifiedPrinter : public KeyValueObservable, public PrinterReporter {
  public:
    // Observed texts: nullopt while one is not known; each setter notifies the observers of the key of its name.
    OptionalText statusString() const { return _identity.text(IdentityText::statusString); }
    void setStatusString(const OptionalText& value) { setText(IdentityText::statusString, value); }
    OptionalText raw1284DeviceID() const { return _identity.text(IdentityText::raw1284DeviceID); }
    void setRaw1284DeviceID(const OptionalText& value) { setText(IdentityText::raw1284DeviceID, value); }
    OptionalText deviceID() const { return _identity.text(IdentityText::deviceID); }
    void setDeviceID(const OptionalText& value) { setText(IdentityText::deviceID, value); }
    OptionalText manufacturer() const { return _identity.text(IdentityText::manufacturer); }
    void setManufacturer(const OptionalText& value) { setText(IdentityText::manufacturer, value); }
    OptionalText model() const { return _identity.text(IdentityText::model); }
    void setModel(const OptionalText& value) { setText(IdentityText::model, value); }
    OptionalText vendorUSB() const { return _identity.text(IdentityText::vendorUSB); }
    void setVendorUSB(const OptionalText& value) { setText(IdentityText::vendorUSB, value); }
    OptionalText productUSB() const { return _identity.text(IdentityText::productUSB); }
    void setProductUSB(const OptionalText& value) { setText(IdentityText::productUSB, value); }
    OptionalText serialNumberUSB() const { return _identity.text(IdentityText::serialNumberUSB); }
    void setSerialNumberUSB(const OptionalText& value) { setText(IdentityText::serialNumberUSB, value); }
    OptionalText status() const { return _identity.text(IdentityText::status); }
    void setStatus(const OptionalText& value) { setText(IdentityText::status, value); }
    /// Name of the picture; the subclass has one for each model.
    virtual OptionalText image() const { return _identity.text(IdentityText::image); }
    void setImage(const OptionalText& value) { setText(IdentityText::image, value); }
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
    static OptionalText substringFromString(const std::string& text, const OptionalText& prefix,
                                            const OptionalText& terminator, CompareOptions options, Marks inclusive);
    /// The same, ignoring case, without the marks.
    static OptionalText noninclusiveCaseInsensitiveSubstringFromString(const std::string& text,
                                                                       const OptionalText& prefix,
                                                                       const OptionalText& terminator);
    /// Shorter names of known vendors; others unchanged.
    static OptionalText normalizedVendorString(const OptionalText& vendor);

  protected:
    /// Stores a text and notifies its observers, on the calling thread.
    void setText(IdentityText which, const OptionalText& value);

    DeviceIdentity _identity;
};

} // namespace zul
