// One lock per printer across processes: takes, queries and watches locks on the caller's thread. LockService does what
// must happen between the calls. Called by the supervisor and the session on the main queue, and by the bus before it
// claims an interface.
#include "update/PrinterLocks.h"

#include "platform/foundation/LocalizedFormat.h"
#include "platform/usb/PrinterReservations.h"
#include "update/LockAnswer.h"
#include "update/LockService.h"
#include "update/LockSocket.h"

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <poll.h>
#include <string>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace zul {

namespace {

// Between two attempts to take a lock that another process is just taking or releasing.
constexpr int kRetryPause = 5; // ms

InterfaceHolder holderOf(const LockAnswer& answer) {
    return {.kind = InterfaceHolder::Kind::ownProgram,
            .program = answer.program,
            .pid = answer.pid,
            .activity = answer.activity,
            .phase = answer.phase,
            .since = answer.since,
            .deviceID = answer.deviceID};
}

std::string problemOf(int error) {
    return localizedFormat(
        "The printer cannot be reserved for this program (%s). End programs that are not needed, then "
        "try again.",
        std::generic_category().message(error));
}

} // namespace

PrinterLock::PrinterLock(std::shared_ptr<LockService> service, std::uint64_t id, std::function<std::int64_t()> unixTime)
    : _service(std::move(service)), _id(id), _unixTime(std::move(unixTime)) {}

PrinterLock& PrinterLock::operator=(PrinterLock&& other) noexcept {
    // Otherwise the lock would be released before it is moved.
    if (this == &other) return *this;
    release();
    _service = std::move(other._service);
    _id = other._id;
    _unixTime = std::move(other._unixTime);
    return *this;
}

void PrinterLock::release() {
    if (_service != nullptr) _service->endLock(_id);
    _service = nullptr;
}

void PrinterLock::setPhase(const std::string& phase) {
    if (_service != nullptr) _service->setPhase(_id, phase);
}

void PrinterLock::setActivity(const std::string& activity) {
    if (_service != nullptr) _service->setActivity(_id, activity, _unixTime != nullptr ? _unixTime() : 0);
}

bool PrinterLocks::Result::isRefused() const {
    return holder && holder->pid != ::getpid();
}

PrinterLocks::PrinterLocks(PrinterLocksOptions options)
    : _options(std::move(options)), _service(std::make_shared<LockService>()) {}

PrinterLocks::~PrinterLocks() = default;

PrinterLocks::Result PrinterLocks::tryLock(const std::string& deviceKey, const std::string& activity,
                                           const std::string& deviceID) {
    const auto address = lockAddress(_options.nameSpace, deviceKey);
    if (!address) return {.problem = problemOf(ENAMETOOLONG)};
    const auto deadline = std::chrono::steady_clock::now() + _options.answerTimeout;
    for (;;) {
        LockListener listener = listenAt(*address);
        if (listener.socket) {
            const std::int64_t now = _options.unixTime != nullptr ? _options.unixTime() : 0;
            const auto id = _service->addLock(std::move(listener.socket), {.program = _options.program,
                                                                           .pid = ::getpid(),
                                                                           .user = nameOfUser(::geteuid()),
                                                                           .since = now,
                                                                           .activity = activity,
                                                                           .deviceID = deviceID});
            if (id == 0) return {.problem = problemOf(errno)};
            return {.lock = PrinterLock(_service, id, _options.unixTime)};
        }
        if (listener.error != EADDRINUSE) return {.problem = problemOf(listener.error)};
        // The operator has to read which process it is, so its reply is waited for.
        if (const auto answer = askHolder(*address, _options.answerTimeout)) return {.holder = holderOf(*answer)};
        // The lock was released meanwhile; or a process is taking it, and cannot be asked before it listens.
        if (std::chrono::steady_clock::now() >= deadline) return {.holder = holderOf({})};
        ::poll(nullptr, 0, kRetryPause);
    }
}

std::optional<LockAnswer> PrinterLocks::ask(const std::string& deviceKey) const {
    const auto address = lockAddress(_options.nameSpace, deviceKey);
    return address ? askHolder(*address, _options.answerTimeout) : std::nullopt;
}

std::optional<InterfaceHolder> PrinterLocks::heldElsewhere(const std::string& deviceKey) {
    const auto answer = ask(deviceKey);
    if (!answer || answer->pid == ::getpid()) return std::nullopt;
    return holderOf(*answer);
}

std::shared_ptr<void> PrinterLocks::watch(const std::string& deviceKey, std::function<void()> released) {
    const auto address = lockAddress(_options.nameSpace, deviceKey);
    const std::uint64_t id = address ? _service->addWatch(*address, std::move(released)) : 0;
    struct Watch {
        std::shared_ptr<LockService> service;
        std::uint64_t id;
        ~Watch() { service->endWatch(id); }
    };
    return std::make_shared<Watch>(_service, id);
}

} // namespace zul
