#include "virtual_printer/gadget/ReadAhead.h"

#include <algorithm>
#include <string>

namespace zul {

namespace {

constexpr std::size_t kHeaderSize = 32;
constexpr std::size_t kSizeFieldOffset = 24;

} // namespace

void ReadAhead::received(const Data& bytes) {
    std::size_t at = 0;
    while (at < bytes.size()) {
        if (_payloadLeft > 0) {
            const std::size_t taken = std::min(_payloadLeft, bytes.size() - at);
            _payloadLeft -= taken;
            at += taken;
            continue;
        }
        _header.push_back(bytes[at++]);
        if (_header.size() == kHeaderSize) headerComplete();
    }
}

void ReadAhead::headerComplete() {
    // A header that is none announces nothing: reading goes on packet by packet.
    if (_header[0] == 0x1B && _header[1] == 0x50) {
        const std::int64_t size = integerValue(std::string(_header.begin() + kSizeFieldOffset, _header.end()));
        _payloadLeft = size > 0 ? static_cast<std::size_t>(size) : 0;
    }
    _header.clear();
}

void ReadAhead::restart() {
    _header.clear();
    _payloadLeft = 0;
}

std::size_t ReadAhead::nextReadSize(std::size_t packetSize, std::size_t limit) const {
    const std::size_t wholePackets = std::min(_payloadLeft, limit) / packetSize * packetSize;
    return std::max(wholePackets, packetSize);
}

} // namespace zul
