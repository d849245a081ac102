// A printer plugged into a USB device controller: passes bytes and control requests between the host and the printer.
#pragma once

#include "platform/files/ScopedFd.h"
#include "vkgadget/ConfigfsGadget.h"
#include "vkgadget/EndpointThreads.h"
#include "vkgadget/FunctionFs.h"

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace zul {

/// Each is called on a thread of its own, received on one for each interface.
struct PortHandlers {
    /// Bytes from the host, in order for each interface. Answers how many more the command under way needs; the host
    /// waits meanwhile.
    std::function<std::size_t(std::size_t interface, const Data& bytes)> received;
    /// The host has configured the device (true) or has reset, left or lost it (false).
    std::function<void(bool configured)> configured;
    /// A control request came and was answered, or not.
    std::function<void(const SetupRequest& request, bool answered)> controlled;
};

/// open, close and setSerialNumber on one thread; the others on any. What fails throws GadgetError.
class GadgetPort {
  public:
    GadgetPort(std::string name, const GadgetIdentity& identity, int interfaces, PortHandlers handlers);
    ~GadgetPort() { close(); }
    GadgetPort(const GadgetPort&) = delete;
    GadgetPort& operator=(const GadgetPort&) = delete;

    /// Makes the gadget, still unplugged.
    void open();
    /// Takes it out of the system. Not an error when it was not open.
    void close();

    /// Answered from now on, with its two bytes of length in front; empty: the request is refused.
    void setDeviceID(const std::string& text);
    /// Shown from the next plug-in on; empty for none.
    void setSerialNumber(const std::string& serialNumber) { _gadget.setSerialNumber(serialNumber); }

    /// Connects to the controller: the host sees the device.
    void plugInto(const std::string& udc);
    /// What the host has not fetched is lost.
    void unplug();
    bool isPlugged() const;

    /// One transfer to the host, ended by a short packet.
    void send(std::size_t interface, Data transfer) { _threads->send(interface, std::move(transfer)); }
    /// The host's next read fails at once, and all others until it clears the halt.
    void stallReads(std::size_t interface) { _threads->stallIn(interface); }
    /// The host's write fails when more of it is still to come, otherwise its next one. Only inside received.
    void stallWrites(std::size_t interface) { _threads->stallOut(interface); }
    /// Forgets what the host has not fetched.
    void dropTransfers() { _threads->dropTransfers(); }

  private:
    std::optional<Data> answerTo(const SetupRequest& request);

    PortHandlers _handlers;
    ScopedFd _nameLock;
    std::string _name;
    const int _interfaces;
    mutable std::mutex _plugMutex;
    ConfigfsGadget _gadget;
    FunctionFs _function;
    std::unique_ptr<EndpointThreads> _threads;
    std::mutex _deviceIDMutex;
    Data _deviceID;
};

} // namespace zul
