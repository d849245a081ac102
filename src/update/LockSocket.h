// The sockets below the locks: how one is named, taken and asked. Used by PrinterLocks and its service only. Any
// thread; nothing here keeps state.
#pragma once

#include "platform/files/ScopedFd.h"
#include "update/LockAnswer.h"

#include <chrono>
#include <optional>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>

namespace zul {

/// The name of a printer's lock at the kernel.
struct LockAddress {
    sockaddr_un name{};
    socklen_t length = 0;
};

/// nullopt for a name space and key that are too long together (more than 106 bytes).
std::optional<LockAddress> lockAddress(const std::string& nameSpace, const std::string& deviceKey);

struct LockListener {
    ScopedFd socket{}; // not blocking
    int error = 0;     // errno; EADDRINUSE: a process has the lock
};
/// Takes the name. The lock lasts as long as the socket.
LockListener listenAt(const LockAddress& address);

/// What came of an attempt to reach the holder.
enum class Contact {
    connected,
    noHolder,
    queueFull, // there is a holder, but it is stopped and too many others wait for it already
    refused    // the system does not admit the attempt; whether there is a holder is not known
};
struct HolderConnection {
    Contact contact = Contact::refused;
    ScopedFd socket{}; // not blocking; ends when the lock does
    int pid = 0;       // of the holder; 0 if it is outside this process's view
    uid_t user = 0;
};
/// Never waits.
HolderConnection connectToHolder(const LockAddress& address);

/// The holder's answer; only pid, user and program when it does not come in time or is not readable, and all empty when
/// the holder cannot be reached. nullopt: there is no holder. Waits at most timeout.
std::optional<LockAnswer> askHolder(const LockAddress& address, std::chrono::milliseconds timeout);

/// The name of a process, from the kernel; empty if there is none.
std::string programOfProcess(int pid);
/// The name of a user, its number where there is no name.
std::string nameOfUser(uid_t user);

} // namespace zul
