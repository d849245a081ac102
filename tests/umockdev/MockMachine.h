// A test bench for the real bus: a mocked system with one root hub, printers that are plugged and unplugged, a main
// queue, and a list of the notifications. With ZUL_TEST_ARRIVALS=kernel in the environment it has no udevd, so that the
// same tests show that the bus works without udevd.
#pragma once

#include "MockPrinter.h"
#include "platform/dispatch/Queue.h"
#include "platform/usb/ServiceRegistry.h"
#include "support/TemporaryFolder.h"
#include "usb/libusb/LibusbBus.h"

#include <doctest/doctest.h>
#include <functional>
#include <memory>

namespace zul {

constexpr std::uint8_t kPipeOut = 1;
constexpr std::uint8_t kPipeIn = 2;
constexpr std::uint32_t kPacket = 64; // bytes, of both pipes

/// A process that listens on udevd's control socket.
class ListeningUdevd {
  public:
    explicit ListeningUdevd(const std::filesystem::path& runFolder);
    ~ListeningUdevd();
    ListeningUdevd(const ListeningUdevd&) = delete;
    ListeningUdevd& operator=(const ListeningUdevd&) = delete;

  private:
    int _socket = -1;
};

/// The descriptors of a device.
struct Plug {
    std::string port = "1-2";
    unsigned address = 4;
    unsigned interfaceClass = 7;
    unsigned interfaceSubClass = 1;
    unsigned interfaces = 1;
    bool secondSetting = false; // a second alternate setting of every interface
    std::string configuration = "1";
    unsigned mode = 0644; // of the device node
    unsigned product = 3;
};

class MockMachine {
  public:
    /// clock: null for the machine's own. Of the options' folders only that of running services is the bench's; the
    /// others are redirected for the whole process.
    explicit MockMachine(Clock* clock = nullptr, LibusbBusOptions options = {});
    ~MockMachine();
    MockMachine(const MockMachine&) = delete;
    MockMachine& operator=(const MockMachine&) = delete;

    /// Attaches a device to the mocked bus and reports it to a running bus.
    MockPrinter& plug(const Plug& plug = {});
    /// Reports an attached device a second time.
    void announceAgain(const std::string& port = "1-2");
    void unplug(const std::string& port = "1-2");
    /// Like unplug(), but with udevd the device's data can still be read.
    void leave(const std::string& port = "1-2");
    bool hasUdevd() const { return _hasUdevd; }
    void configure(const std::string& port, const std::string& configuration);
    void setMode(unsigned address, unsigned mode) const;
    /// Simulates another program that opens the node and closes it.
    void openAndCloseNode(unsigned address, bool readOnly = false) const;

    /// Binds the kernel's printer driver to the printer; file is its node.
    void bindDriverNode(const std::filesystem::path& file, const Plug& plug = {}) const;
    void removeDriverNode() const;

    /// How often this process has the node open.
    int nodeOpens(unsigned address = 4) const;

    void start();
    /// Runs the main queue until the condition holds; false after ten seconds of real time.
    bool until(const std::function<bool()>& condition);
    /// Waits for all pending events: attaches and removes a further device, whose events are the last ones.
    void settle();

    /// For example "arrived 1-2", "terminated 1-2", "removed 1-2", in order.
    std::vector<std::string> events;
    /// The events on one line, separated by commas.
    std::string eventList() const;
    ServiceToken token(std::size_t index = 0) const;
    std::shared_ptr<USBService> service(std::size_t index = 0) const { return registry.service(token(index)); }
    /// A usable handle; fails the test if it cannot be created.
    std::shared_ptr<IOUSBInterfaceInterface> handle(std::size_t index = 0) const;
    /// The same, with the interface claimed.
    std::shared_ptr<IOUSBInterfaceInterface> openHandle(std::size_t index = 0) const;

    ServiceRegistry registry;

  private:
    LibusbBusOptions completed(LibusbBusOptions options) const;

    const bool _hasUdevd;
    const TemporaryFolder _run;
    std::unique_ptr<ListeningUdevd> _udevd;
    std::unique_ptr<Clock> _ownClock;
    UMockdevTestbed* const _testbed;

  public:
    MainQueue mainQueue;
    LibusbBus bus;

  private:
    std::string nodeFile(unsigned address) const;
    std::filesystem::path root() const;
    void addDevice(const Plug& plug);
    void watch();

    std::map<unsigned, std::unique_ptr<MockPrinter>> _printers; // by address
    std::map<std::string, unsigned> _addresses;                 // by port
    std::map<ServiceToken, std::string> _names;
    unsigned _settleAddress = 100;
    NotificationPort _port{registry};
    std::shared_ptr<ServiceIterator> _matched;
    std::shared_ptr<ServiceIterator> _terminated;
};

} // namespace zul
