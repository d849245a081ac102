// One exchange on the wire: a frame is written, a reply is read. Command queue, with the interface open.
#include "Classes/CommandFrame.h"
#include "Classes/ReplyShapes.h"
#include "Classes/TBUSBPrinterZUL.h"

#include "Classes/StatusCodeNames.h"
#include "holven_log/HOLVEN_Log.h"
#include "platform/foundation/Bundle.h"
#include "platform/foundation/Format.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace zul {

namespace {

constexpr std::size_t kDumpedBytes = 64;
constexpr std::uint32_t kBackchannelTimeout = 5000; // ms
constexpr std::size_t kReplyBufferSize = 256;
constexpr std::uint32_t kReplyHeaderSize = 8;
constexpr long kLargestReply = 4096;

// The number of the internal error that support staff know.
constexpr int kReplyTooLong = 2112;

} // namespace

TBUSBPrinter::Text TBUSBPrinterZUL::stringForCommandCode(std::uint32_t code) {
    const auto text = commandText(code);
    return text ? Text(*text) : std::nullopt;
}

void TBUSBPrinterZUL::sendPrinterCommand(std::uint32_t code, const Data* payload) {
    const Data frame = commandFrame(code, payload);
    const Text text = stringForCommandCode(code);
    for (const int number : commandFrameErrors(code, payload == nullptr ? 0 : payload->size())) {
        reportInternalError(number);
    }
    const std::size_t payloadSize = frame.size() - kFrameHeaderSize;
    logText("sending printer command %s with payload size %u", textOrNull(text), payloadSize);
    HOLVEN_Log::logData(
        Data(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(std::min(kDumpedBytes, frame.size()))));

    static_cast<void>(state());
    const bool written = writeToInterfaceWithData(frame);
    emit(events::CommandSent{
        .command = code, .payloadLength = static_cast<std::uint32_t>(payloadSize), .code = _writeStatus});
    if (written) return;
    logText("ERROR: writeToInterfaceWithData: [%x] (%s)", asHex(_writeStatus), strForIOReturn(_writeStatus));
    errorWithString(_environment.mainBundle.localizedString("Communication error"), 0);
}

bool TBUSBPrinterZUL::readBackchannel(void* buffer, std::uint32_t& size) {
    if (_iInterface) {
        _readStatus.store(_iInterface->ReadPipeTO(_bulkIN, buffer, size, kBackchannelTimeout, kBackchannelTimeout));
    } else {
        _readStatus.store(kIOReturnNoDevice);
        size = 0;
    }
    if (_readStatus.load() == kIOReturnSuccess) return true;
    emit(events::ReplyMissing{.code = _readStatus});
    return false;
}

std::optional<Data> TBUSBPrinterZUL::printerReply() {
    Data buffer(kReplyBufferSize, 0);
    _exchange.fault = ReplyFault::missing;
    if (std::exchange(_exchange.isUnsent, false)) {
        emit(events::ReplyMissing{.code = _writeStatus});
        return std::nullopt;
    }
    std::uint32_t count = kReplyHeaderSize;
    const bool headerRead = readBackchannel(buffer.data(), count);
    logText("reading backchannel for %u bytes on %s", count, descriptionUTF8());
    if (!headerRead) {
        logText("bad read (%s) on backchannel of %s", strForIOReturn(_readStatus), descriptionUTF8());
        return std::nullopt;
    }
    buffer[kReplyHeaderSize] = 0;
    _exchange.fault = isReplyHeader({buffer.data(), count}) ? ReplyFault::none : ReplyFault::brokenHeader;
    const long announced = std::strtol(reinterpret_cast<const char*>(buffer.data()), nullptr, 10);
    if (announced < 0 || announced > kLargestReply) {
        reportInternalError(kReplyTooLong); // the body stays unread
        _exchange.fault = ReplyFault::brokenHeader;
        return std::nullopt;
    }
    const auto length = static_cast<std::uint32_t>(announced);
    if (buffer.size() < length + 1) buffer.resize(length + 1, 0);
    return readReplyBody(std::move(buffer), length);
}

// The header's digits may still stand behind the body: what counts ends at the first NUL.
std::optional<Data> TBUSBPrinterZUL::readReplyBody(Data buffer, std::uint32_t length) {
    std::uint32_t count = length;
    if (length == 0) {
        _readStatus.store(kIOReturnSuccess); // a read of nothing would wait for a packet that never comes
    } else if (!readBackchannel(buffer.data(), count)) {
        logText("bad read (%s) on backchannel of %s", strForIOReturn(_readStatus), descriptionUTF8());
        _exchange.fault = ReplyFault::missing;
        return std::nullopt;
    }
    if (count < length && _exchange.fault == ReplyFault::none) _exchange.fault = ReplyFault::tooShort;
    buffer[count] = 0;
    const auto end = buffer.begin() + count;
    const auto carriageReturn = std::find(buffer.begin(), end, '\r');
    if (carriageReturn != end) {
        *carriageReturn = 0;
        buffer.erase(carriageReturn + 1, buffer.end());
    }
    emit(events::ReplyRead{.text = stringFromNulTerminatedUTF8(buffer)});
    return buffer;
}

void TBUSBPrinterZUL::reportInternalError(int number) {
    // The localised text keeps the key's one placeholder.
    std::string text = _environment.mainBundle.localizedString("Internal error L%d");
    if (const auto placeholder = text.find("%d"); placeholder != std::string::npos) {
        text.replace(placeholder, 2, std::to_string(number));
    }
    errorWithString(text, 0);
}

// Failures show as missing replies and log lines; nothing is kept here, so that nobody comes to rely on it.
void TBUSBPrinterZUL::errorWithString(const std::string& /*message*/, int /*code*/) {}

} // namespace zul
