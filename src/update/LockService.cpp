// The private thread of the locks, and what PrinterLocks calls to use it. The thread waits for all sockets at once,
// never for one of them, so that no other process can block it. A lock or watch may be ended on any thread, and that
// closes its socket. The private thread therefore identifies events by ids, looks an id up under the mutex, and ignores
// ids that no longer exist.
#include "update/LockService.h"

#include "platform/files/ScopedFd.h"
#include "update/LockAnswer.h"
#include "update/LockSocket.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <poll.h>
#include <string>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace zul {

namespace {

// Connections are kept open so that the other side sees when the lock ends. More than this are not expected.
constexpr std::size_t kMostConnections = 64;
constexpr int kReconnectPause = 1000; // ms; for a watch whose holder could not be reached
constexpr int kRefusedPause = 50;     // ms; while the system has no descriptors or memory for a connection
constexpr std::uint64_t kWakeId = 0;

// Blocks all signals on the current thread. A thread that is started meanwhile inherits that, so that the program's
// signals reach the thread that waits for them.
class AllSignalsBlocked {
  public:
    AllSignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &_before);
    }
    ~AllSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &_before, nullptr); }
    AllSignalsBlocked(const AllSignalsBlocked&) = delete;
    AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;

  private:
    sigset_t _before{};
};

} // namespace

struct LockService::Core {
    struct Lock {
        ScopedFd listener;
        LockAnswer answer;
    };
    struct Connection {
        ScopedFd socket;
        std::uint64_t lock = 0;
        int pid = 0;
    };
    struct Watch {
        LockAddress address;
        std::function<void()> released;
        ScopedFd socket; // empty while the holder has not been reached
    };
    using Callbacks = std::vector<std::function<void()>>;

    std::mutex mutex;
    ScopedFd epoll, wakeEvent;
    bool isRunning = false, isEnded = false;
    std::map<std::uint64_t, Lock> locks;
    std::map<std::uint64_t, Connection> connections; // the oldest first
    std::map<std::uint64_t, Watch> watches;
    std::uint64_t nextId = kWakeId + 1;

    bool listen(int descriptor, std::uint32_t events, std::uint64_t id) const {
        epoll_event event{};
        event.events = events;
        event.data.u64 = id;
        return ::epoll_ctl(epoll.get(), EPOLL_CTL_ADD, descriptor, &event) == 0;
    }
    void wake() const { static_cast<void>(::eventfd_write(wakeEvent.get(), 1)); }

    static bool start(const std::shared_ptr<Core>& core);
    static void run(const std::shared_ptr<Core>& core);
    bool handle(std::uint64_t id, Callbacks& released);
    bool accept(std::uint64_t id, const Lock& lock);
    void makeRoom();
    bool connectWatches(Callbacks& released);
};

