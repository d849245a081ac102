// A bench to try the real bus on: a mocked system with one root hub, printers that are plugged and unplugged, a main
// queue, and a list of what the engine would have been notified of. With ZUL_TEST_ARRIVALS=kernel in the environment
// there is no udevd on it, so that the same tests show that the bus does without.
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

/// Somebody who listens at udevd's control socket.
class ListeningUdevd {
  public:
    explicit ListeningUdevd(const std::filesystem::path& runFolder);
    ~ListeningUdevd();
    ListeningUdevd(const ListeningUdevd&) = delete;
    ListeningUdevd& operator=(const ListeningUdevd&) = delete;

  private:
    int _socket = -1;
};

/// How a device describes itself.
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

class Bench {
  public:
    /// Time is the machine's own unless another clock is given. Of the options' folders only the one of running
    /// services is the bench's own; the others are redirected for the whole process.
    explicit Bench(Clock* clock = nullptr, LibusbBusOptions options = {});
    ~Bench();
    Bench(const Bench&) = delete;
    Bench& operator=(const Bench&) = delete;

    /// Puts a device on the mocked bus; when the bus runs, it hears of it.
    MockPrinter& plug(const Plug& plug = {});
    /// Reports a device that is there already a second time.
    void announceAgain(const std::string& port = "1-2");
    void unplug(const std::string& port = "1-2");
    /// The same, but with udevd what the system knows of the device can still be read.
    void leave(const std::string& port = "1-2");
    bool hasUdevd() const { return _hasUdevd; }
    void configure(const std::string& port, const std::string& configuration);
    void setMode(unsigned address, unsigned mode) const;
    /// Another program opens the node and closes it.
    void openAndCloseNode(unsigned address, bool readOnly = false) const;

    /// The kernel's printer driver has the printer: its node is this file.
    void bindDriverNode(const std::filesystem::path& file, const Plug& plug = {}) const;
    void removeDriverNode() const;

    /// How often this process has the node open.
    int nodeOpens(unsigned address = 4) const;

    void start();
    /// Runs the main queue until the condition holds; false after ten seconds of real time.
    bool until(const std::function<bool()>& condition);
    /// Lets everything that is under way arrive: a further device comes and goes, and its events are the last ones.
    void settle();

    /// For example "arrived 1-2", "terminated 1-2", "removed 1-2", in order.
    std::vector<std::string> events;
    /// The same in one line, with commas.
    std::string eventList() const;
    ServiceToken token(std::size_t index = 0) const;
    std::shared_ptr<USBService> service(std::size_t index = 0) const { return registry.service(token(index)); }
    /// A usable handle; fails the test when there is none.
    std::shared_ptr<IOUSBInterfaceInterface> handle(std::size_t index = 0) const;
    /// The same, claimed.
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
