// The printer and its service: taking the service, what its messages mean, resets, and giving everything back. Setters
// and resets run on the command queue; messages arrive on the main queue.
#include "Classes/PrinterEvents.h"
#include "Classes/PrinterTypes.h"
#include "Classes/StatusCodeNames.h"
#include "Classes/TBUSBPrinter.h"
#include "platform/dispatch/QueueRole.h"
#include "platform/foundation/Bundle.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/SystemLog.h"
#include "platform/usb/IOReturn.h"
#include "platform/usb/IOUSBInterfaceInterface.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <utility>

namespace zul {

namespace {

constexpr const char* kSetDeviceObject = "-[TBUSBPrinter setDeviceObject:]";
constexpr const char* kInterfaceClassName = "IOUSBInterface";
constexpr std::uint32_t kSoftResetTimeout = 100; // ms

} // namespace

// ---- taking and giving back -----------------------------------------------------------------------------------------

void TBUSBPrinter::setDeviceObject(ServiceToken deviceObject) {
    logText("%s (%d)", kSetDeviceObject, deviceObject);
    performInlineOnCommandQueue([self = shared_from_this(), deviceObject] {
        self->assertOnCommandQueue();
        logText("%s (%d) --- on command queue", kSetDeviceObject, deviceObject);
        if (self->_deviceObject == deviceObject) {
            logText("FAILED %s (%d) --- oddly it was somehow already set", kSetDeviceObject, deviceObject);
            return;
        }
        self->releaseNotification(self->_interestNotification, __LINE__);
        self->releaseNotification(self->_busyNotification, __LINE__);
        if (deviceObject != 0) self->registerForMessages(deviceObject);
        self->_deviceObject = deviceObject;
    });
}

// The fields keep their values: a notification that is gone is released once more at the next change, and that fails
// with a log line and nothing else.
void TBUSBPrinter::releaseNotification(std::uint32_t notification, int line) {
    if (notification == 0) return;
    const auto interests = _interests.lock();
    if (!interests || interests->remove(notification)) return;
    logText("%s error [0x%.2X] trying to release a notification object in %s line %d",
            strForIOReturn(kIOReturnNotFound), asHex(kIOReturnNotFound), kSetDeviceObject, line);
}

void TBUSBPrinter::registerForMessages(ServiceToken deviceObject) {
    logText("setting new %s class IOService object\n", kInterfaceClassName);
    if (const auto interests = _interests.lock()) {
        _interestNotification = interests->add(
            deviceObject, this, [weak = weak_from_this()](ServiceToken service, IOMessage message, void* argument) {
                if (const auto printer = weak.lock()) usbInterfaceInterestCallback(printer, service, message, argument);
            });
    }
    // A refused open stays pending: closing it would forget that the printer is waited for.
    if (openInterface() == kIOReturnExclusiveAccess) return;
    closeInterface(nullptr);
    setState(kTBPrinterProbed);
}

void TBUSBPrinter::setInterfaceInterface(InterfacePtr interfaceInterface) {
    performInlineOnCommandQueue([self = shared_from_this(), interfaceInterface = std::move(interfaceInterface)] {
        self->assertOnCommandQueue();
        if (interfaceInterface) self->readNumbers(*interfaceInterface);
        self->_channel.setInterface(interfaceInterface); // the old handle goes here, on the queue that used it
        if (!interfaceInterface) return;
        interfaceInterface->setWriteProgress([weak = self->weak_from_this()](std::uint32_t done, std::uint32_t total) {
            const auto printer = weak.lock();
            if (!printer) return;
            printer->emit(events::WriteProgress{.bytesDone = done, .bytesTotal = total});
        });
        self->readUSBStrings();
    });
}

void TBUSBPrinter::readNumbers(IOUSBInterfaceInterface& handle) {
    const auto logFailure = [](const char* name, IOReturn code) {
        if (code != kIOReturnSuccess) logText("%s() returned %s [%.8x]\n", name, strForIOReturn(code), asHex(code));
    };
    logFailure("GetLocationID", handle.GetLocationID(_identity.location));
    logFailure("GetDeviceVendor", handle.GetDeviceVendor(_identity.vendor));
    logFailure("GetDeviceProduct", handle.GetDeviceProduct(_identity.product));
}

void TBUSBPrinter::setDeviceInterface(DevicePtr device) {
    performInlineOnCommandQueue([self = shared_from_this(), device = std::move(device)] {
        self->assertOnCommandQueue();
        self->_dInterface = device;
    });
}

TBUSBPrinter::DevicePtr TBUSBPrinter::deviceInterface() {
    // Obtained only when it is needed: resets and string indices are rare.
    if (_dInterface || !_channel.interface()) return _dInterface;
    DevicePtr device;
    if (const IOReturn code = _channel.interface()->GetDevice(device); code != kIOReturnSuccess) {
        standardErrorLog(formatted("ERROR: IOCreatePlugInInterfaceForService() returned (%s)\n", strForIOReturn(code)));
        return nullptr;
    }
    if (!device) {
        standardErrorLog(
            formatted("ERROR: Failed to get device Interface with Error(%s)\n", strForIOReturn(kIOReturnNoDevice)));
        return nullptr;
    }
    setDeviceInterface(device);
    return _dInterface;
}

// ---- messages -------------------------------------------------------------------------------------------------------

void TBUSBPrinter::usbInterfaceInterestCallback(const std::shared_ptr<TBUSBPrinter>& printer, ServiceToken service,
                                                IOMessage message, void* argument) {
    assertOnMainQueue();
    const auto number = static_cast<std::uint32_t>(message);
    logText("%s %s(%x); arg = %p\n", printer->descriptionUTF8(), strForIOMessage(number), number, argument);
    printer->handleInterestMessage(service, message);
}

void TBUSBPrinter::handleInterestMessage(ServiceToken service, IOMessage message) {
    switch (message) {
    case kIOMessageServiceIsTerminated: {
        logText("%s (device %.8x) was removed\n", descriptionUTF8(), service);
        // The very dictionary, not a copy: what the old object's queue still writes must not reach its successor,
        // which copies the entries once when it is made. Of two objects of one device only one has the progress of
        // its update.
        if (_deviceObjects->isLeader(keyUSBdevice(), _creationToken)) {
            _environment.deviceInfo.setInfo(_deviceInfoDict, keyUSBdevice());
        }
        _deviceObjects->remove(keyUSBdevice(), _creationToken);
        emit(events::Departed{});
        return;
    }
    case kIOMessageServiceWasClosed:
        otherHolderClosed();
        return;
    case kIOMessageServiceIsAttemptingOpen:
        attemptingOpen();
        return;
    case kIOMessageServiceBusyStateChange:
        return;
    }
    if (!inFirmwareUpdate()) setStatus("OK");
}

void TBUSBPrinter::otherHolderClosed() {
    if (_deviceInfoDict->count() == 0) return;
    if (!willOpenInterface() && !_awaitsHolder) {
        showStatus(operatorText("USB Available"));
        return;
    }
    openInterface([self = shared_from_this()](IOReturn code) {
        self->assertOnCommandQueue();
        if (code != kIOReturnSuccess) return;
        // First the update that waited for the printer, then the questions: the printer could not be asked while the
        // other program held it, so its row is still empty.
        self->continueProbe();
        self->updateInfo();
        self->closeInterface(nullptr);
    });
}

void TBUSBPrinter::attemptingOpen() {
    if (didOpenInterface()) {
        showStatus(operatorText("USB Open"));
        setState(kTBPrinterOpen);
    } else if (willOpenInterface()) {
        showStatus(operatorText("Waiting for USB"));
    } else if (isInterfaceOpen()) {
        showStatus(operatorText("USB Open"));
    } else if (_state != kTBPrinterProbed) {
        showStatus(operatorText("USB Busy"));
    } else {
        setState(kTBPrinterClosed); // the probe's own open and close end here
    }
}

void TBUSBPrinter::showStatus(const char* key) {
    if (!inFirmwareUpdate()) setStatus(_environment.mainBundle.localizedString(key));
}

// ---- probe and resets -----------------------------------------------------------------------------------------------

void TBUSBPrinter::probe() {
    logText("running probe on %s", descriptionUTF8());
    performInlineOnCommandQueue([self = shared_from_this()] {
        self->assertOnCommandQueue();
        self->getDeviceCustomInfo();
    });
}

void TBUSBPrinter::updateInfo() {
    performInlineOnCommandQueue([self = shared_from_this()] { self->probe(); });
}

void TBUSBPrinter::hotPlug() {
    performInlineOnCommandQueue([self = shared_from_this()] {
        self->assertOnCommandQueue();
        // After a failure the printer stays attached, and its row stays as it is.
        static_cast<void>(self->reEnumerateUSBDevice());
    });
}

IOReturn TBUSBPrinter::resetUSBPrinter(Recipient recipient) {
    if (!_channel.interface()) return kIOReturnNoDevice;
    logText("attempting soft reset of USB device with interface [%p]\n",
            static_cast<const void*>(_channel.interface().get()));
    std::uint8_t number = 0;
    if (const IOReturn code = _channel.interface()->GetInterfaceNumber(number); code != kIOReturnSuccess) return code;
    IOUSBDevRequestTO request;
    request.bmRequestType = recipient == Recipient::other ? 0x23 : 0x21; // host to device, class
    request.bRequest = 2;                                                // SOFT_RESET
    request.wIndex = number;
    request.noDataTimeout = kSoftResetTimeout;
    request.completionTimeout = kSoftResetTimeout;
    return _channel.interface()->ControlRequestTO(0, request);
}

IOReturn TBUSBPrinter::resetUSBDevice() {
    return withOpenDevice([](IOUSBDeviceInterface& device) { return device.ResetDevice(); });
}

IOReturn TBUSBPrinter::reEnumerateUSBDevice() {
    return withOpenDevice([this](IOUSBDeviceInterface& device) {
        const IOReturn code = device.USBDeviceReEnumerate(0);
        if (code == kIOReturnSuccess) {
            logText("Successfully reenumerated %s", descriptionUTF8());
        } else {
            logText("Failed to reenumerate %s (%s)", descriptionUTF8(), strForIOReturn(code));
        }
        return code;
    });
}

IOReturn TBUSBPrinter::withOpenDevice(const std::function<IOReturn(IOUSBDeviceInterface&)>& action) {
    const DevicePtr device = deviceInterface();
    if (!device) return kIOReturnError;
    if (const IOReturn code = device->USBDeviceOpen(); code != kIOReturnSuccess) return code;
    const IOReturn code = action(*device);
    static_cast<void>(device->USBDeviceClose()); // the result of the action is reported
    return code;
}

} // namespace zul
