// Attached printers that cannot be used: missing rights to their nodes, or models that are not admitted. Main queue.
#pragma once

#include "Classes/PrinterEvents.h"
#include "platform/usb/ServiceRegistry.h"

#include <cstdint>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace zul {

class UnusablePrinters {
  public:
    /// registry: shows which of them are still attached; must outlive this object.
    UnusablePrinters(ServiceRegistry& registry, std::set<std::uint16_t> admittedProducts)
        : _registry(registry), _admittedProducts(std::move(admittedProducts)) {}

    /// Stores the printer of an event (NotPermitted or OpenFailed). Returns the hint for the operator.
    std::string add(const PrinterEvent& event);
    /// Removes printers that were detached.
    void forgetDeparted();
    /// True if stored printers are still attached.
    bool isAny() const { return !_printers.empty(); }
    /// One hint for each that is attached now, with what to do.
    std::vector<std::string> hints() const;

  private:
    struct Unusable {
        std::string location;
        std::string node;
        std::string hint;
    };
    bool isAttached(const Unusable& one) const;
    std::vector<std::string> notAdmitted() const;

    ServiceRegistry& _registry;
    const std::set<std::uint16_t> _admittedProducts;
    std::vector<Unusable> _printers;
};

} // namespace zul
