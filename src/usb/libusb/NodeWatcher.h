// Reports when a process closes a device node: the only sign that the system gives of another program releasing a
// printer.
#pragma once

#include "platform/files/ScopedFd.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace zul {

/// Watches files on a private thread, made with the first watch, ended without joining when the watcher goes.
class NodeWatcher {
  public:
    /// Without inotify on this system each add() returns 0.
    NodeWatcher();
    ~NodeWatcher();
    NodeWatcher(const NodeWatcher&) = delete;
    NodeWatcher& operator=(const NodeWatcher&) = delete;

    using Callback = std::function<void()>;
    /// Runs closed on the private thread each time a process closes the file; it may only post. Returns an id for
    /// remove(), 0 when the system refuses the watch. Any thread.
    std::uint64_t add(const std::string& path, Callback closed);
    /// A callback that already runs is not waited for. Any thread.
    void remove(std::uint64_t watch);
    /// Closes the file, which was opened at path, without a report to the file's watches. A close by another process at
    /// the same moment goes unreported, too: the caller has just seen that no other process has the file open. Any
    /// thread.
    void closeUnseen(const std::string& path, ScopedFd file);

  private:
    struct State;
    std::shared_ptr<State> _state;
};

} // namespace zul
