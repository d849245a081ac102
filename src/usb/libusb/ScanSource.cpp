// libusb keeps the list of devices that it made when its session began, so each look is a session of its own; a printer
// that is found keeps its session. The thread that looks is ended without being joined.
#include "usb/libusb/ScanSource.h"

#include "platform/dispatch/Clock.h"
#include "platform/files/WakeEvent.h"
#include "platform/foundation/Format.h"
#include "platform/usb/IOReturn.h"
#include "usb/libusb/BusInbox.h"
#include "usb/libusb/BusLimits.h"
#include "usb/libusb/BusServices.h"
#include "usb/libusb/InterfaceDescriptors.h"
#include "usb/libusb/LibusbBus.h"
#include "usb/libusb/LibusbContext.h"
#include "usb/libusb/SystemFolders.h"
#include "usb/libusb/UeventSocket.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <libusb.h>
#include <map>
#include <memory>
#include <optional>
#include <poll.h>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <utility>

namespace zul {

namespace {

// The kernel makes a folder for each attachment of a device, and never gives its number twice: so a device that was
// away for less than a look shows, even at the same address.
ino_t attachmentNumber(const SystemFolders& folders, libusb_device* device) {
    DeviceDescriptors descriptors;
    static_cast<void>(
        readPrinterInterfaces(device, descriptors)); // the path is read even when there is no configuration
    struct stat status {};
    const std::string folder = folders.sys + "/bus/usb/devices/" + descriptors.locationText();
    return ::stat(folder.c_str(), &status) == 0 ? status.st_ino : 0;
}

} // namespace

struct ScanSource::State : std::enable_shared_from_this<State> {
    State(std::shared_ptr<BusInbox> inboxToFill, std::shared_ptr<BusServices> busServices)
        : inbox(std::move(inboxToFill)), services(std::move(busServices)) {}

    const std::shared_ptr<BusInbox> inbox;
    const std::shared_ptr<BusServices> services;
    UeventSocket uevents{services->options.takesKernelReports};
    const WakeEvent wake; // to look again, or to end
    std::atomic<bool> ended{false};
    std::atomic<bool> started{false};
    std::map<DeviceKey, ino_t> known; // on main until the thread starts, then on that

    IOReturn look();
    void run();
    void armTimer();
};

IOReturn ScanSource::State::look() {
    std::shared_ptr<LibusbContext> context;
    const IOReturn code = LibusbContext::create(context);
    if (code != kIOReturnSuccess) return code;
    libusb_device** devices = nullptr;
    const ssize_t count = libusb_get_device_list(context->get(), &devices);
    if (count < 0) return kIOReturnError;
    std::map<DeviceKey, ino_t> present;
    for (ssize_t i = 0; i < count; ++i) {
        present[keyOf(devices[i])] = attachmentNumber(services->options.system, devices[i]);
    }
    // Departures first: a device that came back at once is another one by then.
    for (const auto& [key, number] : known) {
        const auto found = present.find(key);
        if (found == present.end() || found->second != number)
            inbox->add({BusEvent::Kind::left, key, nullptr, std::nullopt, nullptr});
    }
    for (ssize_t i = 0; i < count; ++i) {
        const DeviceKey key = keyOf(devices[i]);
        const auto before = known.find(key);
        if (before == known.end() || before->second != present[key])
            inbox->add({BusEvent::Kind::arrived, key, context, DeviceReference(devices[i]), nullptr});
    }
    known = std::move(present);
    libusb_free_device_list(devices, 1);
    return kIOReturnSuccess;
}

void ScanSource::State::run() {
    while (!ended) {
        std::array<pollfd, 2> entries{{{wake.descriptor(), POLLIN, 0}, {uevents.descriptor(), POLLIN, 0}}};
        if (::poll(entries.data(), entries.size(), -1) < 0 && errno != EINTR) return;
        // Both are read before the look: what is reported during it leads to another one.
        const bool isWoken = wake.lower();
        const bool isReported = uevents.isOpen() && uevents.readReports();
        if (ended || (!isWoken && !isReported)) continue;
        if (const IOReturn code = look(); code != kIOReturnSuccess) {
            logText("cannot look at the USB bus (%x)", asHex(code)); // the next report or the clock tries again
        }
    }
}

void ScanSource::State::armTimer() {
    Clock& clock = services->clock();
    clock.callAt(clock.now() + bus_limits::kRescanInterval, [weak = weak_from_this()] {
        const auto self = weak.lock();
        if (self == nullptr || self->ended) return;
        self->wake.raise();
        self->armTimer();
    });
}

ScanSource::ScanSource(std::shared_ptr<BusInbox> inbox, std::shared_ptr<BusServices> services)
    : _state(std::make_shared<State>(std::move(inbox), std::move(services))) {}

IOReturn ScanSource::start() {
    // What is reported from here on is looked at once more by the thread.
    if (const IOReturn code = _state->look(); code != kIOReturnSuccess) return code;
    _state->started = true;
    std::thread([state = _state] { state->run(); }).detach();
    if (!_state->uevents.isOpen()) _state->armTimer();
    return kIOReturnSuccess;
}

void ScanSource::stop() {
    _state->ended = true;
    _state->wake.raise();
}

ArrivalSight ScanSource::sight() const {
    if (!_state->started) return ArrivalSight::no;
    return _state->uevents.isOpen() ? ArrivalSight::byKernel : ArrivalSight::byRescan;
}

} // namespace zul
