// Which printers are there: registration for arrivals and departures, one printer object per accepted interface, and
// its retirement. Main queue throughout.
#include "Classes/Environment.h"
#include "Classes/PrinterEvents.h"
#include "Classes/TBPrinters.h"
#include "Classes/TBUSBPrinterZUL.h"
#include "platform/dispatch/Queue.h"
#include "platform/dispatch/QueueRole.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/SystemLog.h"
#include "platform/usb/IOReturn.h"
#include "platform/usb/IOUSBInterfaceInterface.h"
#include "platform/usb/ServiceRegistry.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <utility>

namespace zul {

namespace {

constexpr std::uint8_t kPrinterClass = 7;
constexpr std::uint8_t kPrinterSubClass = 1;
constexpr const char* kFirmwareVersionKey = "firmwareVersion";

void logFailedRead(const char* what, IOReturn code) {
    logText("%s() returned [%d]\n", what, asSigned(code));
}

} // namespace

std::shared_ptr<NotificationPort> TBPrinters::sharedNotificationPort(Environment& environment) {
    return environment.sharedNotificationPort();
}

void TBPrinters::getPrintingDevices() {
    assertOnMainQueue();
    if (!_notifyPort) return;
    ServiceMatching matching;
    matching.bInterfaceClass = kPrinterClass;
    matching.bInterfaceSubClass = kPrinterSubClass;
    // Held weakly: the port may deliver after the controller is gone.
    const auto weak = weak_from_this();
    _printerIterator =
        _notifyPort->addMatchingNotification(ServiceNotification::matched, matching, [weak](ServiceIterator& iterator) {
            if (const auto self = weak.lock()) self->newPrinterCallback(iterator);
        });
    if (_printerIterator) newPrinterCallback(*_printerIterator); // the attached ones, and arms it
    _removedIterator = _notifyPort->addMatchingNotification(ServiceNotification::terminated, matching,
                                                            [weak](ServiceIterator& iterator) {
                                                                if (const auto self = weak.lock())
                                                                    self->deviceRemovedCallback(iterator);
                                                            });
    // Drained once to arm it, like the other; nothing has departed yet.
    if (_removedIterator) deviceRemovedCallback(*_removedIterator);
}

void TBPrinters::newPrinterCallback(ServiceIterator& iterator) {
    for (;;) {
        const ServiceToken token = iterator.next();
        if (token == 0) return;
        handleMatchedService(token);
    }
}

void TBPrinters::deviceRemovedCallback(ServiceIterator& iterator) {
    for (;;) {
        const ServiceToken token = iterator.next();
        if (token == 0) return;
        removedDeviceObject(token);
    }
}

std::shared_ptr<ServiceIterator> TBPrinters::printerIterator() const {
    assertOnMainQueue();
    return _printerIterator;
}

std::shared_ptr<ServiceIterator> TBPrinters::removedIterator() const {
    assertOnMainQueue();
    return _removedIterator;
}

// ---- arrival --------------------------------------------------------------------------------------------------------

void TBPrinters::handleMatchedService(ServiceToken token) {
    const auto service = _environment.registry.service(token);
    // What the descriptors show is checked first: foreign printers' nodes are never opened.
    if (service && isSupported(*service)) makePrinter(*service, token);
}

bool TBPrinters::isSupported(USBService& service) const {
    std::uint8_t interfaceClass = 0;
    std::uint8_t interfaceSubClass = 0;
    std::uint16_t vendor = 0;
    std::uint16_t product = 0;
    IOReturn code = service.GetInterfaceClass(interfaceClass);
    if (code != kIOReturnSuccess) return logFailedRead("GetInterfaceClass", code), false;
    code = service.GetInterfaceSubClass(interfaceSubClass);
    if (code != kIOReturnSuccess) return logFailedRead("GetInterfaceSubClass", code), false;
    code = service.GetDeviceVendor(vendor);
    if (code != kIOReturnSuccess) return logFailedRead("GetDeviceVendor", code), false;
    code = service.GetDeviceProduct(product);
    if (code != kIOReturnSuccess) return logFailedRead("GetDeviceProduct", code), false;

    if (interfaceClass != kPrinterClass) return false;
    if (interfaceSubClass != kPrinterSubClass) {
        logText("Found a device that is a printer by class, but not by subclass; subClass=%d\n", interfaceSubClass);
        return false;
    }
    return TBUSBPrinterZUL::supportedVendorIDs().contains(vendor) &&
           (TBUSBPrinterZUL::supportedProductIDs().contains(product) ||
            _environment.admittedProductIDs.contains(product));
}

void TBPrinters::makePrinter(USBService& service, ServiceToken token) {
    std::shared_ptr<IOUSBInterfaceInterface> handle;
    const IOReturn code = service.createInterfaceInterface(handle);
    if (code != kIOReturnSuccess || !handle) {
        standardErrorLog(formatted("ERROR: IOCreatePlugInInterfaceForService() returned [%d]\n", asSigned(code)));
        standardErrorLog(formatted("ERROR: QueryInterface() returned [%d]\n", asSigned(code)));
        reportUnusable(service, code);
        return;
    }
    auto printer = std::make_shared<TBUSBPrinterZUL>(_environment);
    // Before the initialiser, whose events and log lines name the location.
    printer->setLocationText(service.locationText());
    printer->setIsVirtual(service.isVirtual());
    printer->initWithInterfaceInterface(std::move(handle), token);
    addPrinter(printer);
}

void TBPrinters::reportUnusable(USBService& service, IOReturn code) {
    if (_environment.events == nullptr) return;
    PrinterEvent event{.key = {}, .location = service.locationText(), .attachment = 0, .what = {}};
    // Distinguished, because the operator has to do something else about each.
    if (code == kIOReturnNotPrivileged) {
        event.what = events::NotPermitted{.node = service.nodePath()};
    } else {
        event.what = events::OpenFailed{.node = service.nodePath(), .code = code};
    }
    _environment.events->printerEvent(event);
}

void TBPrinters::addPrinter(const Printer& printer) {
    assertOnMainQueue();
    if (!_printers) _printers.emplace();
    printer->probe();
    printer->addObserver(weak_from_this(), kFirmwareVersionKey, printer.get());
    _awaitingInsertion.push_back(printer);
    _environment.mainQueue.async([self = shared_from_this(), printer] {
        assertOnMainQueue();
        self->insertOnMain(printer);
    });
}

// ---- departure ------------------------------------------------------------------------------------------------------

void TBPrinters::removedDeviceObject(ServiceToken service) {
    assertOnMainQueue();
    const auto madeForService = [service](const Printer& printer) { return printer->creationToken() == service; };
    const PrinterList waiting = _awaitingInsertion;
    const bool isListed = _printers && std::ranges::any_of(*_printers, madeForService);
    if (!isListed && std::ranges::any_of(waiting, madeForService)) {
        // It left before its add block ran: look again after that block, or the row would never go.
        _environment.mainQueue.async([self = shared_from_this(), service] { self->removedDeviceObject(service); });
        return;
    }
    logText("a printer object was removed ... checking for matching device");
    const PrinterList listed = printers();
    const auto found = std::ranges::find_if(listed, madeForService);
    if (found == listed.end()) {
        logText("failed to match a printer object for device %x", service);
        return;
    }
    retire(*found);
}

void TBPrinters::retire(const Printer& printer) {
    logText("removing %s", printer->descriptionUTF8());
    printer->removeObserver(weak_from_this(), kFirmwareVersionKey, printer.get());
    printer->prepareForRelease();
    // Through the printer's queue: the row leaves only after every command that is queued for it has finished. The
    // controller moves on with the block, because its end belongs to main.
    Block removeFromMain = [self = shared_from_this(), printer]() mutable {
        MainQueue& mainQueue = self->_environment.mainQueue;
        mainQueue.async([self = std::move(self), printer] {
            assertOnMainQueue();
            self->removeOnMain(printer);
        });
    };
    if (const auto queue = printer->printerCommandQueue()) {
        queue->async(std::move(removeFromMain));
    } else {
        removeFromMain();
    }
}

} // namespace zul
