// One lock per printer across all processes of the machine, so that two of our own programs never work on one printer.
//
// A lock is a listening socket whose name is the printer's key. The kernel admits one listener per name, for all users.
// It releases the lock when the process ends, even by a crash, and no file is left over. The holder replies to each
// connection with one line (LockAnswer.h). The kernel reports the holder's process id even if the holder is stopped.
//
// The lock is advisory and protects our own programs from each other, not the printer from an attacker: any user of the
// machine may take or ask any lock, so an answer is displayed, never trusted. Processes in another network namespace
// (most containers) have locks of their own.
#pragma once

#include "platform/usb/PrinterReservations.h"
#include "update/LockAnswer.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace zul {

class LockService;

struct PrinterLocksOptions {
    /// The name of this program in replies: "zulctl".
    std::string program{};
    /// Seconds since 1970, for the time at which an activity begins; null: replies do not report it. Any thread.
    std::function<std::int64_t()> unixTime{};
    /// Locks of different name spaces are independent. Programs keep the default; each test has its own.
    std::string nameSpace = "zul-printer-utility";
    /// How long a query waits for the holder's reply in all.
    std::chrono::milliseconds answerTimeout{300};
};

/// A lock that is held until this is destroyed. Any thread, one at a time.
class PrinterLock {
  public:
    PrinterLock(PrinterLock&& other) noexcept = default;
    PrinterLock& operator=(PrinterLock&& other) noexcept;
    ~PrinterLock() { release(); }

    /// Sets the phase in replies from now on, by its name in the phase table. Cheap; does not wait for other processes.
    void setPhase(const std::string& phase);
    /// Sets the activity in replies from now on and clears the phase. Cheap; does not wait for other processes.
    void setActivity(const std::string& activity);

  private:
    friend class PrinterLocks;
    PrinterLock(std::shared_ptr<LockService> service, std::uint64_t id, std::function<std::int64_t()> unixTime);
    void release();

    std::shared_ptr<LockService> _service; // null once moved from
    std::uint64_t _id = 0;
    std::function<std::int64_t()> _unixTime; // of PrinterLocksOptions
};

class PrinterLocks final : public PrinterReservations {
  public:
    /// Starts no thread until the first lock is taken or watched. Locks and watches may outlive this object. The thread
    /// ends when all of them are gone, and is not joined.
    explicit PrinterLocks(PrinterLocksOptions options);
    ~PrinterLocks() override;

    /// Exactly one of these is set: the lock, the process that has it, or the operator's text of a problem if the
    /// system refuses sockets or a thread.
    struct Result {
        std::optional<PrinterLock> lock{};
        std::optional<InterfaceHolder> holder{};
        std::string problem{};
        /// Another process has the lock. The holder may also be this process, for example if it has claimed the
        /// printer.
        bool isRefused() const;
    };
    /// Takes the printer's lock. activity and the printer's device ID are in the replies to other processes, which need
    /// not ask the printer for it. A process can have a lock only once: a second attempt, also through another
    /// PrinterLocks, returns this process as the holder (pid is getpid()). Returns at once unless another process has
    /// the lock; then waits for its reply like heldElsewhere(). Any thread.
    [[nodiscard]] Result tryLock(const std::string& deviceKey, const std::string& activity,
                                 const std::string& deviceID = {});

    /// The reply of the process that has the lock, which may be this one. nullopt if no process has it, or if the
    /// system does not admit the query. The kernel reports pid and user. Only these and the program's name are filled
    /// if the process does not reply in time. Waits at most answerTimeout. Any thread.
    std::optional<LockAnswer> ask(const std::string& deviceKey) const;

    /// Waits at most answerTimeout. nullopt as in ask(), and if this process has the lock. Any thread.
    std::optional<InterfaceHolder> heldElsewhere(const std::string& deviceKey) override;
    /// released runs on the private thread, never inside this call. Any thread.
    [[nodiscard]] std::shared_ptr<void> watch(const std::string& deviceKey, std::function<void()> released) override;

  private:
    const PrinterLocksOptions _options;
    const std::shared_ptr<LockService> _service;
};

} // namespace zul
