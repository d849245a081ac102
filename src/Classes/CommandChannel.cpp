// Bulk transfers, frames and replies of one printer, and the events that report them. Called by the printer and its
// query exchange on the command queue.
#include "Classes/CommandChannel.h"

#include "Classes/PrinterEvents.h"
#include "Classes/PrinterReporter.h"
#include "Classes/StatusCodeNames.h"
#include "holven_log/HOLVEN_Log.h"
#include "platform/foundation/Data.h"
#include "platform/foundation/Format.h"
#include "platform/usb/IOReturn.h"
#include "platform/usb/IOUSBInterfaceInterface.h"
#include "protocol/CommandFrame.h"
#include "protocol/ReplyShapes.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <utility>

namespace zul {

namespace {

constexpr std::uint32_t kBulkTimeout = 5000; // ms, both time-outs of every bulk transfer
// Of a frame in the log: its header of 32 bytes and the beginning of its payload; an image would fill the log.
constexpr std::size_t kDumpedBytes = 64;
// At first; the buffer grows for a reply that announces more.
constexpr std::size_t kReplyBufferSize = 256;
constexpr std::uint32_t kReplyHeaderSize = 8;
// A larger number is taken for a broken header: a read of so much would block the queue until its time-out.
constexpr long kLargestReply = 4096;
// The number of the internal error that support staff know.
constexpr int kReplyTooLong = 2112;

} // namespace

// ---- transfers ------------------------------------------------------------------------------------------------------

void CommandChannel::findPipes() {
    if (!_interface) return;
    std::uint8_t count = 0;
    if (const IOReturn code = _interface->GetNumEndpoints(count); code != kIOReturnSuccess) {
        logText("failure for GetNumEndpoints on the open USB device; error=[%d]\n", asSigned(code));
        return;
    }
    for (unsigned pipe = 1; pipe <= count; ++pipe) { // pipe 0 is the control pipe
        PipeProperties properties;
        const auto index = static_cast<std::uint8_t>(pipe);
        if (_interface->GetPipeProperties(index, properties) != kIOReturnSuccess) continue;
        if (properties.transferType != kUSBBulk) continue;
        // The printers have one bulk pipe for each direction; of several the last one is used.
        (properties.direction == PipeDirection::out ? _bulkOUT : _bulkIN) = index;
    }
}

bool CommandChannel::write(const Data& data) {
    logText("writing to %s interface with %lu byte payload", _printer.descriptionUTF8(), data.size());
    const auto size = static_cast<std::uint32_t>(data.size());
    const IOReturn code = _interface ? _interface->WritePipeTO(_bulkOUT, data.data(), size, kBulkTimeout, kBulkTimeout)
                                     : kIOReturnNoDevice;
    _status.write.store(code);
    return code == kIOReturnSuccess;
}

bool CommandChannel::read(void* buffer, std::uint32_t& size) {
    IOReturn code = kIOReturnNoDevice;
    if (_interface) {
        code = _interface->ReadPipeTO(_bulkIN, buffer, size, kBulkTimeout, kBulkTimeout);
    } else {
        size = 0;
    }
    _status.read.store(code);
    return code == kIOReturnSuccess;
}

IOReturn CommandChannel::resynchronize() {
    return _interface ? _interface->resynchronize(_bulkIN) : kIOReturnNoDevice;
}

// ---- frames ---------------------------------------------------------------------------------------------------------

bool CommandChannel::sendFrame(std::uint32_t code, const Data* payload) {
    for (const int number : commandFrameErrors(code, payload == nullptr ? 0 : payload->size())) {
        _printer.reportInternalError(number);
    }
    const Data frame = commandFrame(code, payload);
    const auto text = commandText(code);
    const std::size_t payloadSize = frame.size() - kFrameHeaderSize;
    logText("sending printer command %s with payload size %u",
            textOrNull(text ? std::optional<std::string>(*text) : std::nullopt), payloadSize);
    HOLVEN_Log::logData(
        Data(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(std::min(kDumpedBytes, frame.size()))));
    const bool isWritten = write(frame);
    const IOReturn status = _status.write;
    _printer.emit(
        events::CommandSent{.command = code, .payloadLength = static_cast<std::uint32_t>(payloadSize), .code = status});
    if (!isWritten) {
        logText("ERROR: writeToInterfaceWithData: [%x] (%s)", asHex(status), strForIOReturn(status));
        _printer.reportCommunicationError();
    }
    return isWritten;
}

// ---- replies --------------------------------------------------------------------------------------------------------

CommandChannel::Reply CommandChannel::readReply() {
    Data buffer(kReplyBufferSize, 0);
    std::uint32_t count = kReplyHeaderSize;
    const bool isHeaderRead = readReported(buffer.data(), count);
    logText("reading backchannel for %u bytes on %s", count, _printer.descriptionUTF8());
    if (!isHeaderRead) {
        logText("bad read (%s) on backchannel of %s", strForIOReturn(_status.read), _printer.descriptionUTF8());
        return {.fault = ReplyFault::missing};
    }
    buffer[kReplyHeaderSize] = 0; // strtol() stops there
    // Also after a faulty header the body is read by the number at its start: left in the pipe, the body would be taken
    // for the next reply.
    const ReplyFault fault = isReplyHeader({buffer.data(), count}) ? ReplyFault::none : ReplyFault::brokenHeader;
    const long announced = std::strtol(reinterpret_cast<const char*>(buffer.data()), nullptr, 10);
    // The body is not read; the pipe is emptied by the caller's resynchronization.
    if (announced < 0 || announced > kLargestReply) {
        _printer.reportInternalError(kReplyTooLong);
        return {.fault = ReplyFault::brokenHeader};
    }
    const auto length = static_cast<std::uint32_t>(announced);
    if (buffer.size() < length + 1) buffer.resize(length + 1, 0);
    return readBody(std::move(buffer), length, fault);
}

// The digits of the header may still follow the body: the text ends at the first NUL.
CommandChannel::Reply CommandChannel::readBody(Data buffer, std::uint32_t length, ReplyFault fault) {
    std::uint32_t count = length;
    if (length == 0) {
        _status.read.store(kIOReturnSuccess); // a read of 0 bytes would wait for a packet that never comes
    } else if (!readReported(buffer.data(), count)) {
        logText("bad read (%s) on backchannel of %s", strForIOReturn(_status.read), _printer.descriptionUTF8());
        return {.fault = ReplyFault::missing};
    }
    // The fault of the header is kept: it is the earlier one.
    if (count < length && fault == ReplyFault::none) fault = ReplyFault::tooShort;
    buffer[count] = 0;
    const auto end = buffer.begin() + count;
    const auto carriageReturn = std::find(buffer.begin(), end, '\r');
    if (carriageReturn != end) {
        *carriageReturn = 0;
        buffer.erase(carriageReturn + 1, buffer.end());
    }
    _printer.emit(events::ReplyRead{.text = stringFromNulTerminatedUTF8(buffer)});
    return {.fault = fault, .body = std::move(buffer)};
}

CommandChannel::Reply CommandChannel::query(std::uint32_t code, const Data* payload, IfNotSent ifNotSent) {
    if (sendFrame(code, payload) || ifNotSent == IfNotSent::readReply) return readReply();
    _printer.emit(events::ReplyMissing{.code = _status.write});
    return {.fault = ReplyFault::missing};
}

bool CommandChannel::readReported(void* buffer, std::uint32_t& size) {
    if (read(buffer, size)) return true;
    _printer.emit(events::ReplyMissing{.code = _status.read});
    return false;
}

} // namespace zul
