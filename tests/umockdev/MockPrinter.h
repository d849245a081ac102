// A scripted printer on a mocked usbfs node. It replies to usbfs requests from the script and records them.
#pragma once

#include "MockUrbs.h"

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace zul {

/// All functions may be called while the bus uses the printer.
class MockPrinter {
  public:
    MockPrinter(UMockdevTestbed* testbed, const std::string& node);
    ~MockPrinter();
    MockPrinter(const MockPrinter&) = delete;
    MockPrinter& operator=(const MockPrinter&) = delete;

    // ---- the script ------------------------------------------------------------------------------------------------

    /// As a status: the transfer gets this far and then waits until it is cancelled.
    static constexpr int kNeverEnds = 1;
    /// The result of the next bulk-in transfer; without a script it waits until it is cancelled. status is 0, -errno,
    /// or kNeverEnds.
    void sends(const std::string& bytes, int status = 0);
    /// The next bulk-out transfer ends after accepting this many bytes; without a script it accepts everything.
    void takes(std::size_t bytes, int status = 0);
    /// After the end of the script, bulk-out transfers wait until they are cancelled.
    void takesNothingMore();
    /// The result of the next control transfer; without a script it waits until it is cancelled.
    void answersControl(const std::string& bytes, int status = 0);
    /// Makes every call of this ioctl fail with error; 0 ends that.
    void refuses(unsigned long request, int error);
    /// Makes control transfers without a script stall.
    void stallsControl();
    /// Binds a kernel driver to the interface.
    void bindKernelDriver(const std::string& name);
    /// Calls block each time the kernel's driver is being detached. It may call no operation of the printer but
    /// holdByOtherFromInside().
    void whenDetached(std::function<void()> block);
    void holdByOtherFromInside() { _heldByOther = true; }
    /// Simulates another program that holds the interface.
    void holdByOther(bool held);
    /// Detaches the device for the kernel's calls; current transfers end with that.
    void vanish();
    /// Detaches the device when a transfer on this endpoint is requested; the transfer ends with status.
    void vanishAtTransfer(std::uint8_t endpoint, int status);

    // ---- what was seen ---------------------------------------------------------------------------------------------

    /// For example "claim 0", "in 81 64", "out 02 8", "control a1 00 0000 0000 4096", "halt 81", "reset".
    std::vector<std::string> journal();
    /// The bytes of all bulk-out transfers.
    std::string received();
    std::string kernelDriver();

  private:
    struct Reply {
        int status = 0;
        std::string bytes;
        std::size_t count = 0;
    };
    static int onIoctl(UMockdevIoctlBase* handler, UMockdevIoctlClient* client, MockPrinter* self);
    void handle(UMockdevIoctlClient* client, UMockdevIoctlData* argument, unsigned long request);
    /// Result or -errno of calls that are not transfers.
    int simpleCall(UMockdevIoctlData* argument, unsigned long request);
    int claim(unsigned interface);
    int driverCall(UMockdevIoctlData* argument);
    int submit(UMockdevIoctlData* argument);
    int reap(UMockdevIoctlData* argument, std::unique_lock<std::mutex>& lock);
    void play(MockUrb& urb);
    void playAll();
    void note(const char* format, ...) __attribute__((format(printf, 2, 3)));

    UMockdevTestbed* const _testbed;
    const std::string _node;
    UMockdevIoctlBase* const _handler;
    std::mutex _mutex;
    std::condition_variable _changed;
    std::vector<std::string> _journal;
    std::string _received;
    std::deque<Reply> _in, _out, _control;
    bool _outBlocked = false;
    std::map<unsigned long, int> _refused;
    std::string _kernelDriver;
    std::function<void()> _whenDetached;
    bool _controlStalls = false;
    bool _claimed = false;
    bool _heldByOther = false;
    bool _gone = false;
    int _vanishEndpoint = -1;
    int _vanishStatus = 0;
    std::deque<MockUrb> _urbs;
};

} // namespace zul
