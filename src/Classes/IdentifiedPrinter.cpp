// The texts of a printer that others observe, and the numbers as text. The printer itself sets them on main; every
// queue reads them.
#include "Classes/IdentifiedPrinter.h"

#include "Classes/DeviceID1284.h"
#include "platform/foundation/Format.h"

namespace zul {

void IdentifiedPrinter::setText(IdentityText which, const OptionalText& value) {
    const KeyChange change(*this, DeviceIdentity::keyPathOf(which));
    _identity.setText(which, value);
}

std::string IdentifiedPrinter::idLocation() const {
    return formatted("%x", _identity.location);
}

std::string IdentifiedPrinter::idVendor() const {
    return formatted("%d", _identity.vendor);
}

std::string IdentifiedPrinter::idProduct() const {
    return formatted("%d", _identity.product);
}

OptionalText IdentifiedPrinter::normalizedVendorString(const OptionalText& vendor) {
    return normalizedVendor(vendor);
}

std::optional<std::string> IdentifiedPrinter::substringFromString(const std::string& text, const OptionalText& prefix,
                                                                  const OptionalText& terminator,
                                                                  CompareOptions options, Marks marks) {
    if (text.empty()) return std::nullopt;
    return TBCFStringCreateSubstringFromPrefixToTerminatorWithOptions(text, prefix, terminator, options, marks);
}

std::optional<std::string>
IdentifiedPrinter::noninclusiveCaseInsensitiveSubstringFromString(const std::string& text, const OptionalText& prefix,
                                                                  const OptionalText& terminator) {
    return substringFromString(text, prefix, terminator, CompareOptions::caseInsensitive, Marks::excluded);
}

} // namespace zul
