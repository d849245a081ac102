// Signals as blocks on the main queue. Each test raises its signal itself, so no test depends on time.
#include "platform/dispatch/Signals.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <doctest/doctest.h>
#include <pthread.h>
#include <string>
#include <thread>
#include <unistd.h>

using namespace zul;

namespace {

struct Loop {
    RealClock clock;
    MainQueue mainQueue{clock};
};

bool hasDefaultAction(int number) {
    struct sigaction action {};
    REQUIRE(::sigaction(number, nullptr, &action) == 0);
    return action.sa_handler == SIG_DFL;
}

} // namespace

TEST_CASE("signals run the handler on the main queue, after the blocks that were posted before them") {
    Loop loop;
    std::string order;
    const Signals signals(loop.mainQueue, {SIGUSR1, SIGUSR2},
                          [&](int number) { order += number == SIGUSR1 ? "1" : "2"; });
    loop.mainQueue.async([&] { order += "b"; });
    ::raise(SIGUSR2);
    ::raise(SIGUSR1);
    CHECK(order.empty());
    CHECK(loop.mainQueue.runPending());
    CHECK(order == "b21");
    CHECK_FALSE(loop.mainQueue.runPending());
}

TEST_CASE("a signal wakes a sleeping main queue, whichever thread receives it") {
    Loop loop;
    const Signals signals(loop.mainQueue, {SIGUSR1}, [&](int number) { loop.mainQueue.quit(number); });
    std::thread elsewhere([] { ::raise(SIGUSR1); });
    CHECK(loop.mainQueue.run() == SIGUSR1);
    elsewhere.join();
}

TEST_CASE("a signal is handled although each block posts another one") {
    Loop loop;
    bool isServed = false;
    const Signals signals(loop.mainQueue, {SIGUSR1}, [&](int) { isServed = true; });
    std::function<void()> again = [&] {
        if (!isServed) loop.mainQueue.async(again);
    };
    loop.mainQueue.async([&] {
        ::raise(SIGUSR1);
        again();
    });
    loop.mainQueue.runPending(); // would not return otherwise
    CHECK(isServed);
}

TEST_CASE("without the object the signals have their default action, and the last one is not handled") {
    Loop loop;
    bool isServed = false;
    {
        const Signals signals(loop.mainQueue, {SIGUSR1}, [&](int) { isServed = true; });
        CHECK_FALSE(hasDefaultAction(SIGUSR1));
        ::raise(SIGUSR1);
    }
    CHECK(hasDefaultAction(SIGUSR1));
    loop.mainQueue.runPending();
    CHECK_FALSE(isServed);
    const Signals next(loop.mainQueue, {SIGUSR1}, [&](int) { isServed = true; });
    loop.mainQueue.runPending();
    CHECK_FALSE(isServed);
}

TEST_CASE("a signal that was read but not handled when the object was destroyed has no effect") {
    Loop loop;
    bool isServed = false;
    auto signals = std::make_unique<Signals>(loop.mainQueue, std::vector{SIGUSR1}, [&](int) { isServed = true; });
    loop.mainQueue.async([&] { signals = nullptr; });
    ::raise(SIGUSR1);
    loop.mainQueue.runPending();
    CHECK_FALSE(isServed);
}

TEST_CASE("a signal that only interrupts system calls interrupts one") {
    letSignalEndSystemCalls(SIGUSR1);
    int ends[2] = {-1, -1};
    REQUIRE(::pipe(ends) == 0);
    std::atomic<bool> hasEnded{false};
    int error = 0;
    std::thread reader([&] {
        char byte = 0;
        if (::read(ends[0], &byte, 1) < 0) error = errno;
        hasEnded = true;
    });
    // Repeated, because a signal before the blocking call has no effect.
    while (!hasEnded) ::pthread_kill(reader.native_handle(), SIGUSR1);
    reader.join();
    CHECK(error == EINTR);
    std::signal(SIGUSR1, SIG_DFL);
    for (const int end : ends) ::close(end);
}
