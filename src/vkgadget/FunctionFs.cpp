// System calls on the files of a FunctionFS mount. Opened and closed by GadgetConnection on the main queue; each
// endpoint's file is used by that endpoint's thread.
#include "vkgadget/FunctionFs.h"

#include "platform/files/ScopedFd.h"
#include "platform/foundation/Data.h"
#include "vkgadget/Descriptors.h"
#include "vkgadget/GadgetError.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <linux/usb/functionfs.h>
#include <optional>
#include <poll.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace zul {

namespace {

const std::filesystem::path kMountFolder = "/run/vkgadget";

std::string reason() {
    return std::strerror(errno);
}

ScopedFd openEndpoint(const std::filesystem::path& file, int more = 0) {
    ScopedFd fd(::open(file.c_str(), O_RDWR | O_CLOEXEC | more));
    if (!fd) throw GadgetError("cannot open " + file.string() + ": " + reason());
    return fd;
}

void writeBlock(int fd, const Data& block, const char* what) {
    if (::write(fd, block.data(), block.size()) == static_cast<ssize_t>(block.size())) return;
    throw GadgetError(std::string("the kernel did not take the gadget's ") + what + ": " + reason());
}

FunctionEventKind kindOf(std::uint8_t type) {
    switch (type) {
    case FUNCTIONFS_BIND:
        return FunctionEventKind::bind;
    case FUNCTIONFS_UNBIND:
        return FunctionEventKind::unbind;
    case FUNCTIONFS_ENABLE:
        return FunctionEventKind::enable;
    case FUNCTIONFS_DISABLE:
        return FunctionEventKind::disable;
    case FUNCTIONFS_SETUP:
        return FunctionEventKind::setup;
    default:
        return FunctionEventKind::other;
    }
}

// USB structures are little-endian, and so are all supported machines.
SetupRequest requestOf(const usb_ctrlrequest& setup) {
    return {.requestType = setup.bRequestType,
            .request = setup.bRequest,
            .value = setup.wValue,
            .index = setup.wIndex,
            .length = setup.wLength};
}

} // namespace

FunctionFs::FunctionFs(std::string name, int interfaces)
    : _name(std::move(name)), _folder(kMountFolder / _name), _pairs(static_cast<std::size_t>(interfaces)) {}

void FunctionFs::open() {
    std::error_code error;
    std::filesystem::create_directories(_folder, error);
    if (error) throw GadgetError("cannot make " + _folder.string() + ": " + error.message());
    while (::umount2(_folder.c_str(), MNT_DETACH) == 0) {
    } // of a killed process
    if (::mount(_name.c_str(), _folder.c_str(), "functionfs", 0, nullptr) != 0) {
        throw GadgetError("cannot mount FunctionFS: " + reason() + ". Load its module: modprobe usb_f_fs");
    }
    _mounted = true;
    _control = openEndpoint(_folder / "ep0");
    writeBlock(_control.get(), functionDescriptors(static_cast<int>(_pairs.size())), "descriptors");
    writeBlock(_control.get(), functionStrings(), "strings");
    int number = 0; // in the order of the descriptors
    for (EndpointPair& pair : _pairs) {
        pair.out = openEndpoint(_folder / ("ep" + std::to_string(++number)));
        // Non-blocking, so that a write without a host fails: otherwise the next host would get a reply for this one. A
        // transfer that has begun still blocks.
        pair.in = openEndpoint(_folder / ("ep" + std::to_string(++number)), O_NONBLOCK);
    }
}

void FunctionFs::close() {
    for (EndpointPair& pair : _pairs) pair = {};
    _control.reset();
    if (!_mounted) return;
    _mounted = false;
    ::umount2(_folder.c_str(), MNT_DETACH);
    ::rmdir(_folder.c_str());
}

std::optional<FunctionEvent> FunctionFs::nextEvent() {
    // Waits with poll(), because a blocking read holds the function's lock: some kernels need that lock to unbind the
    // gadget, which would then wait for ever.
    pollfd ready = {.fd = _control.get(), .events = POLLIN, .revents = 0};
    if (::poll(&ready, 1, /*timeout=*/-1) <= 0) return std::nullopt;
    usb_functionfs_event event{};
    if (::read(_control.get(), &event, sizeof event) != static_cast<ssize_t>(sizeof event)) return std::nullopt;
    return FunctionEvent{.kind = kindOf(event.type), .setup = requestOf(event.u.setup)};
}

void FunctionFs::answer(const SetupRequest& request, const Data& reply) {
    if (request.isDeviceToHost()) {
        const std::size_t length = std::min<std::size_t>(reply.size(), request.length);
        // A host that has given up meanwhile is not an error here: the next event reports it.
        [[maybe_unused]] const ssize_t written = ::write(_control.get(), reply.data(), length);
    } else {
        Data data(request.length);
        [[maybe_unused]] const ssize_t got = ::read(_control.get(), data.data(), data.size());
    }
}

void FunctionFs::refuse(const SetupRequest& request) {
    // On endpoint 0, too, an access in the wrong direction means stall.
    std::uint8_t none = 0;
    [[maybe_unused]] const ssize_t result =
        request.isDeviceToHost() ? ::read(_control.get(), &none, 0) : ::write(_control.get(), &none, 0);
}

int FunctionFs::readOut(std::size_t interface, Data& buffer) {
    const ssize_t got = ::read(_pairs[interface].out.get(), buffer.data(), buffer.size());
    return got < 0 ? -errno : static_cast<int>(got);
}

int FunctionFs::writeIn(std::size_t interface, const Data& data, std::size_t packetSize) {
    const int fd = _pairs[interface].in.get();
    if (::write(fd, data.data(), data.size()) < 0) return -errno;
    // A transfer that fills its last packet is ended by an empty one, which the kernel does not add.
    if (data.empty() || data.size() % packetSize != 0) return 0;
    return ::write(fd, data.data(), 0) < 0 ? -errno : 0;
}

void FunctionFs::haltIn(std::size_t interface) {
    // FunctionFS stalls an endpoint on an access against its direction.
    std::uint8_t none = 0;
    [[maybe_unused]] const ssize_t result = ::read(_pairs[interface].in.get(), &none, 1);
}

void FunctionFs::haltOut(std::size_t interface) {
    const std::uint8_t none = 0;
    [[maybe_unused]] const ssize_t result = ::write(_pairs[interface].out.get(), &none, 1);
}

std::size_t FunctionFs::packetSize() const {
    usb_endpoint_descriptor descriptor{};
    if (::ioctl(_pairs.front().in.get(), FUNCTIONFS_ENDPOINT_DESC, &descriptor) < 0) return kHighSpeedPacketSize;
    return descriptor.wMaxPacketSize & 0x7FF;
}

} // namespace zul
