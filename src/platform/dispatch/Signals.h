// The programs' use of POSIX signals. Requests to terminate, and a closed terminal, become blocks on the main queue.
#pragma once

#include "platform/dispatch/Queue.h"

#include <functional>
#include <memory>
#include <vector>

namespace zul {

/// Runs a handler on the main queue after each of the given signals while the object exists; the destructor restores
/// their default action. Only one object may exist in a process at a time. The queue must outlive it. Main thread.
class Signals {
  public:
    /// numbers: for example SIGINT. If the system has no descriptors left, the signals keep their default action.
    Signals(MainQueue& mainQueue, std::vector<int> numbers, std::function<void(int number)> handler);
    ~Signals();
    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;

  private:
    void postReceived();

    MainQueue& _mainQueue;
    const std::vector<int> _numbers;
    /// Shared with the posted blocks, which do nothing after the object is destroyed.
    const std::shared_ptr<const std::function<void(int)>> _handler;
};

/// Makes writes to a pipe without a reader fail instead of ending the program, so that an update continues when the
/// reader of its output ends. Call at the start of the program.
void ignoreBrokenPipes();

/// Gives the signal one effect: a system call that blocks the signalled thread returns EINTR. For threads that another
/// thread stops with pthread_kill(). Any thread.
void letSignalEndSystemCalls(int number);

} // namespace zul
