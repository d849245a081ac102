// A USB device controller with a printer's plug in it: what the printer says goes to the host, and the other way round.
#pragma once

#include "platform/dispatch/Queue.h"
#include "virtual_printer/gadget/ConfigfsGadget.h"
#include "virtual_printer/gadget/EndpointThreads.h"
#include "virtual_printer/gadget/FunctionFs.h"
#include "virtual_printer/gadget/ScopedFd.h"

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace zul {

/// Called on the main queue.
struct PortHandlers {
    /// Bytes from the host, in order.
    std::function<void(const Data& bytes)> received;
    /// The host has configured the device (true) or has reset, left or lost it (false).
    std::function<void(bool configured)> configured;
};

/// Main queue only, except where noted. Everything that fails throws GadgetError.
class GadgetPort {
  public:
    GadgetPort(MainQueue& mainQueue, std::string name, const GadgetIdentity& identity, PortHandlers handlers);
    ~GadgetPort() { close(); }
    GadgetPort(const GadgetPort&) = delete;
    GadgetPort& operator=(const GadgetPort&) = delete;

    /// Makes the gadget, still unplugged.
    void open();
    /// Takes it out of the system. Not an error when it was not open.
    void close();

    /// The text with its two bytes of length in front; answered from now on. Any thread.
    void setDeviceID(const std::string& text);
    /// Shown from the next plug-in on.
    void setSerialNumber(const std::string& serialNumber) { _gadget.setSerialNumber(serialNumber); }

    void plugInto(const std::string& udc);
    /// What the host has not fetched is lost.
    void unplug();
    bool isPlugged() const { return _gadget.isPlugged(); }

    /// One transfer to the host, ended by a short packet.
    void send(Data transfer) { _threads->send(std::move(transfer)); }
    /// The host's next read fails at once, and all others until it clears the halt.
    void stallReads() { _threads->stall(); }

  private:
    std::optional<Data> answerTo(const SetupRequest& request);

    MainQueue& _mainQueue;
    PortHandlers _handlers;
    ScopedFd _nameLock;
    std::string _name;
    ConfigfsGadget _gadget;
    FunctionFs _function;
    std::unique_ptr<EndpointThreads> _threads;
    std::mutex _deviceIDMutex;
    Data _deviceID;
};

} // namespace zul