// Starts the thread unless it runs already. False with errno if the system refuses. The caller holds the mutex.
bool LockService::Core::start(const std::shared_ptr<Core>& core) {
    if (core->isRunning) return true;
    if (!core->epoll) core->epoll = ScopedFd(::epoll_create1(EPOLL_CLOEXEC));
    if (!core->epoll) return false;
    if (!core->wakeEvent) {
        ScopedFd event(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
        // Kept only when both steps have succeeded, so that a later call can try again.
        if (!event || !core->listen(event.get(), EPOLLIN, kWakeId)) return false;
        core->wakeEvent = std::move(event);
    }
    try {
        const AllSignalsBlocked signals;
        std::thread([core] { run(core); }).detach();
    } catch (const std::system_error& error) {
        errno = error.code().value();
        return false;
    }
    core->isRunning = true;
    return true;
}

void LockService::Core::run(const std::shared_ptr<Core>& core) {
    bool mustReconnect = false;
    for (;;) {
        std::array<epoll_event, 16> events{};
        // An interrupted wait returns -1: then no event is handled, and the wait begins again.
        const int count = ::epoll_wait(core->epoll.get(), events.data(), static_cast<int>(events.size()),
                                       mustReconnect ? kReconnectPause : -1);
        bool isExhausted = false;
        Callbacks released; // called and destroyed without the mutex: they may use this service
        {
            const std::scoped_lock lock(core->mutex);
            if (core->isEnded) return;
            for (int index = 0; index < count; ++index) {
                if (!core->handle(events.at(static_cast<std::size_t>(index)).data.u64, released)) isExhausted = true;
            }
            mustReconnect = core->connectWatches(released);
        }
        for (const auto& callback : released) callback();
        // The connection is still waiting at the listener: without a pause this loop would run without end.
        if (isExhausted) ::poll(nullptr, 0, kRefusedPause);
    }
}

// Handles one event. False if the system has no resources for a connection. The caller holds the mutex.
bool LockService::Core::handle(std::uint64_t id, Callbacks& released) {
    if (id == kWakeId) {
        eventfd_t value = 0;
        static_cast<void>(::eventfd_read(wakeEvent.get(), &value));
    } else if (const auto lock = locks.find(id); lock != locks.end()) {
        return accept(id, lock->second);
    } else if (const auto watch = watches.find(id); watch != watches.end()) {
        released.push_back(std::move(watch->second.released));
        watches.erase(watch);
    } else {
        connections.erase(id); // the other side has closed it
    }
    return true;
}

// Sends the reply to one new connection. False as for handle().
bool LockService::Core::accept(std::uint64_t id, const Lock& lock) {
    ScopedFd socket(::accept4(lock.listener.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!socket) {
        if (errno != EMFILE && errno != ENFILE && errno != ENOBUFS && errno != ENOMEM) return true;
        if (connections.empty()) return false;
        makeRoom();
        return true;
    }
    if (connections.size() >= kMostConnections) makeRoom();
    ucred peer{};
    socklen_t length = sizeof peer;
    static_cast<void>(::getsockopt(socket.get(), SOL_SOCKET, SO_PEERCRED, &peer, &length));
    const std::string line = lockAnswerLine(lock.answer);
    // A new connection's buffer has room for the line. No more is sent, and no bytes are read.
    if (::send(socket.get(), line.data(), line.size(), MSG_NOSIGNAL | MSG_DONTWAIT) < 0) return true;
    const std::uint64_t connection = nextId++;
    if (listen(socket.get(), EPOLLRDHUP, connection)) {
        connections.emplace(connection, Connection{std::move(socket), id, peer.pid});
    }
    return true;
}

// Closes the oldest connection of the process that has the most, so that a process that opens many loses its own.
void LockService::Core::makeRoom() {
    std::map<int, std::size_t> counts;
    for (const auto& [id, connection] : connections) ++counts[connection.pid];
    const auto most = std::ranges::max_element(counts, {}, [](const auto& entry) { return entry.second; });
    if (most == counts.end()) return;
    connections.erase(
        std::ranges::find_if(connections, [&](const auto& entry) { return entry.second.pid == most->first; }));
}

// Connects the watches that have no connection yet. True if a holder could not be reached and must be tried again.
bool LockService::Core::connectWatches(Callbacks& released) {
    bool mustReconnect = false;
    for (auto entry = watches.begin(); entry != watches.end();) {
        // Advanced first, because the current watch may be erased below.
        const auto current = entry++;
        Watch& watch = current->second;
        if (watch.socket) continue;
        HolderConnection holder = connectToHolder(watch.address);
        if (holder.contact == Contact::noHolder || (holder.contact == Contact::connected && holder.pid == ::getpid())) {
            released.push_back(std::move(watch.released));
            watches.erase(current);
        } else if (holder.contact == Contact::connected && listen(holder.socket.get(), EPOLLRDHUP, current->first)) {
            watch.socket = std::move(holder.socket);
        } else {
            mustReconnect = true;
        }
    }
    return mustReconnect;
}

LockService::LockService() : _core(std::make_shared<Core>()) {}

LockService::~LockService() {
    const std::scoped_lock lock(_core->mutex);
    _core->isEnded = true;
    if (_core->isRunning) _core->wake();
}

std::uint64_t LockService::addLock(ScopedFd listener, LockAnswer answer) {
    const std::scoped_lock lock(_core->mutex);
    if (!Core::start(_core)) return 0;
    const std::uint64_t id = _core->nextId++;
    const int descriptor = listener.get();
    _core->locks.emplace(id, Core::Lock{std::move(listener), std::move(answer)});
    if (_core->listen(descriptor, EPOLLIN, id)) return id;
    const int error = errno;
    _core->locks.erase(id);
    errno = error;
    return 0;
}

void LockService::setPhase(std::uint64_t lock, const std::string& phase) {
    const std::scoped_lock guard(_core->mutex);
    const auto found = _core->locks.find(lock);
    if (found == _core->locks.end()) return;
    found->second.answer.phase = phase;
}

void LockService::setActivity(std::uint64_t lock, const std::string& activity, std::int64_t since) {
    const std::scoped_lock guard(_core->mutex);
    const auto found = _core->locks.find(lock);
    if (found == _core->locks.end()) return;
    LockAnswer& answer = found->second.answer;
    answer.activity = activity;
    answer.since = since;
    answer.phase.clear();
}

void LockService::endLock(std::uint64_t lock) {
    const std::scoped_lock guard(_core->mutex);
    _core->locks.erase(lock); // first: a process whose connection ends may take the lock at once
    std::erase_if(_core->connections, [lock](const auto& entry) { return entry.second.lock == lock; });
}

std::uint64_t LockService::addWatch(const LockAddress& address, std::function<void()> released) {
    const std::scoped_lock lock(_core->mutex);
    if (!Core::start(_core)) return 0;
    const std::uint64_t id = _core->nextId++;
    _core->watches.emplace(id, Core::Watch{address, std::move(released), {}});
    _core->wake();
    return id;
}

void LockService::endWatch(std::uint64_t watch) {
    std::function<void()> dropped; // destroyed after the mutex is released: its captures may use this service
    const std::scoped_lock lock(_core->mutex);
    const auto found = _core->watches.find(watch);
    if (found == _core->watches.end()) return;
    dropped = std::move(found->second.released);
    _core->watches.erase(found);
}

} // namespace zul
