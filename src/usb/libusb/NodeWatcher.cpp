// Watching nodes through inotify. One thread reads its events and runs the callbacks; it is not joined, because a
// callback may be the one that destroys the watcher. Called by holder watches and by the guard of print jobs, any
// thread.
#include "usb/libusb/NodeWatcher.h"

#include "platform/files/ScopedFd.h"
#include "platform/files/WakeEvent.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <poll.h>
#include <string>
#include <sys/inotify.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace zul {

namespace {
constexpr std::uint32_t kCloses = IN_CLOSE_WRITE | IN_CLOSE_NOWRITE;
}

struct NodeWatcher::State {
    struct Watch {
        std::string path;
        int descriptor = -1; // the system's: the same for all watches of one file
        Callback closed;
    };

    const ScopedFd inotify{inotify_init1(IN_CLOEXEC | IN_NONBLOCK)};
    const WakeEvent ended;
    std::mutex mutex;
    std::map<std::uint64_t, Watch> watches;
    std::uint64_t nextId = 1;
    bool running = false;

    std::vector<Callback> callbacksOf(int descriptor) {
        const std::scoped_lock lock(mutex);
        std::vector<Callback> callbacks;
        for (const auto& [id, watch] : watches) {
            if (watch.descriptor == descriptor) callbacks.push_back(watch.closed);
        }
        return callbacks;
    }

    void readEvents() {
        alignas(inotify_event) std::array<char, 4096> buffer{};
        const ssize_t length = ::read(inotify.get(), buffer.data(), buffer.size());
        for (ssize_t offset = 0; offset + static_cast<ssize_t>(sizeof(inotify_event)) <= length;) {
            inotify_event event{};
            std::memcpy(&event, buffer.data() + offset, sizeof event);
            offset += static_cast<ssize_t>(sizeof event + event.len);
            if ((event.mask & kCloses) == 0) continue;
            for (const Callback& closed : callbacksOf(event.wd)) closed();
        }
    }

    static void run(const std::shared_ptr<State>& state) {
        for (;;) {
            std::array<pollfd, 2> entries{{{state->inotify.get(), POLLIN, 0}, {state->ended.descriptor(), POLLIN, 0}}};
            if (::poll(entries.data(), entries.size(), -1) < 0 && errno != EINTR) return;
            if (entries[1].revents != 0) return;
            if (entries[0].revents != 0) state->readEvents();
        }
    }
};

NodeWatcher::NodeWatcher() : _state(std::make_shared<State>()) {}

NodeWatcher::~NodeWatcher() {
    _state->ended.raise();
}

std::uint64_t NodeWatcher::add(const std::string& path, Callback closed) {
    const std::scoped_lock lock(_state->mutex);
    const int descriptor = inotify_add_watch(_state->inotify.get(), path.c_str(), kCloses);
    if (descriptor < 0) return 0;
    const std::uint64_t id = _state->nextId++;
    _state->watches.emplace(id, State::Watch{path, descriptor, std::move(closed)});
    if (!_state->running) {
        _state->running = true;
        std::thread([state = _state] { State::run(state); }).detach();
    }
    return id;
}

void NodeWatcher::remove(std::uint64_t watch) {
    Callback dropped; // destroyed after the lock: its destruction may call this object
    const std::scoped_lock lock(_state->mutex);
    const auto found = _state->watches.find(watch);
    if (found == _state->watches.end()) return;
    const int descriptor = found->second.descriptor;
    dropped = std::move(found->second.closed);
    _state->watches.erase(found);
    for (const auto& [id, other] : _state->watches) {
        if (other.descriptor == descriptor) return;
    }
    inotify_rm_watch(_state->inotify.get(), descriptor);
}

void NodeWatcher::closeUnseen(const std::string& path, ScopedFd file) {
    const std::scoped_lock lock(_state->mutex);
    std::vector<State::Watch*> watches;
    for (auto& [id, watch] : _state->watches) {
        if (watch.path == path) watches.push_back(&watch);
    }
    if (!watches.empty()) inotify_rm_watch(_state->inotify.get(), watches.front()->descriptor);
    file.reset();
    // The system never gives a watch number twice, so reports for the old watch find no callback.
    for (State::Watch* watch : watches) {
        watch->descriptor = inotify_add_watch(_state->inotify.get(), path.c_str(), kCloses);
    }
}

} // namespace zul
