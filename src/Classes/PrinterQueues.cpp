// Which block runs where: on the printer's command queue or on main, at once or posted. Called by the printer and its
// collaborators on any thread; nothing here touches the device.
#include "Classes/PrinterQueues.h"

#include "platform/dispatch/Clock.h"
#include "platform/dispatch/Queue.h"
#include "platform/dispatch/QueueRole.h"

#include <memory>
#include <mutex>
#include <string>
#include <utility>

namespace zul {

namespace {

// Only the addresses are used: they are the keys of the queues' specific data.
const char commandQueueKey = 0;
const char mainQueueKey = 0;

} // namespace

void PrinterQueues::initialize(MainQueue& mainQueue) {
    mainQueue.setSpecific(&mainQueueKey, &mainQueue);
}

const void* PrinterQueues::printerCommandQueueKey() {
    return &commandQueueKey;
}
const void* PrinterQueues::mainQueueSpecificKey() {
    return &mainQueueKey;
}

void PrinterQueues::makeCommandQueue(const std::string& label) {
    auto queue = std::make_shared<SerialQueue>(label, _clock);
    queue->setSpecific(&commandQueueKey, queue.get());
    _printerCommandQueue = std::move(queue);
}

bool PrinterQueues::isPrinterCommandQueue() const {
    return _printerCommandQueue == nullptr || Queue::currentSpecific(&commandQueueKey) == _printerCommandQueue.get();
}

void PrinterQueues::assertOnCommandQueue() const {
    if (isPrinterCommandQueue()) return;
    static std::once_flag isLogged;
    reportWrongQueue(isLogged, "a block of the command queue runs on another queue");
}

bool PrinterQueues::isMainQueue() {
    // The marker's value is the main queue itself; no other queue carries the key.
    return Queue::currentSpecific(&mainQueueKey) != nullptr;
}

void PrinterQueues::performInlineOnCommandQueue(Block block) {
    if (!block) return;
    if (isPrinterCommandQueue()) {
        block();
        return;
    }
    _printerCommandQueue->async(std::move(block));
}

bool PrinterQueues::performSyncOnMainQueue(Block block) {
    if (isMainQueue()) {
        block();
        return true;
    }
    return _mainQueue.sync(std::move(block));
}

// A printer without a command queue uses the main queue: there, too, the block runs after the caller has finished.
void PrinterQueues::postToCommandQueue(Block block) {
    if (_printerCommandQueue) {
        _printerCommandQueue->async(std::move(block));
    } else {
        _mainQueue.async(std::move(block));
    }
}

void PrinterQueues::runAfterQueuedCommands(Block block) {
    if (_printerCommandQueue) {
        _printerCommandQueue->async(std::move(block)); // even from that queue: it runs after what is queued
    } else {
        block(); // nothing else could run it
    }
}

} // namespace zul
