// One lock per printer across all processes of the machine, so that two of our own programs never work on one printer.
//
// A lock is a listening socket whose name is the printer's key. The kernel admits one listener per name, whoever the
// users are; it ends the lock when the process ends, however it ends; and nothing is left in the file system. Whoever
// connects is answered by the holder with one line (LockAnswer.h). Even when the holder is stopped, the kernel reports
// its process id.
//
// The lock is advisory and protects our own programs from each other, not the printer from an attacker: any user of the
// machine may take or ask any lock, so an answer is displayed, never trusted. Processes in another network namespace
// (most containers) have locks of their own.
#pragma once

#include "platform/usb/PrinterReservations.h"
#include "update/LockAnswer.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace zul {

class LockService;

struct PrinterLocksOptions {
    /// How this program is called in answers: "zulctl".
    std::string program{};
    /// Seconds since 1970, for the time at which a lock begins; null: the answers do not report it. Any thread.
    std::function<std::int64_t()> unixTime{};
    /// Locks of different name spaces never meet. Programs keep the default, each test has its own.
    std::string nameSpace = "zul-printer-utility";
    /// How long a question waits for the holder's answer in all.
    std::chrono::milliseconds answerTimeout{300};
};

/// A lock that is held; dropping it releases it. Any thread, one at a time.
class PrinterLock {
  public:
    PrinterLock(PrinterLock&& other) noexcept = default;
    PrinterLock& operator=(PrinterLock&& other) noexcept;
    ~PrinterLock() { release(); }

    /// The name of the phase that is answered from now on. Cheap, never waits.
    void setPhase(const std::string& phase);
    /// What the printer is reserved for from now on; it is in no phase yet. Cheap, never waits.
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
    /// Costs nothing until a lock is taken or watched: a private thread begins then. Locks and watches may outlive this
    /// object; the thread ends, without being waited for, when all of them are gone.
    explicit PrinterLocks(PrinterLocksOptions options);
    ~PrinterLocks() override;

    /// One of the three: the lock; the process that has it; a problem, in plain words, when the system refuses sockets.
    struct Result {
        std::optional<PrinterLock> lock{};
        std::optional<InterfaceHolder> holder{};
        std::string problem{};
        /// Another process has the lock. A holder may also be this process, which has claimed the printer, for example.
        bool isRefused() const;
    };
    /// Takes the printer's lock. A process has a printer once: a second attempt, also through another PrinterLocks, is
    /// refused with this process as the holder (pid is getpid()). Returns at once unless another process has the lock;
    /// then waits for its answer like heldElsewhere(). Any thread.
    [[nodiscard]] Result tryLock(const std::string& deviceKey, const std::string& activity);

    /// The answer of the process that has the lock, which may be this one; nullopt if there is none. pid and user are
    /// the kernel's. Of a process that does not answer in time only they and the program's name are filled. Waits at
    /// most answerTimeout. Any thread.
    std::optional<LockAnswer> ask(const std::string& deviceKey) const;

    std::optional<InterfaceHolder> heldElsewhere(const std::string& deviceKey) override;
    /// released runs on the private thread, never inside this call.
    [[nodiscard]] std::shared_ptr<void> watch(const std::string& deviceKey, std::function<void()> released) override;

  private:
    const PrinterLocksOptions _options;
    const std::shared_ptr<LockService> _service;
};

} // namespace zul
