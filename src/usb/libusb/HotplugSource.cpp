// The callback runs on whatever thread handles libusb's events; the event thread is ended without being joined.
#include "usb/libusb/HotplugSource.h"

#include "platform/foundation/Format.h"
#include "usb/libusb/LibusbResult.h"

#include <cerrno>
#include <cstring>
#include <libusb.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace zul {

namespace {

// On whatever thread handles libusb's events, which may be one that waits for a transfer: only takes a note.
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

bool isUdevRunning(const std::string& runFolder) {
    sockaddr_un address{};
    const std::string path = runFolder + "/udev/control";
    if (path.size() >= sizeof address.sun_path) return false;
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const int probe = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (probe < 0) return false;
    const int result = ::connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    const int error = errno;
    ::close(probe);
    // The file stays after a udevd that was killed; then nobody listens at it. No right to connect is the usual answer
    // of one that runs.
    return result == 0 || (error != ENOENT && error != ENOTDIR && error != ECONNREFUSED);
}

IOReturn HotplugSource::start() {
    if (libusb_has_capability(LIBUSB_CAP_HAS_HOTPLUG) == 0) return kIOReturnError;
    if (const IOReturn code = LibusbContext::create(_debug, _context); code != kIOReturnSuccess) return code;
    _context->keep(_inbox);
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
    libusb_interrupt_event_handler(_context->get());
    _context = nullptr;
}

} // namespace zul
