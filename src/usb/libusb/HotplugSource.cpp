// Arrivals and departures as libusb reports them. The callback runs on whatever thread handles libusb's events and only
// fills the inbox; the event thread is ended without being joined. The core starts and stops this on the main queue.
#include "usb/libusb/HotplugSource.h"

#include "platform/files/Files.h"
#include "platform/foundation/Format.h"
#include "platform/usb/IOReturn.h"
#include "usb/libusb/BusInbox.h"
#include "usb/libusb/LibusbContext.h"
#include "usb/libusb/LibusbResult.h"
#include "usb/libusb/SystemFolders.h"

#include <atomic>
#include <libusb.h>
#include <memory>
#include <sstream>
#include <string>
#include <thread>

namespace zul {

namespace {

constexpr const char* kListening = "00010000"; // as the kernel shows it

// On whatever thread handles libusb's events, which may be one that waits for a transfer: only adds an event.
int LIBUSB_CALL hotplugCallback(libusb_context* /*context*/, libusb_device* device, libusb_hotplug_event event,
                                void* inbox) {
    const bool arrived = event == LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED;
    const auto kind = arrived ? BusEvent::Kind::arrived : BusEvent::Kind::left;
    static_cast<BusInbox*>(inbox)->add({kind, keyOf(device), nullptr, DeviceReference(device), nullptr});
    return 0; // stay registered
}

void handleEvents(const std::shared_ptr<LibusbContext>& context, const std::shared_ptr<std::atomic<bool>>& ended) {
    while (!*ended) {
        const int result = libusb_handle_events(context->get());
        if (result == 0 || result == LIBUSB_ERROR_INTERRUPTED) continue;
        logText("the USB bus reports no arrivals and departures from now on: %s", libusb_error_name(result));
        return;
    }
}

} // namespace

bool isUdevRunning(const SystemFolders& folders) {
    const std::string control = folders.run + "/udev/control";
    std::istringstream sockets(textOfFile(folders.proc + "/net/unix"));
    std::string line;
    while (std::getline(sockets, line)) {
        std::istringstream fields(line);
        std::string number, references, protocol, flags, type, state, inode, path;
        fields >> number >> references >> protocol >> flags >> type >> state >> inode >> path;
        if (path == control && flags == kListening) return true;
    }
    return false;
}

IOReturn HotplugSource::start() {
    if (libusb_has_capability(LIBUSB_CAP_HAS_HOTPLUG) == 0) return kIOReturnError;
    if (const IOReturn code = LibusbContext::create(_context); code != kIOReturnSuccess) return code;
    // Before the registration, whose callback may run at once and gets the inbox as a plain pointer.
    _context->keep(_inbox);
    // The attached devices are reported inside this call, so start() finds them all in the inbox.
    const int result = libusb_hotplug_register_callback(
        _context->get(), LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED | LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT,
        LIBUSB_HOTPLUG_ENUMERATE, LIBUSB_HOTPLUG_MATCH_ANY, LIBUSB_HOTPLUG_MATCH_ANY, LIBUSB_HOTPLUG_MATCH_ANY,
        hotplugCallback, _inbox.get(), &_callback);
    if (result != 0) return ioReturnFromLibusb(result);
    std::thread([context = _context, ended = _ended] { handleEvents(context, ended); }).detach();
    return kIOReturnSuccess;
}

void HotplugSource::stop() {
    *_ended = true;
    if (_context == nullptr) return;
    if (_callback != 0) libusb_hotplug_deregister_callback(_context->get(), _callback);
    // Wakes the event thread, which then sees that it has ended and drops its reference to the session.
    libusb_interrupt_event_handler(_context->get());
    _context = nullptr;
}

} // namespace zul
