// How many bytes may be asked for at once on the endpoint that the host writes to.
#pragma once

#include "platform/foundation/Data.h"

#include <cstddef>

namespace zul {

/// A read ends at a short packet or when it is full, and a host ends nothing with an empty packet. So a read that asks
/// for more than the command still brings may wait for ever, and one that asks for a packet at a time takes minutes for
/// a firmware image. Follows the commands' headers to know. One thread.
class ReadAhead {
  public:
    /// Bytes came in, in order.
    void received(const Data& bytes);
    /// The bus was reset or left: the next byte begins a command.
    void restart();
    /// The size of the next read: a multiple of packetSize, at least one, at most limit.
    std::size_t nextReadSize(std::size_t packetSize, std::size_t limit) const;

  private:
    void headerComplete();

    Data _header;
    std::size_t _payloadLeft = 0;
};

} // namespace zul
