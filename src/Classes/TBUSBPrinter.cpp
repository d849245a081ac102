// The printer object's life and its queues: creation, which block runs where, release. Called by the controller on main
// and by everything that hands the printer work, on any thread. What touches the device is in the files beside this
// one.
#include "Classes/TBUSBPrinter.h"

#include "Classes/Environment.h"
#include "Classes/PrinterEvents.h"
#include "Classes/PrinterTypes.h"
#include "platform/dispatch/Clock.h"
#include "platform/dispatch/Queue.h"
#include "platform/foundation/Data.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/KeyValueObserving.h"
#include "platform/usb/IOReturn.h"
#include "platform/usb/IOUSBInterfaceInterface.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

namespace zul {

namespace {

// Only the addresses count: they are the keys of the queues' specific data.
const char commandQueueKey = 0;
const char mainQueueKey = 0;

constexpr const char* kQueueLabelPrefix = "de.zul-imaging.printer-utility.";

// A command without a block is a mistake in this program, never in its input.
void requireCommandBlock(const Block& block, const char* file, int line) {
    if (block) return;
    std::fprintf(stderr, "%s:%d: you must supply a commandBlock\n", file, line);
    std::abort();
}

} // namespace

TBUSBPrinter::TBUSBPrinter(Environment& environment)
    : _environment(environment), _interests(environment.sharedNotificationPort()->interests()),
      _deviceObjects(environment.deviceObjects) {}

TBUSBPrinter::~TBUSBPrinter() {
    _deviceObjects->remove(keyUSBdevice(), _creationToken);
}

void TBUSBPrinter::initialize(MainQueue& mainQueue) {
    mainQueue.setSpecific(&mainQueueKey, &mainQueue);
}

const void* TBUSBPrinter::printerCommandQueueKey() {
    return &commandQueueKey;
}
const void* TBUSBPrinter::mainQueueSpecificKey() {
    return &mainQueueKey;
}

void TBUSBPrinter::initWithInterfaceInterface(InterfacePtr interfaceInterface, ServiceToken deviceObject) {
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
    update1284DeviceID([&](bool found, const Text& deviceID) {
        if (!found || !deviceID) {
            logText("the printer at %s did not report its device ID", locationText());
            emit(events::IdentityMissing{});
            return;
        }
        decodeDeviceID(*deviceID, [&](const Text& manufacturer, const Text& model, const Text& serialNumber,
                                      const Text& /*description*/) {
            _deviceInfoDict->setString("manufacturer", manufacturer);
            _deviceInfoDict->setString("model", model);
            performSyncOnMainQueue([&] {
                if (!this->manufacturer()) setManufacturer(manufacturer);
                if (!this->model()) setModel(model);
            });
            makeCommandQueue(manufacturer, model, serialNumber);
            setDeviceObject(deviceObject);
        });
    });
}

void TBUSBPrinter::makeCommandQueue(const Text& manufacturer, const Text& model, const Text& serialNumber) {
    _idSerialNumber = serialNumber;
    const Text serial = serialNumber ? serialNumber : serialNumberUSB();
    const std::string label = kQueueLabelPrefix + formatted("printer.%s.%s.%s", textOrNull(manufacturer),
                                                            textOrNull(model), textOrNull(serial));
    auto queue = std::make_shared<SerialQueue>(label, _environment.clock);
    queue->setSpecific(&commandQueueKey, queue.get());
    _printerCommandQueue = std::move(queue);
    logText("printer command queue:%s", label);
}

void TBUSBPrinter::initWithDeviceObject(ServiceToken deviceObject) {
    _creationToken = deviceObject;
    setDeviceObject(deviceObject);
}

bool TBUSBPrinter::isPrinterCommandQueue() const {
    return _printerCommandQueue == nullptr || Queue::currentSpecific(&commandQueueKey) == _printerCommandQueue.get();
}

void TBUSBPrinter::assertOnCommandQueue() const {
    if (isPrinterCommandQueue()) return;
    static constexpr const char* kText = "a block of the command queue runs on another queue";
#ifdef ZUL_SANITIZED
    std::fprintf(stderr, "%s\n", kText);
    std::abort();
#else
    static std::once_flag isLogged;
    std::call_once(isLogged, [] { logText("%s", kText); });
#endif
}

bool TBUSBPrinter::isMainQueue() {
    // The marker's value is the main queue itself; no other queue carries the key.
    return Queue::currentSpecific(&mainQueueKey) != nullptr;
}

void TBUSBPrinter::performInlineOnCommandQueue(Block block) {
    if (!block) return;
    if (isPrinterCommandQueue()) {
        block();
        return;
    }
    _printerCommandQueue->async(std::move(block));
}

bool TBUSBPrinter::performSyncOnMainQueue(Block block) {
    if (isMainQueue()) {
        block();
        return true;
    }
    return _environment.mainQueue.sync(std::move(block));
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
                if (replyQueue._queue == self->_printerCommandQueue) {
                    reply(answer);
                } else {
                    replyQueue._queue->async([reply, answer = std::move(answer)] { reply(answer); });
                }
                return;
            }
        });
}

void TBUSBPrinter::prepareForRelease() {
    _released = true; // at once: a wait that runs now must give up before the queue can get to the release
    if (const auto interests = _interests.lock(); interests && _creationInterest != 0) {
        interests->remove(_creationInterest);
    }
    _creationInterest = 0;
    Block release = [self = shared_from_this()] {
        self->setInterfaceInterface(nullptr);
        self->setDeviceInterface(nullptr);
        self->setDeviceObject(0);
    };
    if (_printerCommandQueue) {
        _printerCommandQueue->async(std::move(release));
    } else {
        release(); // nothing else could run it
    }
}

void TBUSBPrinter::setState(std::int64_t state) {
    const KeyChange change(*this, "state");
    _state = state;
}

void TBUSBPrinter::setInFirmwareUpdate(bool inUpdate) {
    if (!inUpdate) _deviceObjects->endUpdate(keyUSBdevice(), _creationToken);
    const KeyChange change(*this, "inFirmwareUpdate");
    _isBusy = inUpdate;
}

void TBUSBPrinter::storeInfo(const std::string& key, const Text& value) {
    storeInfo(key, value, key);
}

void TBUSBPrinter::storeInfo(const std::string& key, const Text& value, const std::string& noticeKey) {
    const KeyChange change(*this, noticeKey);
    _deviceInfoDict->setString(key, value);
}

void TBUSBPrinter::emit(PrinterEvent::What what) const {
    if (_environment.events == nullptr) return;
    _environment.events->printerEvent(
        {.key = keyUSBdevice(), .location = locationText(), .attachment = _creationToken, .what = std::move(what)});
}

} // namespace zul
