// The system's signals as blocks on the main queue: a request to end, a terminal that was closed.
#pragma once

#include "platform/dispatch/Queue.h"

#include <functional>
#include <initializer_list>
#include <memory>

namespace zul {

/// Runs a handler on the main queue at each of some signals, for as long as it lives; afterwards their default action
/// is back. One object in a process at a time. The queue must outlive it. Main thread.
class Signals {
  public:
    Signals(MainQueue& mainQueue, std::initializer_list<int> numbers, std::function<void(int number)> handler);
    ~Signals();
    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;

  private:
    struct State;
    std::shared_ptr<State> _state;
};

/// Writing to a pipe that nobody reads any more fails from now on, instead of ending the program: an update must not
/// end because the reader of its output did. At the start of a program.
void ignoreBrokenPipes();

} // namespace zul
