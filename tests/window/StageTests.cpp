// The stage itself: a wait that ends in vain fails its test, whatever the test looks at afterwards.
#include "window/Stage.h"

#include "platform/dispatch/Queue.h"

#include <doctest/doctest.h>
#include <future>

namespace zul::test {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kInVain{50}; // for what cannot come

// Holds a printer's queue up until it goes out of scope.
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

TEST_CASE("a condition that never holds fails the test that waits for it" * doctest::should_fail()) {
    Stage stage({.printers = {}});
    stage.setLongestWait(kInVain);
    stage.waitFor("what never comes", [] { return false; });
}

TEST_CASE("queues that do not come to rest fail the test that waits for them" * doctest::should_fail()) {
    Stage stage({.printers = {quick("VK14")}});
    stage.waitForFacts();
    const HeldQueue held(*stage.printers().front());
    stage.setLongestWait(kInVain);
    stage.settle();
}

TEST_CASE("what a wait in vain has queued runs later without harm") {
    Stage stage({.printers = {quick("VK14")}});
    stage.waitForFacts();
    {
        const HeldQueue held(*stage.printers().front());
        stage.setLongestWait(kInVain);
        CHECK_FALSE(stage.hasSettled());
    }
    stage.setLongestWait(kLongestWait);
    CHECK(stage.hasSettled());
}

TEST_CASE("a queue that runs on after the stage's end fails the test" * doctest::should_fail()) {
    std::optional<HeldQueue> held;
    Stage stage({.printers = {quick("VK14")}});
    stage.waitForFacts();
    held.emplace(*stage.printers().front());
    stage.setLongestWait(kInVain);
}

} // namespace zul::test
