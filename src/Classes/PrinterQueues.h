// The queues of one printer: its command queue, which exists once its IEEE 1284 device ID has been decoded, and the
// main queue. Until then every operation runs inline on the caller, in the role of the command queue.
#pragma once

#include "platform/dispatch/Clock.h"
#include "platform/dispatch/Queue.h"
#include "platform/dispatch/QueueRole.h"

#include <memory>
#include <string>

namespace zul {

class PrinterQueues {
  public:
    /// Both outlive the printer.
    PrinterQueues(MainQueue& mainQueue, Clock& clock) : _mainQueue(mainQueue), _clock(clock) {}
    virtual ~PrinterQueues() = default;

    /// Marks the main queue, so that isMainQueue recognises it. Once per main queue, before the first printer.
    static void initialize(MainQueue& mainQueue);

    /// Every thread has this role while there is no queue.
    QueueRole commandQueueRole;
    /// The first statement of every block that is handed to the command queue. On another queue it ends a program with
    /// sanitizers; any other logs that once and continues, as ending in the middle of a flash is worse.
    void assertOnCommandQueue() const ZUL_ASSERTS_ROLE(commandQueueRole);
    /// Null for a printer that did not report its device ID. Any thread, once the object is initialised.
    std::shared_ptr<SerialQueue> printerCommandQueue() const { return _printerCommandQueue; }
    /// The markers by which a queue is recognised: addresses, never read. Any thread.
    static const void* printerCommandQueueKey();
    static const void* mainQueueSpecificKey();
    /// True on this printer's command queue, and everywhere while there is none. Any thread.
    bool isPrinterCommandQueue() const;
    /// True on the main queue. Any thread.
    static bool isMainQueue();
    /// Runs block at once on the command queue, else posts it there. Never waits, despite its name. Any thread.
    void performInlineOnCommandQueue(Block block);
    /// Runs block at once on the main queue, else posts it there and waits. False when the program is ending and the
    /// block has not run. Never while holding a lock.
    bool performSyncOnMainQueue(Block block);

  protected:
    /// Makes the command queue. Once, on main, before another queue knows the printer.
    void makeCommandQueue(const std::string& label);
    /// Runs block on the command queue after what is queued there; on the main queue while there is none. Any thread.
    void postToCommandQueue(Block block);
    /// Runs block after what is queued on the command queue; at once while there is no queue. Any thread.
    void runAfterQueuedCommands(Block block);

  private:
    MainQueue& _mainQueue;
    Clock& _clock;

    // Set once, before another queue knows the object.
    std::shared_ptr<SerialQueue> _printerCommandQueue;
};

} // namespace zul
