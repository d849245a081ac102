// The sockets of which the locks are made: how to name, take and query one. Used by PrinterLocks and LockService; the
// history's recorder uses nameOfUser(), too. Any thread; these functions keep no state.
#pragma once

#include "platform/files/ScopedFd.h"
#include "update/LockAnswer.h"

#include <chrono>
#include <optional>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace zul {

/// The socket name of a printer's lock.
struct LockAddress {
    sockaddr_un name{};
    socklen_t length = 0;
};

/// The address of the lock of the printer with this key. nullopt if name space and key together have more than 106
/// bytes.
std::optional<LockAddress> lockAddress(const std::string& nameSpace, const std::string& deviceKey);

struct LockListener {
    ScopedFd socket{}; // not blocking; empty if the lock was not taken
    int error = 0;     // errno; EADDRINUSE: a process has the lock
};
/// Takes the lock, which lasts until the socket is closed. Never waits.
LockListener listenAt(const LockAddress& address);

/// Result of an attempt to connect to the holder.
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
/// Connects to the process that holds the lock. Never waits.
HolderConnection connectToHolder(const LockAddress& address);

/// The holder's reply. Only pid, user and program are filled if it does not come in time or cannot be parsed, and none
/// if too many processes already wait for the holder. nullopt if there is no holder or the system does not admit the
/// attempt. Waits at most timeout.
std::optional<LockAnswer> askHolder(const LockAddress& address, std::chrono::milliseconds timeout);

/// The program name of a process, from the kernel; empty if there is no such process.
std::string programOfProcess(int pid);
/// The name of a user; its number if it has no name.
std::string nameOfUser(uid_t user);

} // namespace zul
