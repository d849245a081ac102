// The connection to a printer's interface: its handle, its bulk pipes, and the frames and replies that go through them.
// It knows how a command and a reply are framed, not what they mean. Used on the printer's command queue only, with the
// interface open for every transfer; a printer without a queue uses it on main.
#pragma once

#include "platform/foundation/Data.h"
#include "platform/usb/IOReturn.h"
#include "platform/usb/IOUSBInterfaceInterface.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

namespace zul {

class PrinterReporter;

/// Results of the last transfers and of the last open. Written on the command queue, read on any thread.
struct TransferStatus {
    std::atomic<IOReturn> read{kIOReturnSuccess};
    std::atomic<IOReturn> write{kIOReturnSuccess};
    std::atomic<IOReturn> open{kIOReturnSuccess};
};

/// What is wrong with a reply.
enum class ReplyFault {
    none,
    missing,      // nothing could be read
    brokenHeader, // its length is no number, or longer than any reply
    tooShort,     // fewer bytes than its header announced
    wrongShape,   // it cannot be the answer to its question
};

/// Whether a reply is read after a frame that the bus did not take.
enum class IfNotSent { readReply, giveUp };

class CommandChannel {
  public:
    using InterfacePtr = std::shared_ptr<IOUSBInterfaceInterface>;

    /// Both outlive the channel.
    CommandChannel(PrinterReporter& printer, TransferStatus& status) : _printer(printer), _status(status) {}

    /// Null: there is no interface (any more), and every transfer ends with kIOReturnNoDevice.
    void setInterface(InterfacePtr interface) { _interface = std::move(interface); }
    /// Null after the release.
    const InterfacePtr& interface() const { return _interface; }
    /// Finds the bulk pipes from the descriptors; a pipe that is not found keeps its number. An error is only logged:
    /// the transfers report it.
    void findPipes();

    /// One bulk write of the whole data (time-outs 5000 ms). True exactly when TransferStatus::write is success.
    bool write(const Data& data);
    /// One bulk read of at most size bytes (time-outs 5000 ms); afterwards size is what came. True exactly when
    /// TransferStatus::read is success.
    bool read(void* buffer, std::uint32_t& size);

    /// Writes the frame of a command and reports that, with the parts that do not fit into the frame. False, also
    /// reported, if the bus did not take it.
    bool sendFrame(std::uint32_t code, const Data* payload);

    struct Reply {
        ReplyFault fault = ReplyFault::none;
        std::optional<Data> body = {}; // with the carriage return replaced by NUL; nullopt if nothing could be read
    };
    /// Reads one reply, a header of eight bytes and a body, and reports that. The body of a reply that is announced
    /// with more than 4096 bytes is not read. Blocks for up to two time-outs.
    Reply readReply();
    /// sendFrame(), then readReply(). A frame that the bus did not take is followed by a read all the same, unless the
    /// caller cannot wait for one: then the reply is reported as missing.
    Reply query(std::uint32_t code, const Data* payload, IfNotSent ifNotSent);
    /// Empties the pipe of the replies. Codes: those of the bus; kIOReturnNoDevice without an interface.
    IOReturn resynchronize();

  private:
    Reply readBody(Data buffer, std::uint32_t length, ReplyFault fault);
    bool readReported(void* buffer, std::uint32_t& size);

    PrinterReporter& _printer;
    TransferStatus& _status;
    InterfacePtr _interface;
    std::uint8_t _bulkIN = 0;
    std::uint8_t _bulkOUT = 0;
};

} // namespace zul
