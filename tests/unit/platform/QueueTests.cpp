// The main queue, serial queues and both clocks.
#include "platform/dispatch/Queue.h"
#include "platform/dispatch/QueueRole.h"
#include "support/LogCapture.h"
#include "support/SimulatedClock.h"

#include <atomic>
#include <doctest/doctest.h>
#include <numeric>
#include <poll.h>
#include <thread>

using namespace zul;
using namespace std::chrono_literals;

namespace {

struct QueueLab {
    SimulatedClock clock;
    MainQueue mainQueue{clock};

    bool hasEvent() const {
        pollfd entry{mainQueue.eventDescriptor(), POLLIN, 0};
        return ::poll(&entry, 1, 0) == 1;
    }
};

const int kFirstKey = 0;
const int kSecondKey = 0;

// Returns when at most count threads remain; the threads of released queues end by themselves.
void waitForThreads(int count) {
    while (SerialQueue::liveThreads() > count) std::this_thread::yield();
}

} // namespace

TEST_CASE("blocks of the main queue run in the order of their posting, including those posted meanwhile") {
    QueueLab lab;
    std::vector<int> order;
    lab.mainQueue.async([&] {
        order.push_back(1);
        lab.mainQueue.async([&] { order.push_back(3); });
    });
    lab.mainQueue.async([&] { order.push_back(2); });
    CHECK(order.empty());
    CHECK(lab.mainQueue.runPending());
    CHECK(order == std::vector{1, 2, 3});
    CHECK_FALSE(lab.mainQueue.runPending());
}

TEST_CASE("the main queue's descriptor is readable exactly while blocks wait") {
    QueueLab lab;
    CHECK_FALSE(lab.hasEvent());
    lab.mainQueue.async([] {});
    lab.mainQueue.async([] {});
    CHECK(lab.hasEvent());
    lab.mainQueue.runPending();
    CHECK_FALSE(lab.hasEvent());
}

TEST_CASE("the main queue may be run from within one of its blocks") {
    QueueLab lab;
    std::vector<int> order;
    lab.mainQueue.async([&] {
        lab.mainQueue.async([&] { order.push_back(1); });
        lab.mainQueue.runPending();
        order.push_back(2);
    });
    lab.mainQueue.runPending();
    CHECK(order == std::vector{1, 2});
}

TEST_CASE("quitting ends the loop with the status of the first call") {
    QueueLab lab;
    bool ranAfter = false;
    lab.mainQueue.async([&] {
        lab.mainQueue.quit(3);
        lab.mainQueue.quit(4);
    });
    lab.mainQueue.async([&] { ranAfter = true; });
    CHECK(lab.mainQueue.run() == 3);
    CHECK(lab.mainQueue.hasQuit());
    CHECK_FALSE(ranAfter);
}

TEST_CASE("a sleeping loop wakes up for a block of another thread") {
    QueueLab lab;
    std::thread other([&] { lab.mainQueue.async([&] { lab.mainQueue.quit(7); }); });
    CHECK(lab.mainQueue.run() == 7);
    other.join();
}

TEST_CASE("a serial queue runs its blocks one at a time in order") {
    QueueLab lab;
    std::vector<int> order;
    std::atomic<int> running{0};
    std::atomic<bool> overlapped{false};
    {
        SerialQueue queue("serial", lab.clock);
        for (int number = 0; number < 200; ++number) {
            queue.async([&, number] {
                if (++running > 1) overlapped = true;
                order.push_back(number);
                --running;
            });
        }
        lab.clock.drain(lab.mainQueue);
    }
    std::vector<int> expected(200);
    std::iota(expected.begin(), expected.end(), 0);
    CHECK(order == expected);
    CHECK_FALSE(overlapped);
}

TEST_CASE("a serial queue keeps its label and starts its thread with the first block") {
    QueueLab lab;
    waitForThreads(0);
    SerialQueue queue("com.example.printer", lab.clock);
    CHECK(queue.label() == "com.example.printer");
    CHECK(SerialQueue::liveThreads() == 0);
    queue.async([] {});
    CHECK(SerialQueue::liveThreads() == 1);
    lab.clock.drain(lab.mainQueue);
}

TEST_CASE("blocks that wait when a serial queue is released still run, then its thread ends") {
    QueueLab lab;
    waitForThreads(0);
    int ran = 0;
    {
        SerialQueue queue("released", lab.clock);
        for (int i = 0; i < 10; ++i) queue.async([&] { ++ran; });
    }
    lab.clock.drain(lab.mainQueue);
    CHECK(ran == 10);
    waitForThreads(0);
    CHECK(SerialQueue::liveThreads() == 0);
}

