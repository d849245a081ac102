// Start and stop of the real bus, and the event thread. What the events mean is in LibusbBusCore.cpp.
#include "usb/libusb/LibusbBus.h"

#include "platform/foundation/Format.h"
#include "usb/libusb/LibusbBusCore.h"
#include "usb/libusb/LibusbResult.h"

#include <libusb.h>
#include <thread>

namespace zul {

namespace {

// On whatever thread handles libusb's events, which may be one that waits for a transfer: only takes a note.
int LIBUSB_CALL hotplugCallback(libusb_context* /*context*/, libusb_device* device, libusb_hotplug_event event,
                                void* inbox) {
    const bool arrived = event == LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED;
    const auto kind = arrived ? BusInbox::Event::Kind::arrived : BusInbox::Event::Kind::left;
    static_cast<BusInbox*>(inbox)->add({kind, DeviceReference(device), nullptr});
    return 0; // stay registered
}

void handleEvents(const std::shared_ptr<LibusbContext>& context, const std::shared_ptr<std::atomic<bool>>& ended) {
    while (!*ended) {
        const int result = libusb_handle_events(context->get());
        if (result == 0 || result == LIBUSB_ERROR_INTERRUPTED) continue;
        logText("the USB bus tells of no arrivals and departures from now on: %s", libusb_error_name(result));
        return;
    }
}

} // namespace

LibusbBus::LibusbBus(MainQueue& mainQueue, Clock& clock, LibusbBusOptions options)
    : _mainQueue(mainQueue), _clock(clock), _options(options) {}

LibusbBus::~LibusbBus() {
    stop();
}

IOReturn LibusbBus::start(ServiceRegistry& registry) {
    if (_core != nullptr) return kIOReturnSuccess;
    _core = std::make_shared<Core>(_mainQueue, _clock, registry);
    const IOReturn code = _core->start(_options);
    if (code != kIOReturnSuccess) stop();
    return code;
}

void LibusbBus::stop() {
    if (_core != nullptr) _core->stop();
    _core = nullptr;
}

void LibusbBus::setRestartExpected(std::uint32_t locationID, bool expected) {
    if (_core != nullptr) _core->setRestartExpected(locationID, expected);
}

int LibusbBus::liveSessions() {
    return LibusbContext::live();
}

IOReturn LibusbBus::Core::start(const LibusbBusOptions& options) {
    const IOReturn code = LibusbContext::create(options.libusbDebug, _context);
    if (code != kIOReturnSuccess) return code;
    if (libusb_has_capability(LIBUSB_CAP_HAS_HOTPLUG) == 0) return kIOReturnError;
    _context->keep(_inbox);
    _inbox->setReader([weak = weak_from_this()] {
        if (const auto self = weak.lock()) self->drain();
    });
    const int result = libusb_hotplug_register_callback(
        _context->get(), LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED | LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT,
        LIBUSB_HOTPLUG_ENUMERATE, LIBUSB_HOTPLUG_MATCH_ANY, LIBUSB_HOTPLUG_MATCH_ANY, LIBUSB_HOTPLUG_MATCH_ANY,
        hotplugCallback, _inbox.get(), &_callback);
    if (result != 0) return ioReturnFromLibusb(result);
    std::thread([context = _context, ended = _ended] { handleEvents(context, ended); }).detach();
    _starting = true;
    drain();
    _starting = false;
    return kIOReturnSuccess;
}

void LibusbBus::Core::stop() {
    _port->close();
    *_ended = true;
    if (_context == nullptr) return;
    if (_callback != 0) libusb_hotplug_deregister_callback(_context->get(), _callback);
    libusb_interrupt_event_handler(_context->get());
    for (const auto& [key, entry] : _entries) {
        _port->clock().cancel(entry->timer);
        if (const auto connection = entry->device->connection()) connection->giveBack();
    }
    _entries.clear();
    _inbox->clear();
    _context = nullptr;
}

} // namespace zul
