// The two execution contexts of the programs: the main queue and serial queues (one per printer). A queue carries
// queue-specific data, so that code can check which queue it runs on without comparing thread ids.
#pragma once

#include "platform/dispatch/Clock.h"

#include <memory>
#include <string>

namespace zul {

class Queue {
  public:
    virtual ~Queue();
    /// Queues block after the blocks queued before. Any thread; never blocks.
    virtual void async(Block block) = 0;

    /// Stores value under key (an address). Call before the queue is shared.
    void setSpecific(const void* key, const void* value);
    /// The value under key of the queue that the calling thread is running (on the main thread: the main queue, also
    /// between blocks); null if there is none.
    static const void* currentSpecific(const void* key);

  protected:
    /// Makes the object that holds the queue-specific data; the thread of the queue shares it.
    Queue();
    struct Specifics;
    /// Makes currentSpecific() answer for this queue on the calling thread from now on; null: for none.
    static void setCurrent(const Specifics* specifics);
    std::shared_ptr<Specifics> _specifics;
};

/// The queue of the thread that creates it. A program executes it with run(), or calls runPending() whenever the event
/// descriptor is readable, so a window can serve it from its own event loop.
class MainQueue final : public Queue {
  public:
    /// Makes the calling thread the main thread. The clock must outlive the queue.
    explicit MainQueue(Clock& clock);
    ~MainQueue() override;
    MainQueue(const MainQueue&) = delete;
    MainQueue& operator=(const MainQueue&) = delete;

    void async(Block block) override;
    /// Runs block on the main queue and waits for it. Call from a serial queue only. Returns false without running
    /// block once the queue is closed, because no thread may wait for an ended loop.
    bool sync(Block block);

    /// Readable while blocks are queued or a watched descriptor is readable; negative if the system had no descriptor
    /// left.
    int eventDescriptor() const;
    /// Calls readable on the main queue whenever descriptor is readable, until unwatch(). readable must read until no
    /// data is left. One watch per descriptor. Main thread.
    void watch(int descriptor, Block readable);
    /// Call before closing the descriptor. Main thread.
    void unwatch(int descriptor);
    /// Runs the queued blocks and those that they queue. Returns true if any ran. Main thread; may be nested.
    bool runPending();
    /// Sleeps in real time until eventDescriptor() is readable. Main thread.
    void waitForWork();
    /// Runs blocks until quit(); returns its status. Main thread.
    int run();
    /// Ends run() after the current block; the status of the first call is used. Any thread.
    void quit(int status);
    /// Whether quit() was called. Any thread.
    bool hasQuit() const;

    /// Drops the queued blocks and all later ones; waiting sync() calls return false. Main thread, at the end of the
    /// program.
    void close();

  private:
    struct State;
    std::shared_ptr<State> _state;
};

/// Runs its blocks on one thread of its own. The thread starts with the first block. It ends, without being joined,
/// after the last reference is released and the last block has run. The queue may be destroyed on its own thread.
class SerialQueue final : public Queue {
  public:
    /// label: for debugging, "…printer.ZUL.VK14.000001". The clock must outlive the last block.
    SerialQueue(std::string label, Clock& clock);
    ~SerialQueue() override;
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    void async(Block block) override;
    /// Waits in real time until no block is running or queued. Afterwards the queue does not use its clock until
    /// another block is queued. Never call it on the queue itself.
    void waitUntilIdle();
    /// The label passed to the constructor. Any thread.
    const std::string& label() const;

    /// The number of running threads of serial queues in this process; for tests and soak runs.
    static int liveThreads();

  private:
    struct State;
    std::shared_ptr<State> _state;
};

} // namespace zul
