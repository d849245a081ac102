// The system's signals. Requests to end, and a terminal that was closed, become blocks on the main queue; all other
// uses of signals in the programs are here, too.
#pragma once

#include "platform/dispatch/Queue.h"

#include <functional>
#include <memory>
#include <vector>

namespace zul {

/// Runs a handler on the main queue after each of some signals, for as long as the object lives; afterwards their
/// default action is back. One object in a process at a time. The queue must outlive it. Main thread.
class Signals {
  public:
    /// numbers: for example SIGINT. Where the system has no descriptors left, they keep their default action.
    Signals(MainQueue& mainQueue, std::vector<int> numbers, std::function<void(int number)> handler);
    ~Signals();
    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;

  private:
    void postReceived();

    MainQueue& _mainQueue;
    const std::vector<int> _numbers;
    /// Shared with the posted blocks, which run nothing once the object is gone.
    const std::shared_ptr<const std::function<void(int)>> _handler;
};

/// Writing to a pipe without a reader fails from now on, instead of ending the program: an update must not
/// end because the reader of its output did. At the start of a program.
void ignoreBrokenPipes();

/// From now on the signal has no effect but that a system call in which the signalled thread waits ends with EINTR. For
/// threads that another one ends with pthread_kill(). Any thread.
void letSignalEndSystemCalls(int number);

} // namespace zul
