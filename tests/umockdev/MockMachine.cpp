// The bus with mocked /sys and /dev, with its printers and one list of events. Everything runs on the test's thread,
// which serves the main queue until the awaited condition holds.
#include "MockMachine.h"

#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace zul {

namespace {

constexpr unsigned kVendor = 0x2A71;

std::string text(const char* format, auto... values) {
    char buffer[512];
    std::snprintf(buffer, sizeof buffer, format, values...);
    return buffer;
}

std::string interfaceDescriptor(const Plug& plug, unsigned number, unsigned alternate) {
    return text("0904%02x%02x02%02x%02x0200", number, alternate, plug.interfaceClass, plug.interfaceSubClass) +
           text("07050202%02x0000", kPacket) + // bulk out, address 02
           text("07058102%02x0000", kPacket);  // bulk in, address 81
}

std::string descriptors(const Plug& plug) {
    std::string bytes = "1201000200000040"; // USB 2.0, class per interface, 64 bytes on the control pipe
    bytes += text("%02x%02x%02x%02x", kVendor & 0xFF, kVendor >> 8, plug.product & 0xFF, plug.product >> 8);
    bytes += "070201020301"; // release 2.07, string indices 1, 2, 3, one configuration
    std::string interfaces;
    for (unsigned i = 0; i < plug.interfaces; ++i) {
        interfaces += interfaceDescriptor(plug, i, 0);
        if (plug.secondSetting) interfaces += interfaceDescriptor(plug, i, 1);
    }
    const auto total = static_cast<unsigned>(9 + interfaces.size() / 2);
    bytes += text("0902%02x%02x%02x0100c032", total & 0xFF, total >> 8, plug.interfaces);
    return bytes + interfaces;
}

// A hub: every device between a port and the host must exist, or the path cannot be resolved.
std::string hub(const std::string& path, unsigned address) {
    std::string entry = text("P: %s\nN: bus/usb/001/%03u\n", path.c_str(), address);
    entry += text("E: SUBSYSTEM=usb\nE: DRIVER=usb\nE: BUSNUM=001\nE: DEVNUM=%03u\n", address);
    entry += text("E: DEVNAME=/dev/bus/usb/001/%03u\nE: DEVTYPE=usb_device\n", address);
    entry += text("A: bConfigurationValue=1\\n\nA: busnum=1\\n\nA: devnum=%u\\n\nA: speed=480\\n\n", address);
    return entry +
           "H: descriptors=12010002090001406b1d020002060302010109021900010100e0000904000001090000000705810304000c\n\n";
}

bool isWithoutUdevd() {
    const char* arrivals = std::getenv("ZUL_TEST_ARRIVALS");
    return arrivals != nullptr && std::string(arrivals) == "kernel";
}

std::string sysPath(const std::string& port) {
    const auto dot = port.find('.');
    if (dot == std::string::npos) return "/devices/usb1/" + port;
    return "/devices/usb1/" + port.substr(0, dot) + "/" + port;
}

} // namespace

ListeningUdevd::ListeningUdevd(const std::filesystem::path& runFolder)
    : _socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)) {
    std::filesystem::create_directory(runFolder / "udev");
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "%s/udev/control", runFolder.c_str());
    REQUIRE(::bind(_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0);
    REQUIRE(::listen(_socket, 16) == 0);
}

ListeningUdevd::~ListeningUdevd() {
    ::close(_socket);
}

LibusbBusOptions MockMachine::completed(LibusbBusOptions options) const {
    if (options.system.run == SystemFolders{}.run) options.system.run = _run.path;
    return options;
}

MockMachine::MockMachine(Clock* clock, LibusbBusOptions options)
    : _hasUdevd(options.system.run == SystemFolders{}.run && !isWithoutUdevd()),
      _udevd(_hasUdevd ? std::make_unique<ListeningUdevd>(_run.path) : nullptr),
      _ownClock(clock == nullptr ? std::make_unique<RealClock>() : nullptr), _testbed(umockdev_testbed_new()),
      mainQueue(clock == nullptr ? *_ownClock : *clock),
      bus(mainQueue, clock == nullptr ? *_ownClock : *clock, completed(std::move(options))) {
    REQUIRE(umockdev_testbed_add_from_string(_testbed, hub("/devices/usb1", 1).c_str(), nullptr));
    watch();
}

