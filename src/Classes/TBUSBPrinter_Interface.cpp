// The printer's USB interface: open, close, pipes, bulk transfers, ownership. Everything here runs on the command queue
// unless its name ends in OnMain; what others observe is changed on the main queue, which the command queue may wait
// for (never the other way round).
#include "Classes/TBUSBPrinter.h"

#include "Classes/StatusCodeNames.h"
#include "platform/foundation/Format.h"

namespace zul {

bool TBUSBPrinter::isInterfaceOpen() const {
    return _state == kTBPrinterOpen && _interfaceStatus == kTBPrinterOpen;
}

bool TBUSBPrinter::willOpenInterface() const {
    return _state == kTBPrinterOpening && _interfaceStatus == kTBPrinterOpening;
}

bool TBUSBPrinter::didOpenInterface() const {
    return _state == kTBPrinterOpening && _interfaceStatus == kTBPrinterOpen;
}

IOReturn TBUSBPrinter::openInterface() {
    // A retired printer has given its handle back, perhaps while it was open; an alert of it may still be answered.
    if (_state == kTBPrinterOpen && _channel.interface()) return kIOReturnSuccess;
    _interfaceStatus = kTBPrinterOpening;
    setState(kTBPrinterOpening);
    const IOReturn code = _channel.interface() ? _channel.interface()->USBInterfaceOpenSeize() : kIOReturnNoDevice;
    _transferStatus.open.store(code); // before anybody learns of the end of the open
    finishOpen(code);
    events::Opened opened{.code = code};
    if (code == kIOReturnExclusiveAccess) opened.holder = _channel.interface()->holder();
    emit(std::move(opened));
    return code;
}

void TBUSBPrinter::finishOpen(IOReturn code) {
    if (code == kIOReturnExclusiveAccess) {
        logText("Another app has the printer USB interface open for exclusive access.\n");
        logText("Waiting for USB interface on device %.8x to be closed...\n", deviceObject());
        logText("The printer is busy.\n");
        ++_refusals;
        setPrinterStatus("In use by other application");
        performSyncOnMainQueue([this] {
            assertOnMainQueue();
            setOwnershipOnMain(Ownership::otherProgram);
        });
        watchForHolder();
        return;
    }
    if (code != kIOReturnSuccess) {
        // A retry that failed for another reason is still a retry: the next hint leads to another one.
        if (_awaitsHolder && _channel.interface()) watchForHolder();
        return;
    }
    performSyncOnMainQueue([this] {
        assertOnMainQueue();
        _interfaceStatus = kTBPrinterOpen;
        setState(kTBPrinterOpen);
        setOwnershipOnMain(Ownership::thisProgram);
    });
    logText("The %s is open.\n", descriptionUTF8());
    getPipes();
    if (!_awaitsHolder) return;
    endWaitForHolder();
    // Whoever opens it first may close it again before the holder's close is delivered, so what is owed is done in any
    // case.
    postToCommandQueue([self = shared_from_this()] {
        self->assertOnCommandQueue();
        self->continueProbe();
    });
}

void TBUSBPrinter::openInterface(CodeCompletion completion) {
    performInlineOnCommandQueue([self = shared_from_this(), completion = std::move(completion)] {
        self->assertOnCommandQueue();
        const IOReturn code = self->openInterface();
        if (completion) completion(code);
    });
}

void TBUSBPrinter::closeInterface(CodeCompletion completion) {
    runAfterQueuedCommands(
        [self = shared_from_this(), completion = std::move(completion), refusals = _refusals.load()] {
            self->assertOnCommandQueue();
            // It was asked for by somebody who had the interface open. Since then another program has taken it, and the
            // wait for that program must not end here.
            const bool isOvertaken = self->_awaitsHolder && self->_refusals != refusals;
            const IOReturn code = isOvertaken ? kIOReturnSuccess : self->closeNow();
            if (!isOvertaken) self->endWaitForHolder();
            if (completion) completion(code);
        });
}

IOReturn TBUSBPrinter::closeNow() {
    IOReturn code = kIOReturnSuccess;
    if (_interfaceStatus == kTBPrinterOpen) {
        code = _channel.interface() ? _channel.interface()->USBInterfaceClose() : kIOReturnNoDevice;
        if (code == kIOReturnSuccess) {
            logText("The %s was closed.\n", descriptionUTF8());
        } else {
            logText("close interface returned error %s\n", strForIOReturn(code));
        }
    }
    _interfaceStatus = kTBPrinterClosed;
    setState(kTBPrinterClosed);
    performSyncOnMainQueue([this] {
        assertOnMainQueue();
        if (ownership() != Ownership::none) setOwnershipOnMain(Ownership::none);
    });
    return code;
}

void TBUSBPrinter::getPipes() {
    performInlineOnCommandQueue([self = shared_from_this()] {
        self->assertOnCommandQueue();
        self->_channel.findPipes();
    });
}

void TBUSBPrinter::setOwnershipOnMain(Ownership ownership) {
    const KeyChange change(*this, "isOwned");
    _isOwned = ownership;
}

void TBUSBPrinter::setIsOwned(int value) {
    if (value != 0 && ownership() == Ownership::none) {
        openInterface(CodeCompletion{});
    } else if (value == 1 && ownership() == Ownership::otherProgram) {
        closeAndReplayAttempt();
    } else {
        closeInterface(nullptr);
    }
}

// The message follows the close before anything else can run on the command queue, so it always finds the printer
// closed. The wait for the other program stays.
void TBUSBPrinter::closeAndReplayAttempt() {
    runAfterQueuedCommands([self = shared_from_this()] {
        self->assertOnCommandQueue();
        static_cast<void>(self->closeNow()); // nothing was open
        self->performSyncOnMainQueue([self] {
            usbInterfaceInterestCallback(self, self->deviceObject(), kIOMessageServiceIsAttemptingOpen, nullptr);
        });
    });
}

// No event reports that another program has released the interface: the bus watches the device node, and each hint is
// checked with a silent claim on the command queue. Only a claim that succeeds is taken for "was closed". The wait ends
// with an open that succeeds and with a close that somebody asks for.
void TBUSBPrinter::watchForHolder() {
    _awaitsHolder = true;
    _isHolderGone = false;
    _channel.interface()->watchHolder([weak = weak_from_this()] {
        if (const auto self = weak.lock()) {
            self->performInlineOnCommandQueue([self] {
                self->assertOnCommandQueue();
                self->holderMayHaveLetGo();
            });
        }
    });
}

void TBUSBPrinter::endWaitForHolder() {
    _awaitsHolder = false;
    if (_channel.interface()) _channel.interface()->watchHolder(nullptr);
}

void TBUSBPrinter::holderMayHaveLetGo() {
    // Hints come in bursts, and the retry runs only when main has got to it: one of them is enough.
    if (_isHolderGone || !_awaitsHolder || !_channel.interface() ||
        _channel.interface()->tryClaim() != kIOReturnSuccess)
        return;
    _isHolderGone = true;
    _channel.interface()->watchHolder(nullptr);
    _environment.mainQueue.async([self = shared_from_this()] {
        usbInterfaceInterestCallback(self, self->deviceObject(), kIOMessageServiceWasClosed, nullptr);
    });
}

bool TBUSBPrinter::writeToInterfaceWithData(const Data& data) {
    return _channel.write(data);
}

std::optional<Data> TBUSBPrinter::interfaceReadDataOfSize(std::uint32_t size) {
    Data buffer(size, 0);
    std::uint32_t count = size;
    if (!_channel.read(buffer.data(), count)) return std::nullopt;
    // The reply keeps the requested size: a short read stays padded with zeros, and callers rely on it.
    return buffer;
}

void TBUSBPrinter::setPrinterStatus(const std::string& status) {
    performSyncOnMainQueue([&] {
        assertOnMainQueue();
        const KeyChange change(*this, "printerStatus");
        _deviceInfoDict->setString("printerStatus", status);
    });
}

OptionalText TBUSBPrinter::printerStatus() const {
    return _deviceInfoDict->string("printerStatus");
}
OptionalText TBUSBPrinter::printerSerialNumber() const {
    return _deviceInfoDict->string("printerSerialNumber");
}
OptionalText TBUSBPrinter::firmwareVersion() const {
    return _deviceInfoDict->string("firmwareVersion");
}

} // namespace zul
