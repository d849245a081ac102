// The kernel's own reports of arrivals and departures. They need no daemon and no permissions.
#pragma once

#include "platform/files/ScopedFd.h"

namespace zul {

/// Used on one thread at a time.
class UeventSocket {
  public:
    /// Not open when the system refuses it, or when it is not wanted.
    explicit UeventSocket(bool isWanted);

    /// False: the bus has to be listed at intervals.
    bool isOpen() const { return bool(_socket); }
    /// Readable when reports wait; -1 when not open.
    int descriptor() const { return _socket.get(); }
    /// Reads what waits. True if a report was about USB, or if reports were lost.
    bool readReports();

  private:
    ScopedFd _socket;
};

} // namespace zul
