// Collects the hints about attached printers that cannot be used.
// Called by the session on the main queue.
#include "session/UnusablePrinters.h"

#include "Classes/PrinterEvents.h"
#include "archive/ProductTable.h"
#include "platform/foundation/LocalizedFormat.h"
#include "platform/usb/IOReturn.h"
#include "platform/usb/IOUSBInterfaceInterface.h"
#include "session/FailureTexts.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace zul {

std::string UnusablePrinters::add(const PrinterEvent& event) {
    Unusable one{event.location, {}, {}};
    const std::string name = localizedFormat("the printer at %s", event.location);
    if (const auto* const denied = std::get_if<events::NotPermitted>(&event.what)) {
        one.node = denied->node;
        one.hint = openFailureText(name, kIOReturnNotPrivileged, denied->node);
    } else if (const auto* const failed = std::get_if<events::OpenFailed>(&event.what)) {
        one.node = failed->node;
        one.hint = openFailureText(name, failed->code, failed->node);
    }
    _printers.push_back(one);
    return one.hint;
}

// Called after each arrival and departure; a printer that is plugged in again gets a new event.
void UnusablePrinters::forgetDeparted() {
    std::erase_if(_printers, [this](const Unusable& one) { return !isAttached(one); });
}

bool UnusablePrinters::isAttached(const Unusable& one) const {
    return std::ranges::any_of(_registry.services(), [&](ServiceToken token) {
        const auto service = _registry.service(token);
        return service && service->locationText() == one.location && service->nodePath() == one.node;
    });
}

std::vector<std::string> UnusablePrinters::hints() const {
    std::vector<std::string> texts;
    for (const Unusable& one : _printers) {
        if (isAttached(one)) texts.push_back(one.hint);
    }
    for (std::string& text : notAdmitted()) texts.push_back(std::move(text));
    return texts;
}

// Known models that this program is not released for yet; the user can admit them by product ID.
std::vector<std::string> UnusablePrinters::notAdmitted() const {
    std::vector<std::string> texts;
    for (const ServiceToken token : _registry.services()) {
        const auto service = _registry.service(token);
        std::uint16_t vendor = 0;
        std::uint16_t productID = 0;
        if (!service || service->GetDeviceVendor(vendor) != kIOReturnSuccess ||
            service->GetDeviceProduct(productID) != kIOReturnSuccess)
            continue;
        const Product* const product = productWithID(productID);
        if (product == nullptr || !productVendorIDs().contains(vendor) || acceptedProductIDs().contains(productID) ||
            _admittedProducts.contains(productID))
            continue;
        texts.push_back(localizedFormat("the %s at %s is not used: its product ID is not admitted. Admit it for "
                                        "this run with --admit-product 0x%.4X.",
                                        std::string(product->model), service->locationText(), productID));
    }
    return texts;
}

} // namespace zul
