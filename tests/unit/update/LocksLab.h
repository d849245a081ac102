// Name spaces, holders and connections for the tests of locks.
#pragma once

#include "unit/update/ChildProcess.h"
#include "update/LockSocket.h"
#include "update/PrinterLocks.h"

#include <atomic>
#include <doctest/doctest.h>
#include <future>
#include <poll.h>
#include <thread>

namespace zul::test {

using namespace std::chrono_literals;

inline const std::string kPrinter = "2A7100030000000A";

inline std::string freshNameSpace() {
    static std::atomic<int> count = 0;
    return "zul-test-" + std::to_string(::getpid()) + '-' + std::to_string(++count);
}

struct Machine {
    std::string nameSpace = freshNameSpace();
    // A long time-out, because expected replies must arrive on any busy machine.
    PrinterLocks locks{options(/*answerTimeout=*/60s)};

    PrinterLocksOptions options(std::chrono::milliseconds answerTimeout) const {
        return {.program = "unit_tests",
                .unixTime = [] { return 1700000000; },
                .nameSpace = nameSpace,
                .answerTimeout = answerTimeout};
    }
    std::vector<std::string> holder(std::int64_t since = 1600000000) const {
        return {ZUL_LOCK_HOLDER, nameSpace, std::to_string(since)};
    }
    HolderConnection connect() const { return connectToHolder(*lockAddress(nameSpace, kPrinter)); }
};

inline InterfaceHolder ownProgram(const std::string& program, int pid) {
    InterfaceHolder holder;
    holder.kind = InterfaceHolder::Kind::ownProgram;
    holder.program = program;
    holder.pid = pid;
    return holder;
}

// A callback on the private thread that a test waits for.
struct Call {
    std::promise<void> promise;
    std::atomic<int> count = 0;
    std::function<void()> function() {
        return [this] {
            if (++count == 1) promise.set_value();
        };
    }
    void wait() { promise.get_future().wait(); }
};

inline bool isEnded(const HolderConnection& connection) {
    pollfd entry{connection.socket.get(), POLLRDHUP, 0};
    return ::poll(&entry, 1, 0) != 0;
}

inline void waitForAnswer(const HolderConnection& connection) {
    pollfd entry{connection.socket.get(), POLLIN, 0};
    REQUIRE(::poll(&entry, 1, -1) == 1);
}

// A holder that is not one of our programs: it listens, and sends any text.
struct Stranger {
    explicit Stranger(const Machine& machine) : listener(listenAt(*lockAddress(machine.nameSpace, kPrinter))) {
        REQUIRE(listener.socket);
    }
    // Replies to every connection until the end of the test.
    void answer(const std::string& text) {
        thread = std::thread([this, text] {
            for (;;) {
                pollfd entry{listener.socket.get(), POLLIN, 0};
                ::poll(&entry, 1, -1);
                kept.emplace_back(::accept(listener.socket.get(), nullptr, nullptr));
                if (!kept.back()) return;
                static_cast<void>(::send(kept.back().get(), text.data(), text.size(), MSG_NOSIGNAL));
            }
        });
    }
    ~Stranger() {
        ::shutdown(listener.socket.get(), SHUT_RDWR);
        if (thread.joinable()) thread.join();
    }
    LockListener listener;
    std::vector<ScopedFd> kept;
    std::thread thread;
};

} // namespace zul::test
