// A process that takes, queries and watches locks as its standard input says, one command per line:
//
//   lock_holder NAME-SPACE UNIX-TIME
//
// lock KEY ACTIVITY, phase NAME, release, watch KEY, connect KEY, state, descriptors, exhaust, relent, end. The reply
// to each is one line.
#include "update/LockSocket.h"
#include "update/PrinterLocks.h"

#include <filesystem>
#include <iostream>
#include <mutex>
#include <poll.h>
#include <spawn.h>
#include <sstream>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

using namespace zul;

namespace {

class Holder {
  public:
    Holder(const std::string& nameSpace, std::int64_t time) : _nameSpace(nameSpace) {
        _locks.emplace(
            PrinterLocksOptions{.program = "lock_holder", .unixTime = [time] { return time; }, .nameSpace = nameSpace});
    }

    void obey(const std::string& line) {
        std::istringstream words(line);
        std::string word, key;
        words >> word;
        if (word == "lock") {
            words >> key;
            std::string activity;
            std::getline(words >> std::ws, activity);
            take(key, activity);
        } else if (word == "phase") {
            words >> word;
            if (_lock) _lock->setPhase(word);
            say("set");
        } else if (word == "release") {
            _lock.reset();
            say("released");
        } else if (word == "watch") {
            words >> key;
            _watch = _locks->watch(key, [this] { say("notified"); });
            say("watching");
        } else if (word == "connect") {
            words >> key;
            connect(key);
        } else if (word == "state") {
            pollfd entry{_connection.socket.get(), POLLRDHUP, 0};
            say(::poll(&entry, 1, 0) == 0 ? "open" : "ended");
        } else if (word == "descriptors") {
            const std::filesystem::directory_iterator first("/proc/self/fd"), last;
            say(std::to_string(std::distance(first, last)));
        } else if (word == "start") {
            say(std::to_string(startProgram()));
        } else if (word == "exhaust") {
            rlimit limit{64, 64};
            ::setrlimit(RLIMIT_NOFILE, &limit);
            for (int copy = ::dup(STDIN_FILENO); copy >= 0; copy = ::dup(STDIN_FILENO)) _copies.emplace_back(copy);
            say("exhausted");
        } else if (word == "relent") {
            _copies.clear();
            say("relented");
        } else if (word == "end") {
            _watch.reset();
            _lock.reset();
            _locks.reset();
            say("ended");
        }
    }

  private:
    void take(const std::string& key, const std::string& activity) {
        auto result = _locks->tryLock(key, activity);
        if (result.lock) {
            _lock = std::move(result.lock);
            say("locked");
        } else {
            say(result.holder ? "held by " + std::to_string(result.holder->pid) : result.problem);
        }
    }
    // Starts a program that does not end by itself; returns its process id.
    static int startProgram() {
        char name[] = "tail", option[] = "-f", file[] = "/dev/null";
        char* const arguments[] = {name, option, file, nullptr};
        pid_t pid = 0;
        return ::posix_spawnp(&pid, name, nullptr, nullptr, arguments, environ) == 0 ? pid : 0;
    }
    // Opens a connection and keeps it open after its reply.
    void connect(const std::string& key) {
        _connection = connectToHolder(*lockAddress(_nameSpace, key));
        pollfd entry{_connection.socket.get(), POLLIN, 0};
        ::poll(&entry, 1, -1);
        say("connected");
    }
    void say(const std::string& text) {
        const std::scoped_lock lock(_mutex);
        std::cout << text << std::endl;
    }

    const std::string _nameSpace;
    std::mutex _mutex; // of standard output
    std::optional<PrinterLocks> _locks;
    std::optional<PrinterLock> _lock;
    std::shared_ptr<void> _watch;
    HolderConnection _connection;
    std::vector<ScopedFd> _copies;
};

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    Holder holder(argv[1], std::atoll(argv[2]));
    for (std::string line; std::getline(std::cin, line);) holder.obey(line);
    return 0;
}