TEST_CASE("an idle queue does not use its clock any more") {
    struct CountingClock final : Clock {
        TimePoint now() override { return {}; }
        std::chrono::system_clock::time_point wallTime() override { return {}; }
        void sleepFor(Duration) override {}
        std::unique_ptr<ClockEvent> makeEvent() override { return nullptr; }
        TimerId callAt(TimePoint, Block) override { return 1; }
        void cancel(TimerId) override {}
        void workAdded() override { ++added; }
        void workDone() override { ++done; }
        std::atomic<int> added = 0, done = 0;
    };
    for (int round = 0; round < 500; ++round) {
        CountingClock clock;
        SerialQueue queue("test", clock);
        bool hasRun = false;
        queue.async([&] { hasRun = true; });
        queue.waitUntilIdle();
        CHECK(hasRun);
        CHECK(clock.done == clock.added);
    }
}

TEST_CASE("a serial queue may be released on its own thread") {
    QueueLab lab;
    auto queue = std::make_shared<SerialQueue>("own", lab.clock);
    SerialQueue& reference = *queue;
    bool ran = false;
    reference.async([queue = std::move(queue), &ran]() mutable {
        queue = nullptr;
        ran = true;
    });
    lab.clock.drain(lab.mainQueue);
    CHECK(ran);
}

TEST_CASE("a serial queue that waits on the main queue continues when its block has run there") {
    QueueLab lab;
    SerialQueue queue("waiting", lab.clock);
    const auto mainThread = std::this_thread::get_id();
    std::thread::id ranOn;
    bool answer = false;
    queue.async([&] { answer = lab.mainQueue.sync([&] { ranOn = std::this_thread::get_id(); }); });
    lab.clock.drain(lab.mainQueue);
    CHECK(answer);
    CHECK(ranOn == mainThread);
}

TEST_CASE("waiting on a closed main queue returns false and does not run the block") {
    QueueLab lab;
    SerialQueue queue("late", lab.clock);
    lab.mainQueue.close();
    std::atomic<int> answer{-1};
    bool ran = false;
    queue.async([&] { answer = lab.mainQueue.sync([&] { ran = true; }) ? 1 : 0; });
    lab.clock.drain(lab.mainQueue);
    CHECK(answer == 0);
    CHECK_FALSE(ran);
}

TEST_CASE("closing the main queue drops its blocks and releases the threads that wait for them") {
    QueueLab lab;
    SerialQueue queue("caught", lab.clock);
    std::atomic<int> answer{-1};
    bool ran = false;
    queue.async([&] { answer = lab.mainQueue.sync([&] { ran = true; }) ? 1 : 0; });
    while (!lab.hasEvent()) std::this_thread::yield(); // the block is now queued
    lab.mainQueue.close();
    lab.clock.drain(lab.mainQueue);
    CHECK(answer == 0);
    CHECK_FALSE(ran);
    CHECK_FALSE(lab.hasEvent());
    lab.mainQueue.async([&] { ran = true; });
    CHECK_FALSE(lab.mainQueue.runPending());
    CHECK_FALSE(ran);
}

TEST_CASE("queue-specific data shows which queue a block runs on") {
    QueueLab lab;
    const int mainValue = 1;
    const int serialValue = 2;
    lab.mainQueue.setSpecific(&kFirstKey, &mainValue);
    SerialQueue queue("specific", lab.clock);
    queue.setSpecific(&kSecondKey, &serialValue);
    const void* first = &lab;
    const void* second = nullptr;
    queue.async([&] {
        first = Queue::currentSpecific(&kFirstKey);
        second = Queue::currentSpecific(&kSecondKey);
    });
    lab.clock.drain(lab.mainQueue);
    CHECK(first == nullptr);
    CHECK(second == &serialValue);
    CHECK(Queue::currentSpecific(&kFirstKey) == &mainValue); // also between blocks
    CHECK(Queue::currentSpecific(&kSecondKey) == nullptr);
}

TEST_CASE("a thread without a queue has no queue-specific data") {
    QueueLab lab;
    const int value = 1;
    lab.mainQueue.setSpecific(&kFirstKey, &value);
    const void* seen = &value;
    std::thread([&] { seen = Queue::currentSpecific(&kFirstKey); }).join();
    CHECK(seen == nullptr);
}

TEST_CASE("the simulated clock jumps over a sleep of minutes to its end") {
    QueueLab lab;
    SerialQueue queue("sleeper", lab.clock);
    Clock::TimePoint woke;
    const auto start = lab.clock.now();
    queue.async([&] {
        lab.clock.sleepFor(5min);
        woke = lab.clock.now();
    });
    CHECK(lab.clock.drain(lab.mainQueue));
    CHECK(woke - start == 5min);
    CHECK(lab.clock.elapsed() == 5min);
}

