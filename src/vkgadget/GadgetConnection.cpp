// Combines the gadget with its function, and replies to the printer class's control requests. Opened, plugged and
// closed on the main queue; requests arrive on endpoint 0's thread.
#include "vkgadget/GadgetConnection.h"

#include "platform/foundation/Data.h"
#include "vkgadget/ConfigfsGadget.h"
#include "vkgadget/EndpointThreads.h"
#include "vkgadget/FunctionFs.h"
#include "vkgadget/GadgetError.h"
#include "vkgadget/Host.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

namespace zul {

namespace {

// Requests of the printer class.
constexpr std::uint8_t kClassInterfaceIn = 0xA1;
constexpr std::uint8_t kClassInterfaceOut = 0x21;
constexpr std::uint8_t kClassOtherOut = 0x23; // recipient of the soft reset from early hosts
constexpr std::uint8_t kGetDeviceID = 0;
constexpr std::uint8_t kGetPortStatus = 1;
constexpr std::uint8_t kSoftReset = 2;
constexpr std::uint8_t kSelectedNoError = 0x18;

} // namespace

GadgetConnection::GadgetConnection(std::string name, const GadgetIdentity& identity, int interfaces,
                                   ConnectionHandlers handlers)
    : _handlers(std::move(handlers)), _name(std::move(name)), _interfaces(interfaces), _gadget(_name, identity),
      _function(_name, interfaces) {}

void GadgetConnection::open() {
    // First: everything below would disturb another process with this gadget.
    _nameLock = lockName(_name);
    _gadget.create();
    _function.open();
    EndpointHandlers handlers;
    handlers.received = _handlers.received;
    handlers.configured = [this](bool configured) {
        if (!configured) _threads->dropTransfers();
        _handlers.configured(configured);
    };
    handlers.control = [this](const SetupRequest& request) {
        auto answer = answerTo(request);
        _handlers.controlled(request, answer.has_value());
        return answer;
    };
    _threads = std::make_unique<EndpointThreads>(_function, _interfaces, std::move(handlers));
    _threads->start();
}

void GadgetConnection::close() {
    // The kernel releases the function's files only when no thread blocks in them, and the gadget only after the
    // function.
    if (_threads) _threads->stop();
    const std::lock_guard lock(_plugMutex);
    try {
        _gadget.unplug();
    } catch (const GadgetError&) {
        // Ignored: closing the function unbinds the gadget in any case.
    }
    _function.close();
    _gadget.remove();
}

void GadgetConnection::setDeviceID(const std::string& text) {
    const std::size_t length = text.size() + 2;
    Data answer;
    if (!text.empty()) answer = {static_cast<std::uint8_t>(length >> 8), static_cast<std::uint8_t>(length)};
    answer.insert(answer.end(), text.begin(), text.end());
    const std::lock_guard lock(_deviceIDMutex);
    _deviceID = std::move(answer);
}

void GadgetConnection::plugInto(const std::string& udc) {
    const std::lock_guard lock(_plugMutex);
    _gadget.plug(udc);
}

void GadgetConnection::unplug() {
    const std::lock_guard lock(_plugMutex);
    _gadget.unplug();
    _threads->dropTransfers();
}

bool GadgetConnection::isPlugged() const {
    const std::lock_guard lock(_plugMutex);
    return _gadget.isPlugged();
}

std::optional<Data> GadgetConnection::answerTo(const SetupRequest& request) {
    if (request.requestType == kClassInterfaceIn && request.request == kGetDeviceID) {
        const std::lock_guard lock(_deviceIDMutex);
        if (_deviceID.empty()) return std::nullopt;
        return _deviceID;
    }
    if (request.requestType == kClassInterfaceIn && request.request == kGetPortStatus) return Data{kSelectedNoError};
    const bool toPrinter = request.requestType == kClassInterfaceOut || request.requestType == kClassOtherOut;
    if (toPrinter && request.request == kSoftReset) {
        _threads->dropTransfers();
        return Data{};
    }
    return std::nullopt;
}

} // namespace zul