MockMachine::~MockMachine() {
    bus.stop();
    for (const ServiceToken left : registry.services()) registry.serviceTerminated(left); // they keep the session alive
    // The next bench has its own mocked system, so the session with this one must end first.
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (LibusbBus::liveSessions() > 0 && std::chrono::steady_clock::now() < limit) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    CHECK(LibusbBus::liveSessions() == 0);
    _printers.clear();
    if (_hasUdevd) {
        g_object_unref(_testbed);
        return;
    }
    // The testbed ends the process if a socket's file appears or disappears while it removes its folder, and without
    // udevd a thread may still close one. So the folder is removed here.
    std::error_code ignored;
    std::filesystem::remove_all(root(), ignored);
}

void MockMachine::watch() {
    const ServiceMatching all{"IOUSBInterface", 7, 1};
    _matched = _port.addMatchingNotification(ServiceNotification::matched, all, [this](ServiceIterator& iterator) {
        while (const ServiceToken token = iterator.next()) {
            const auto arrived = registry.service(token);
            std::uint8_t number = 0;
            REQUIRE(arrived->GetInterfaceNumber(number) == kIOReturnSuccess);
            _names[token] = arrived->locationText() + (number == 0 ? "" : "/" + std::to_string(number));
            events.push_back("arrived " + _names[token]);
            _port.interests()->add(token, this, [this](ServiceToken service, IOMessage message, void*) {
                events.push_back((message == kIOMessageServiceIsTerminated ? "terminated " : "message ") +
                                 _names[service]);
            });
        }
    });
    _terminated =
        _port.addMatchingNotification(ServiceNotification::terminated, all, [this](ServiceIterator& iterator) {
            while (const ServiceToken token = iterator.next()) events.push_back("removed " + _names[token]);
        });
    CHECK(_matched->next() == 0);
    CHECK(_terminated->next() == 0);
}

std::filesystem::path MockMachine::root() const {
    gchar* folder = umockdev_testbed_get_root_dir(_testbed);
    std::filesystem::path path = folder;
    g_free(folder);
    return path;
}

std::string MockMachine::nodeFile(unsigned address) const {
    return root() / text("dev/bus/usb/001/%03u", address);
}

void MockMachine::bindDriverNode(const std::filesystem::path& file, const Plug& plug) const {
    const std::string interface = sysPath(plug.port) + "/" + plug.port + ":1.0";
    const std::string entry = "P: " + interface + "\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_interface\n\n";
    REQUIRE(umockdev_testbed_add_from_string(_testbed, entry.c_str(), nullptr));
    std::filesystem::create_directories(root() / ("sys" + interface) / "usbmisc" / "lp0");
    std::filesystem::create_directories(root() / "dev/usb");
    std::filesystem::create_symlink(file, root() / "dev/usb/lp0");
}

void MockMachine::removeDriverNode() const {
    std::filesystem::remove(root() / "dev/usb/lp0");
}

void MockMachine::addDevice(const Plug& plug) {
    const std::string path = sysPath(plug.port);
    std::string entry = text("P: %s\nN: bus/usb/001/%03u\n", path.c_str(), plug.address);
    entry += text("E: SUBSYSTEM=usb\nE: DRIVER=usb\nE: BUSNUM=001\nE: DEVNUM=%03u\n", plug.address);
    entry += text("E: DEVNAME=/dev/bus/usb/001/%03u\nE: DEVTYPE=usb_device\n", plug.address);
    entry += text("A: bConfigurationValue=%s\\n\nA: busnum=1\\n\n", plug.configuration.c_str());
    entry += text("A: devnum=%u\\n\nA: speed=12\\n\n", plug.address);
    entry += "H: descriptors=" + descriptors(plug) + "\n\n";
    GError* error = nullptr;
    umockdev_testbed_add_from_string(_testbed, entry.c_str(), &error);
    REQUIRE_MESSAGE(error == nullptr, (error != nullptr ? error->message : ""));
}