TEST_CASE("wakeups occur in the order of their times, across queues and timers") {
    QueueLab lab;
    std::vector<int> order;
    SerialQueue one("one", lab.clock);
    SerialQueue two("two", lab.clock);
    one.async([&] {
        lab.clock.sleepFor(2s);
        lab.mainQueue.async([&] { order.push_back(2); });
    });
    two.async([&] {
        lab.clock.sleepFor(1s);
        lab.mainQueue.async([&] { order.push_back(1); });
        lab.clock.sleepFor(3s);
        lab.mainQueue.async([&] { order.push_back(4); });
    });
    lab.clock.callAt(lab.clock.now() + 3s, [&] { lab.mainQueue.async([&] { order.push_back(3); }); });
    CHECK(lab.clock.drain(lab.mainQueue));
    CHECK(order == std::vector{1, 2, 3, 4});
}

TEST_CASE("a drain that ends before an awaited moment reports so and is at its limit") {
    QueueLab lab;
    SerialQueue queue("patient", lab.clock);
    bool done = false;
    queue.async([&] {
        lab.clock.sleepFor(10s);
        done = true;
    });
    CHECK_FALSE(lab.clock.drain(lab.mainQueue, 4s));
    CHECK_FALSE(done);
    CHECK(lab.clock.elapsed() == 4s);
    CHECK(lab.clock.drain(lab.mainQueue));
    CHECK(done);
}

TEST_CASE("advancing moves the clock by the whole span, even without a wait") {
    QueueLab lab;
    lab.clock.advance(lab.mainQueue, 90s);
    CHECK(lab.clock.elapsed() == 90s);
}

TEST_CASE("a cancelled timer does not run") {
    QueueLab lab;
    bool ran = false;
    const auto timer = lab.clock.callAt(lab.clock.now() + 1s, [&] { ran = true; });
    lab.clock.cancel(timer);
    lab.clock.cancel(timer); // not an error
    CHECK(lab.clock.drain(lab.mainQueue));
    CHECK_FALSE(ran);
}

TEST_CASE("a signal before the wait is not lost, and ends one wait only") {
    QueueLab lab;
    SerialQueue queue("waiter", lab.clock);
    const auto event = lab.clock.makeEvent();
    event->signal();
    event->signal();
    std::vector<bool> answers;
    queue.async([&] {
        answers.push_back(event->waitUntil(lab.clock.now() + 1s));
        answers.push_back(event->waitUntil(lab.clock.now() + 1s));
    });
    lab.clock.drain(lab.mainQueue);
    CHECK(answers == std::vector{true, false});
    CHECK(lab.clock.elapsed() == 1s);
}

TEST_CASE("an event that is signalled during the wait ends it at that moment") {
    QueueLab lab;
    SerialQueue queue("waiter", lab.clock);
    const auto event = lab.clock.makeEvent();
    bool answer = false;
    Clock::TimePoint woke;
    const auto start = lab.clock.now();
    queue.async([&] {
        answer = event->waitUntil(lab.clock.now() + 10s);
        woke = lab.clock.now();
    });
    lab.clock.callAt(start + 3s, [&] { event->signal(); });
    lab.clock.drain(lab.mainQueue);
    CHECK(answer);
    CHECK(woke - start == 3s);
}

TEST_CASE("the real clock wakes a signalled waiter and runs a due timer") {
    RealClock clock;
    const auto event = clock.makeEvent();
    clock.callAt(clock.now(), [&] { event->signal(); });
    CHECK(event->waitUntil(clock.now() + 1h));
    CHECK_FALSE(event->waitUntil(clock.now())); // one signal ends one wait
}

TEST_CASE("a main queue is recognised by its blocks also after another one of its thread has ended") {
    QueueLab lab;
    lab.mainQueue.setSpecific(&kFirstKey, &lab);
    { const QueueLab other; }
    CHECK(Queue::currentSpecific(&kFirstKey) == &lab);
    const void* found = nullptr;
    lab.mainQueue.async([&] { found = Queue::currentSpecific(&kFirstKey); });
    lab.mainQueue.runPending();
    CHECK(found == &lab);
}

#ifndef ZUL_SANITIZED // there it ends the program
TEST_CASE("what belongs to the main queue and runs on another one is logged, once in a process") {
    QueueLab lab;
    const LogCapture log;
    assertOnMainQueue();
    lab.mainQueue.async([] { assertOnMainQueue(); });
    lab.mainQueue.runPending();
    CHECK(log.systemLog.empty());
    SerialQueue queue("test", lab.clock);
    for (int block = 0; block < 2; ++block) queue.async([] { assertOnMainQueue(); });
    queue.waitUntilIdle();
    CHECK(log.systemLog == std::vector<std::string>{"a block of the main queue runs on another queue"});
}
#endif
