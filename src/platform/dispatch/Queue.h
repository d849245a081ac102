// The two kinds of execution context of this program: the main queue and serial queues (one per printer). A queue
// carries queue-specific data, so that code can ask "am I on that queue?" without thread identities.
#pragma once

#include "platform/dispatch/Clock.h"

#include <cstddef>
#include <memory>
#include <string>

namespace zul {

class Queue {
  public:
    virtual ~Queue();
    /// Runs block later, in order with the other blocks of this queue. Any thread; never waits.
    virtual void async(Block block) = 0;

    /// Attaches a value to the queue under a key, an address. Set it before the queue is shared.
    void setSpecific(const void* key, const void* value);
    /// The value under key of the queue whose block runs on this thread (on the main queue's thread: of the main
    /// queue, also between blocks); null when there is none.
    static const void* currentSpecific(const void* key);

  protected:
    Queue();
    struct Specifics;
    static void setCurrent(const Specifics* specifics);
    std::shared_ptr<Specifics> _specifics;
};

/// The queue of the thread that made it. A program runs it in run(), or calls runPending() whenever the event
/// descriptor is readable; so a window can hang it on its own loop.
class MainQueue final : public Queue {
  public:
    explicit MainQueue(Clock& clock);
    ~MainQueue() override;
    MainQueue(const MainQueue&) = delete;
    MainQueue& operator=(const MainQueue&) = delete;

    void async(Block block) override;
    /// Runs block on the main queue and waits for it. From a serial queue only. False, with the block not run, once
    /// the queue is closed: no thread may wait for a loop that has ended.
    bool sync(Block block);

    /// Readable while blocks wait or a watched descriptor is readable; negative when the system had none left.
    int eventDescriptor() const;
    /// Runs readable on the main queue whenever the descriptor can be read, until unwatch(); it must read until there
    /// is no more. One watch for each descriptor. Main thread.
    void watch(int descriptor, Block readable);
    /// Before the descriptor is closed. Main thread.
    void unwatch(int descriptor);
    /// Runs the blocks that wait now and those that they add. Main thread; may be nested. True if any ran.
    bool runPending();
    /// Sleeps in real time until eventDescriptor() is readable. Main thread.
    void waitForWork();
    /// Runs blocks until quit() is called; returns the status given there.
    int run();
    /// Ends run() after the block that runs now; the first status is used. Any thread.
    void quit(int status);
    bool hasQuit() const;

    /// From here on blocks are dropped and waiting sync() calls return false. Main thread, at the end of the program.
    void close();

  private:
    struct State;
    std::shared_ptr<State> _state;
};

/// One thread of its own, made with the first block and ended, without joining, when the last reference is gone and
/// the last block has run. May be destroyed on its own thread.
class SerialQueue final : public Queue {
  public:
    SerialQueue(std::string label, Clock& clock);
    ~SerialQueue() override;
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    void async(Block block) override;
    /// Waits, in real time, until no block runs or waits. Afterwards the queue does not use its clock until it gets
    /// another block. Never on the queue itself.
    void waitUntilIdle();
    /// The name that it was made with. Any thread.
    const std::string& label() const;

    /// Threads of serial queues that are still running, in the whole process; for tests and soak runs.
    static int liveThreads();

  private:
    struct State;
    std::shared_ptr<State> _state;
};

} // namespace zul
