// The sockets of which the locks are made. Called by PrinterLocks on its caller's thread, and by LockService on its
// private thread. The only function that waits is askHolder(), for another process and for a limited time.
#include "update/LockSocket.h"

#include "platform/files/Files.h"
#include "platform/files/ScopedFd.h"
#include "update/LockAnswer.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <optional>
#include <poll.h>
#include <pwd.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace zul {

namespace {

using SteadyClock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// Between two attempts to reach a holder whose queue is full or whose lock has just ended.
constexpr milliseconds kRetryPause{10};
// Close on exec: a program that the holder starts must not keep the lock.
constexpr int kSocketType = SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK;

const sockaddr* generic(const LockAddress& address) {
    return reinterpret_cast<const sockaddr*>(&address.name);
}

milliseconds remaining(SteadyClock::time_point deadline) {
    return std::max(milliseconds{0}, std::chrono::ceil<milliseconds>(deadline - SteadyClock::now()));
}

enum class Reading { line, ended, late };

// Appends the received bytes to line, up to a line end or the size limit.
Reading readLine(int socket, SteadyClock::time_point deadline, std::string& line) {
    for (;;) {
        std::array<char, kLongestLockAnswer + 1> buffer{}; // one more than allowed, so that a longer line is noticed
        const ssize_t count = ::recv(socket, buffer.data(), buffer.size() - line.size(), MSG_DONTWAIT);
        if (count > 0) {
            line.append(buffer.data(), static_cast<std::size_t>(count));
            if (line.size() > kLongestLockAnswer || line.find('\n') != std::string::npos) return Reading::line;
            continue;
        }
        if (count == 0 || (errno != EAGAIN && errno != EINTR)) return Reading::ended;
        const milliseconds time = remaining(deadline);
        if (time == milliseconds{0}) return Reading::late;
        pollfd entry{socket, POLLIN, 0};
        ::poll(&entry, 1, static_cast<int>(time.count()));
    }
}

LockAnswer answerOf(const HolderConnection& holder, const std::string& line) {
    // Text after the line end is not part of the answer.
    LockAnswer answer = parseLockAnswer(line.substr(0, line.find('\n'))).value_or(LockAnswer{});
    answer.pid = holder.pid;
    answer.user = nameOfUser(holder.user);
    if (answer.program.empty()) answer.program = displayableName(programOfProcess(holder.pid));
    return answer;
}

} // namespace

std::optional<LockAddress> lockAddress(const std::string& nameSpace, const std::string& deviceKey) {
    const std::string name = nameSpace + '/' + deviceKey;
    LockAddress address;
    // The first byte is 0: such a name belongs to no file.
    if (name.size() > sizeof address.name.sun_path - 1) return std::nullopt;
    address.name.sun_family = AF_UNIX;
    std::memcpy(address.name.sun_path + 1, name.data(), name.size());
    address.length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    return address;
}

LockListener listenAt(const LockAddress& address) {
    LockListener listener{ScopedFd(::socket(AF_UNIX, kSocketType, 0))};
    if (!listener.socket || ::bind(listener.socket.get(), generic(address), address.length) != 0 ||
        ::listen(listener.socket.get(), SOMAXCONN) != 0) {
        listener.error = errno;
        listener.socket.reset();
    }
    return listener;
}

HolderConnection connectToHolder(const LockAddress& address) {
    HolderConnection connection{.socket = ScopedFd(::socket(AF_UNIX, kSocketType, 0))};
    if (!connection.socket) return connection;
    if (::connect(connection.socket.get(), generic(address), address.length) != 0) {
        if (errno == ECONNREFUSED) connection.contact = Contact::noHolder;
        if (errno == EAGAIN) connection.contact = Contact::queueFull;
        connection.socket.reset();
        return connection;
    }
    connection.contact = Contact::connected;
    // These are of the process that called listen(), so they are known even if that process is stopped.
    ucred peer{};
    socklen_t length = sizeof peer;
    if (::getsockopt(connection.socket.get(), SOL_SOCKET, SO_PEERCRED, &peer, &length) == 0) {
        connection.pid = peer.pid;
        connection.user = peer.uid;
    }
    return connection;
}

std::optional<LockAnswer> askHolder(const LockAddress& address, milliseconds timeout) {
    const auto deadline = SteadyClock::now() + timeout;
    for (bool isFirst = true;; isFirst = false) {
        const HolderConnection holder = connectToHolder(address);
        LockAnswer known;
        if (holder.contact == Contact::noHolder || holder.contact == Contact::refused) return std::nullopt;
        if (holder.contact == Contact::connected) {
            std::string line;
            const Reading reading = readLine(holder.socket.get(), deadline, line);
            if (reading == Reading::line) return answerOf(holder, line);
            known = answerOf(holder, {});
            if (reading == Reading::late) return known;
            // The lock was just released, or its holder closes connections without a reply: the next attempt shows
            // which.
        }
        if (remaining(deadline) == milliseconds{0}) return known;
        if (!isFirst) ::poll(nullptr, 0, static_cast<int>(std::min(kRetryPause, remaining(deadline)).count()));
    }
}

std::string programOfProcess(int pid) {
    if (pid <= 0) return {};
    const std::string folder = "/proc/" + std::to_string(pid);
    std::string name = firstLineOfFile(folder + "/comm");
    // The kernel keeps 15 bytes of the name; the command line has the rest.
    // "zul-printer-utility" is longer.
    if (name.size() == 15) {
        std::string started = textOfFile(folder + "/cmdline");
        started.resize(std::min(started.find('\0'), started.size())); // without the arguments
        started.erase(0, started.rfind('/') + 1);
        if (started.starts_with(name)) name = started;
    }
    return name;
}

std::string nameOfUser(uid_t user) {
    passwd entry{};
    passwd* found = nullptr;
    std::vector<char> texts(16384);
    ::getpwuid_r(user, &entry, texts.data(), texts.size(), &found);
    return found != nullptr && found->pw_name != nullptr ? found->pw_name : std::to_string(user);
}

} // namespace zul
