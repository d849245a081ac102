// The printer object's life and its queues: creation, which block runs where, release. Called by the controller on main
// and by everything that hands the printer work, on any thread. What touches the device is in the files beside this
// one.
#include "Classes/TBUSBPrinter.h"

#include "platform/foundation/Format.h"

#include <cstdio>
#include <cstdlib>

namespace zul {

namespace {

constexpr const char* kQueueLabelPrefix = "de.zul-imaging.printer-utility.";

// A command without a block is a mistake in this program, never in its input.
void requireCommandBlock(const Block& block, const char* file, int line) {
    if (block) return;
    std::fprintf(stderr, "%s:%d: you must supply a commandBlock\n", file, line);
    std::abort();
}

} // namespace

TBUSBPrinter::TBUSBPrinter(Environment& environment)
    : PrinterQueues(environment.mainQueue, environment.clock), _environment(environment),
      _deviceObjects(environment.deviceObjects), _interests(environment.sharedNotificationPort()->interests()) {}

TBUSBPrinter::~TBUSBPrinter() {
    _deviceObjects->remove(keyUSBdevice(), _creationToken);
}

void TBUSBPrinter::initWithInterfaceInterface(InterfacePtr interfaceInterface, ServiceToken deviceObject) {
    assertOnMainQueue();
    _creationToken = deviceObject;
    // The departure must reach this object from its first moment, long before its queue gets to setDeviceObject.
    if (const auto interests = _interests.lock()) {
        _creationInterest = interests->add(
            deviceObject, this, [weak = weak_from_this()](ServiceToken service, IOMessage message, void* argument) {
                if (const auto printer = weak.lock()) usbInterfaceInterestCallback(printer, service, message, argument);
            });
    }
    setInterfaceInterface(std::move(interfaceInterface));
    _isSecondOfDevice = !_deviceObjects->add(keyUSBdevice(), deviceObject);
    emit(events::Arrived{});
    update1284DeviceID([&](bool found, const OptionalText& deviceID) {
        if (!found || !deviceID) {
            logText("the printer at %s did not report its device ID", locationText());
            emit(events::IdentityMissing{});
            return;
        }
        decodeDeviceID(*deviceID, [&](const OptionalText& manufacturer, const OptionalText& model,
                                      const OptionalText& serialNumber, const OptionalText& /*description*/) {
            _deviceInfoDict->setString("manufacturer", manufacturer);
            _deviceInfoDict->setString("model", model);
            performSyncOnMainQueue([&] {
                assertOnMainQueue();
                if (!this->manufacturer()) setManufacturer(manufacturer);
                if (!this->model()) setModel(model);
            });
            makeLabelledQueue(manufacturer, model, serialNumber);
            setDeviceObject(deviceObject);
        });
    });
}

void TBUSBPrinter::makeLabelledQueue(const OptionalText& manufacturer, const OptionalText& model,
                                     const OptionalText& serialNumber) {
    _idSerialNumber = serialNumber;
    const OptionalText serial = serialNumber ? serialNumber : serialNumberUSB();
    const std::string label = kQueueLabelPrefix + formatted("printer.%s.%s.%s", textOrNull(manufacturer),
                                                            textOrNull(model), textOrNull(serial));
    makeCommandQueue(label);
    logText("printer command queue:%s", label);
}

void TBUSBPrinter::initWithDeviceObject(ServiceToken deviceObject) {
    _creationToken = deviceObject;
    setDeviceObject(deviceObject);
}

void TBUSBPrinter::sendNoReplyPrinterCommand(CommandBlock commandBlock) {
    requireCommandBlock(commandBlock, __FILE__, __LINE__);
    performInlineOnCommandQueue(std::move(commandBlock));
}

void TBUSBPrinter::sendPrinterCommand(CommandBlock commandBlock, ReplyQueue replyQueue, ReplyBlock reply) {
    requireCommandBlock(commandBlock, __FILE__, __LINE__);
    performInlineOnCommandQueue(
        [self = shared_from_this(), commandBlock = std::move(commandBlock), replyQueue, reply = std::move(reply)] {
            self->assertOnCommandQueue();
            commandBlock();
            std::optional<Data> answer = self->printerReply();
            if (!reply) return;
            switch (replyQueue._kind) {
            case ReplyQueue::Kind::command:
                reply(answer);
                return;
            case ReplyQueue::Kind::main:
                self->_environment.mainQueue.async([reply, answer = std::move(answer)] { reply(answer); });
                return;
            case ReplyQueue::Kind::other:
                if (replyQueue._queue == self->printerCommandQueue()) {
                    reply(answer);
                } else {
                    replyQueue._queue->async([reply, answer = std::move(answer)] { reply(answer); });
                }
                return;
            }
        });
}

void TBUSBPrinter::prepareForRelease() {
    assertOnMainQueue();
    _released = true; // at once: a wait that runs now must give up before the queue can get to the release
    if (const auto interests = _interests.lock(); interests && _creationInterest != 0) {
        interests->remove(_creationInterest);
    }
    _creationInterest = 0;
    runAfterQueuedCommands([self = shared_from_this()] {
        self->setInterfaceInterface(nullptr);
        self->setDeviceInterface(nullptr);
        self->setDeviceObject(0);
    });
}

void TBUSBPrinter::setState(std::int64_t state) {
    const KeyChange change(*this, "state");
    _state = static_cast<TBPrinterState>(state);
}

void TBUSBPrinter::setInFirmwareUpdate(bool inUpdate) {
    assertOnMainQueue();
    if (!inUpdate) _deviceObjects->endUpdate(keyUSBdevice(), _creationToken);
    const KeyChange change(*this, "inFirmwareUpdate");
    _isBusy = inUpdate;
}

void TBUSBPrinter::emit(PrinterEvent::What what) const {
    if (_environment.events == nullptr) return;
    _environment.events->printerEvent(
        {.key = keyUSBdevice(), .location = locationText(), .attachment = _creationToken, .what = std::move(what)});
}

} // namespace zul
