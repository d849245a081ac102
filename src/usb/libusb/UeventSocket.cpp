// Opening the netlink socket and reading what the kernel reports about USB. Used by the scan, on main at the start and
// then on its own thread.
#include "usb/libusb/UeventSocket.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <linux/netlink.h>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>

namespace zul {

namespace {
constexpr unsigned kKernelReports = 1; // the multicast group of the kernel's own
// A report has its fields one after the other, each ended by a zero.
constexpr std::string_view kUsbField{"\0SUBSYSTEM=usb\0", 15};
} // namespace

UeventSocket::UeventSocket(bool isWanted) {
    if (!isWanted) return;
    _socket = ScopedFd(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_KOBJECT_UEVENT));
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = kKernelReports;
    if (!_socket) return;
    if (::bind(_socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) _socket.reset();
}

// The sender is not checked: a report can do no more than make the bus look once more.
bool UeventSocket::readReports() {
    bool isAboutUsb = false;
    std::array<char, 16384> report{}; // the kernel's longest has 2 KiB of fields and a path
    for (;;) {
        const ssize_t length = ::recv(_socket.get(), report.data(), report.size(), MSG_DONTWAIT);
        if (length < 0 && errno == EINTR) continue;
        if (length < 0) return isAboutUsb || errno == ENOBUFS;
        const std::string_view fields(report.data(), static_cast<std::size_t>(length));
        isAboutUsb = isAboutUsb || fields.find(kUsbField) != std::string_view::npos;
    }
}

} // namespace zul
