// The stage itself: a failing wait fails its test, whatever the test checks afterwards.
#include "window/Stage.h"

#include "platform/dispatch/Queue.h"

#include <doctest/doctest.h>
#include <future>

namespace zul::test {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kShortWait{50}; // for conditions that cannot become true

// Blocks a printer's queue until it is destroyed.
class HeldQueue {
  public:
    explicit HeldQueue(TBUSBPrinterZUL& printer) {
        printer.printerCommandQueue()->async([end = _end.get_future().share()] { end.wait(); });
    }
    ~HeldQueue() { _end.set_value(); }
    HeldQueue(const HeldQueue&) = delete;
    HeldQueue& operator=(const HeldQueue&) = delete;

  private:
    std::promise<void> _end;
};

} // namespace

TEST_CASE("a condition that never becomes true fails the test that waits for it" * doctest::should_fail()) {
    Stage stage({.printers = {}});
    stage.setLongestWait(kShortWait);
    stage.waitFor("a condition that never becomes true", [] { return false; });
}

TEST_CASE("queues that do not become idle fail the test that waits for them" * doctest::should_fail()) {
    Stage stage({.printers = {quick("VK14")}});
    stage.waitForDeviceInfo();
    const HeldQueue held(*stage.printers().front());
    stage.setLongestWait(kShortWait);
    stage.settle();
}

TEST_CASE("blocks that a failed wait has queued run later without harm") {
    Stage stage({.printers = {quick("VK14")}});
    stage.waitForDeviceInfo();
    {
        const HeldQueue held(*stage.printers().front());
        stage.setLongestWait(kShortWait);
        CHECK_FALSE(stage.hasSettled());
    }
    stage.setLongestWait(kLongestWait);
    CHECK(stage.hasSettled());
}

TEST_CASE("a queue that runs on after the stage's end fails the test" * doctest::should_fail()) {
    std::optional<HeldQueue> held;
    Stage stage({.printers = {quick("VK14")}});
    stage.waitForDeviceInfo();
    held.emplace(*stage.printers().front());
    stage.setLongestWait(kShortWait);
}

} // namespace zul::test
