// Values from the system's folders: the node of the kernel's printer driver, and whether udevd runs.
#include "support/TemporaryFolder.h"
#include "usb/libusb/HotplugSource.h"
#include "usb/libusb/PrinterDriver.h"

#include <cstdio>
#include <doctest/doctest.h>
#include <filesystem>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace zul;

namespace {

struct Tree {
    TemporaryFolder folder;
    SystemFolders folders;
    DeviceDescriptors device;

    Tree() {
        folders.sys = folder / "sys";
        folders.dev = folder / "dev";
        device.busNumber = 1;
        device.ports = {2, 4};
        device.configurationValue = 1;
    }
    void add(const std::string& path) const {
        std::filesystem::create_directories(folder / ("sys/bus/usb/devices/" + path));
    }
    std::string node(std::uint8_t interface = 0) const {
        return printerDriverNode(folders, device, interface).value_or("none");
    }
};

struct ControlSocket {
    int descriptor = ::socket(AF_UNIX, SOCK_SEQPACKET, 0);

    explicit ControlSocket(const TemporaryFolder& run) {
        std::filesystem::create_directory(run / "udev");
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::snprintf(address.sun_path, sizeof address.sun_path, "%s/udev/control", run.path.c_str());
        REQUIRE(::bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0);
        REQUIRE(::listen(descriptor, 1) == 0);
    }
    ~ControlSocket() { ::close(descriptor); }
};

} // namespace

TEST_CASE("the node of the kernel's driver is found by port, configuration and interface") {
    Tree tree;
    tree.add("1-2.4:1.0/usbmisc/lp3");
    tree.add("1-2.4:1.1/usbmisc/lp12");
    tree.add("1-2.4:2.0/usbmisc/lp5");
    tree.add("1-2:1.0/usbmisc/lp0");
    CHECK(tree.node(0) == tree.folders.dev + "/usb/lp3");
    CHECK(tree.node(1) == tree.folders.dev + "/usb/lp12");
    tree.device.configurationValue = 2;
    CHECK(tree.node(0) == tree.folders.dev + "/usb/lp5");
}

TEST_CASE("the node of the kernel's driver is found where older kernels show it") {
    Tree tree;
    tree.add("1-2.4:1.0/usb/lp1");
    CHECK(tree.node() == tree.folders.dev + "/usb/lp1");
}

TEST_CASE("an interface that is not bound to the kernel's driver has no node of it") {
    Tree tree;
    CHECK(tree.node() == "none");
    tree.add("1-2.4:1.0/usbmisc");
    CHECK(tree.node() == "none");
    tree.add("1-2.4:1.0/usbmisc/hiddev0");
    CHECK(tree.node() == "none");
}

TEST_CASE("a node that can be opened, or is gone, has no job") {
    TemporaryFolder folder;
    NodeWatcher watcher;
    CHECK(PrintJobGuard(watcher).keepJobsOut(folder.write("lp0", "")) == kIOReturnSuccess);
    CHECK(PrintJobGuard(watcher).keepJobsOut(folder / "lp1") == kIOReturnSuccess);
}

TEST_CASE("udevd is running if a process listens at its control socket") {
    TemporaryFolder run;
    SystemFolders folders;
    folders.run = run.path;
    CHECK_FALSE(isUdevRunning(folders));
    {
        const ControlSocket udevd(run);
        CHECK(isUdevRunning(folders));
    }
    CHECK_FALSE(isUdevRunning(folders)); // the file of a killed one remains
}

TEST_CASE("a control socket that the kernel does not list for this process is that of another machine's udevd") {
    TemporaryFolder run;
    const ControlSocket udevd(run);
    SystemFolders folders;
    folders.run = run.path;
    folders.proc = run / "proc";
    CHECK_FALSE(isUdevRunning(folders));
    std::filesystem::create_directories(run / "proc/net");
    const std::string path = (run / "udev/control").string();
    const auto lists = [&](const std::string& line) {
        run.write("proc/net/unix", "Num       RefCount Protocol Flags    Type St Inode Path\n" + line + "\n");
        return isUdevRunning(folders);
    };
    CHECK(lists("0000000000000000: 00000002 00000000 00010000 0005 01 12345 " + path));
    CHECK_FALSE(lists("0000000000000000: 00000003 00000000 00000000 0005 03 12346 " + path)); // the client's end
    CHECK_FALSE(lists("0000000000000000: 00000002 00000000 00010000 0005 01 12345 " + path + "2"));
    CHECK_FALSE(lists("0000000000000000: 00000002 00000000 00010000 0005 01 12345"));
}
