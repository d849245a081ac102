// Connects a printer to a USB device controller: passes bytes and control requests between the host and the printer.
#pragma once

#include "platform/files/ScopedFd.h"
#include "platform/foundation/Data.h"
#include "vkgadget/ConfigfsGadget.h"
#include "vkgadget/EndpointThreads.h"
#include "vkgadget/FunctionFs.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

namespace zul {

/// Each handler is called on a separate thread; received on one per interface.
struct ConnectionHandlers {
    /// Receives bytes of the host, in order for each interface. Returns how many more bytes the current command needs;
    /// the host waits until it returns.
    std::function<std::size_t(std::size_t interface, const Data& bytes)> received;
    /// The host has configured the device (true), or has reset, left or lost it (false).
    std::function<void(bool configured)> configured;
    /// A control request was answered or refused.
    std::function<void(const SetupRequest& request, bool answered)> controlled;
};

/// open(), close() and setSerialNumber() on one thread; the others on any. Failures throw GadgetError.
class GadgetConnection {
  public:
    /// name: of the gadget in configfs; only one process can use a name. interfaces: 1 or 2.
    GadgetConnection(std::string name, const GadgetIdentity& identity, int interfaces, ConnectionHandlers handlers);
    ~GadgetConnection() { close(); }
    GadgetConnection(const GadgetConnection&) = delete;
    GadgetConnection& operator=(const GadgetConnection&) = delete;

    /// Creates the gadget, not plugged in.
    void open();
    /// Removes the gadget. Not an error if it was not open.
    void close();

    /// Sets the device ID that is returned from now on, after its two bytes of length; empty: the request is refused.
    void setDeviceID(const std::string& text);
    /// Sets the serial number for the next plug-in; empty for none.
    void setSerialNumber(const std::string& serialNumber) { _gadget.setSerialNumber(serialNumber); }

    /// Connects to the controller: the host detects the device.
    void plugInto(const std::string& udc);
    /// Disconnects from the controller. Transfers that the host has not fetched are lost.
    void unplug();
    /// Between plugInto() and unplug(). Any thread.
    bool isPlugged() const;

    /// Queues one transfer to the host, ended by a short packet.
    void send(std::size_t interface, Data transfer) { _threads->send(interface, std::move(transfer)); }
    /// Makes the host's reads fail until it clears the halt.
    void stallReads(std::size_t interface) { _threads->stallIn(interface); }
    /// Makes the host's current write fail if it has more data, otherwise its next one. Call only inside received.
    void stallWrites(std::size_t interface) { _threads->stallOut(interface); }
    /// Drops the transfers that the host has not fetched.
    void dropTransfers() { _threads->dropTransfers(); }

  private:
    std::optional<Data> answerTo(const SetupRequest& request);

    ConnectionHandlers _handlers;
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