MockPrinter& MockMachine::plug(const Plug& plug) {
    if (plug.port.find('.') != std::string::npos) {
        const std::string hubPath = "/devices/usb1/" + plug.port.substr(0, plug.port.find('.'));
        REQUIRE(umockdev_testbed_add_from_string(_testbed, hub(hubPath, 2).c_str(), nullptr));
        umockdev_testbed_uevent(_testbed, ("/sys" + hubPath).c_str(), "add");
    }
    addDevice(plug);
    setMode(plug.address, plug.mode);
    _printers.erase(plug.address); // only one may respond for a node
    _printers[plug.address] = std::make_unique<MockPrinter>(_testbed, text("/dev/bus/usb/001/%03u", plug.address));
    _addresses[plug.port] = plug.address;
    announceAgain(plug.port);
    return *_printers[plug.address];
}

void MockMachine::announceAgain(const std::string& port) {
    umockdev_testbed_uevent(_testbed, ("/sys" + sysPath(port)).c_str(), "add");
}

void MockMachine::leave(const std::string& port) {
    _printers[_addresses[port]]->vanish();
    const std::string device = "/sys" + sysPath(port);
    if (hasUdevd()) {
        umockdev_testbed_uevent(_testbed, device.c_str(), "remove");
        return;
    }
    // The real kernel has removed all files before it reports the removal. The mocked one can report only existing
    // devices.
    umockdev_testbed_remove_device(_testbed, device.c_str());
    umockdev_testbed_uevent(_testbed, "/sys/devices/usb1", "change");
}

void MockMachine::unplug(const std::string& port) {
    leave(port);
    if (hasUdevd()) umockdev_testbed_remove_device(_testbed, ("/sys" + sysPath(port)).c_str());
}

void MockMachine::configure(const std::string& port, const std::string& configuration) {
    umockdev_testbed_set_attribute(_testbed, ("/sys" + sysPath(port)).c_str(), "bConfigurationValue",
                                   (configuration + "\n").c_str());
}

void MockMachine::setMode(unsigned address, unsigned mode) const {
    REQUIRE(::chmod(nodeFile(address).c_str(), mode) == 0);
}

void MockMachine::openAndCloseNode(unsigned address, bool readOnly) const {
    const int descriptor = ::open(nodeFile(address).c_str(), (readOnly ? O_RDONLY : O_RDWR) | O_CLOEXEC);
    REQUIRE(descriptor >= 0);
    ::close(descriptor);
}

int MockMachine::nodeOpens(unsigned address) const {
    const std::filesystem::path node = std::filesystem::canonical(nodeFile(address));
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone; // among them the listing's own descriptor
        if (std::filesystem::read_symlink(entry.path(), gone) == node) ++count;
    }
    return count;
}

void MockMachine::start() {
    REQUIRE(bus.start(registry) == kIOReturnSuccess);
    mainQueue.runPending(); // empties the queue, so that its next block is the next event
}

bool MockMachine::until(const std::function<bool()>& condition) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > limit) return false;
        pollfd entry{mainQueue.eventDescriptor(), POLLIN, 0};
        ::poll(&entry, 1, 10);
        mainQueue.runPending();
    }
    return true;
}

void MockMachine::settle() {
    plug({.port = "1-9", .address = ++_settleAddress});
    REQUIRE(until([this] { return !events.empty() && events.back() == "arrived 1-9"; }));
    unplug("1-9");
    REQUIRE(until([this] { return events.back() == "removed 1-9"; }));
    std::erase_if(events, [](const std::string& line) { return line.find("1-9") != std::string::npos; });
}

std::string MockMachine::eventList() const {
    std::string line;
    for (const std::string& event : events) line += (line.empty() ? "" : ", ") + event;
    return line;
}

ServiceToken MockMachine::token(std::size_t index) const {
    const auto tokens = registry.services();
    REQUIRE(index < tokens.size());
    return tokens[index];
}

std::shared_ptr<IOUSBInterfaceInterface> MockMachine::handle(std::size_t index) const {
    std::shared_ptr<IOUSBInterfaceInterface> made;
    REQUIRE(service(index)->createInterfaceInterface(made) == kIOReturnSuccess);
    REQUIRE(made != nullptr);
    return made;
}

std::shared_ptr<IOUSBInterfaceInterface> MockMachine::openHandle(std::size_t index) const {
    auto made = handle(index);
    REQUIRE(made->USBInterfaceOpenSeize() == kIOReturnSuccess);
    return made;
}

} // namespace zul
