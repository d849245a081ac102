// The texts of a printer that others observe. Set on main by the printer itself, read everywhere.
#include "Classes/IdentifiedPrinter.h"

#include "platform/foundation/Format.h"

namespace zul {

void IdentifiedPrinter::setText(IdentityText which, const Text& value) {
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

} // namespace zul
