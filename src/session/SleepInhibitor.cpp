// The lock against sleep, held by the session during updates. Each request runs on a detached thread, because a message
// bus may be slow and the main queue must not wait for it.
#include "session/SleepInhibitor.h"

#include "platform/files/ScopedFd.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/LocalizedFormat.h"
#include "session/LoginService.h"

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

namespace zul {

struct SleepInhibitor::Shared {
    const LoginServiceOptions options;
    std::mutex mutex;
    std::function<void()> changed; // null after the inhibitor's destruction
    bool isWanted = false;
    bool isAsking = false;
    ScopedFd lock{};
    std::string problem{};

    // Call with the mutex held.
    void take(LoginLock answer) {
        isAsking = false;
        if (!isWanted) return; // the update has ended meanwhile: the lock is released with the answer
        lock = std::move(answer.lock);
        problem = std::move(answer.problem);
        if (!problem.empty()) logText("The machine is not kept awake during the update: %s.\n", problem);
    }
};

SleepInhibitor::SleepInhibitor(LoginServiceOptions options, std::function<void()> changed)
    : _shared(std::make_shared<Shared>(std::move(options))) {
    _shared->changed = std::move(changed);
}

SleepInhibitor::~SleepInhibitor() {
    setHeld(false);
    const std::scoped_lock lock(_shared->mutex);
    // Under the mutex: after this line no request on its thread calls it any more.
    _shared->changed = nullptr;
}

void SleepInhibitor::setHeld(bool isHeld) {
    const std::scoped_lock lock(_shared->mutex);
    if (_shared->isWanted == isHeld) return;
    _shared->isWanted = isHeld;
    _shared->lock.reset();
    _shared->problem.clear();
    // The reply to a request that is under way serves this call, too.
    if (!isHeld || _shared->isAsking) return;
    _shared->isAsking = true;
    const std::string why = localizedFormat("The firmware of a printer is being updated");
    try {
        std::thread([shared = _shared, why] { ask(shared, why); }).detach();
    } catch (const std::system_error& error) {
        _shared->take({.problem = error.what()});
    }
}

void SleepInhibitor::ask(const std::shared_ptr<Shared>& shared, const std::string& why) {
    LoginLock answer = takeLoginLock(shared->options, why);
    const std::scoped_lock lock(shared->mutex);
    shared->take(std::move(answer));
    if (shared->changed) shared->changed();
}

bool SleepInhibitor::isWanted() const {
    const std::scoped_lock lock(_shared->mutex);
    return _shared->isWanted;
}

InhibitorState SleepInhibitor::state() const {
    const std::scoped_lock lock(_shared->mutex);
    if (!_shared->isWanted) return InhibitorState::idle;
    if (_shared->lock) return InhibitorState::held;
    return _shared->isAsking ? InhibitorState::asking : InhibitorState::unavailable;
}

std::string SleepInhibitor::problem() const {
    const std::scoped_lock lock(_shared->mutex);
    return _shared->problem;
}

} // namespace zul
