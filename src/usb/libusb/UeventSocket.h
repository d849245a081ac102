// The kernel's own reports of devices that come and go. They need no daemon and no rights.
#pragma once

namespace zul {

/// Used on one thread at a time.
class UeventSocket {
  public:
    /// Not open when the system refuses it, or when it is not wanted.
    explicit UeventSocket(bool isWanted);
    ~UeventSocket();
    UeventSocket(const UeventSocket&) = delete;
    UeventSocket& operator=(const UeventSocket&) = delete;

    bool isOpen() const { return _descriptor >= 0; }
    /// Readable when reports wait; -1 when not open.
    int descriptor() const { return _descriptor; }
    /// Reads what waits. True if a report was about USB, or if reports were lost.
    bool readReports();

  private:
    int _descriptor = -1;
};

} // namespace zul
