// Values and small types of the printers' public operations. Constants and plain values, any thread.
#pragma once

#include "platform/dispatch/Queue.h"

#include <cstdint>
#include <memory>
#include <utility>

namespace zul {

/// Values of state; interfaceStatus takes the same numbers.
enum TBPrinterState : std::int64_t {
    kTBPrinterClosed = 1,  // set by every close
    kTBPrinterOpen = 2,    // the interface is open by this program
    kTBPrinterOpening = 4, // an open is under way; stays while another program holds the interface
    kTBPrinterProbed = 8,  // the device object was set, opened and closed once without being refused
};

/// Values of isOwned: the process that has the interface open.
enum class Ownership : std::int64_t { otherProgram = -1, none = 0, thisProgram = 1 };

/// Where a reply is delivered.
class ReplyQueue {
  public:
    /// The main queue, as when no queue is named.
    static ReplyQueue mainQueue() { return ReplyQueue(Kind::main, nullptr); }
    /// The printer's own command queue: delivered inline. Can be named while no queue object exists yet.
    static ReplyQueue commandQueue() { return ReplyQueue(Kind::command, nullptr); }
    /// Any other queue, not null; delivered with a later block, inline only if it is the printer's own.
    static ReplyQueue on(std::shared_ptr<Queue> queue) { return ReplyQueue(Kind::other, std::move(queue)); }

  private:
    friend class TBUSBPrinter;
    enum class Kind { main, command, other };
    ReplyQueue(Kind kind, std::shared_ptr<Queue> queue) : _kind(kind), _queue(std::move(queue)) {}
    Kind _kind;
    std::shared_ptr<Queue> _queue;
};

/// Recipient of the printer-class soft reset.
enum class Recipient { interface, other };

} // namespace zul
