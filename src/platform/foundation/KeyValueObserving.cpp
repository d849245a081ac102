// Registrations and open changes are guarded by a lock that is not held while observers are called, because observers
// may add or remove registrations. Called on the thread that makes a change.
#include "platform/foundation/KeyValueObserving.h"

#include <algorithm>
#include <atomic>
#include <iterator>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace zul {

namespace {

std::atomic<KeyValueObservable::ChangeDiagnostic> changeDiagnostic{nullptr};

bool sameObserver(const std::weak_ptr<KeyValueObserver>& one, const std::weak_ptr<KeyValueObserver>& other) {
    return !one.owner_before(other) && !other.owner_before(one);
}

} // namespace

void KeyValueObservable::setChangeDiagnostic(ChangeDiagnostic diagnostic) {
    changeDiagnostic = diagnostic;
}

void KeyValueObservable::addObserver(std::weak_ptr<KeyValueObserver> observer, const std::string& keyPath,
                                     void* context) {
    const std::scoped_lock lock(_observingMutex);
    _registrations.push_back({std::move(observer), keyPath, context});
}

void KeyValueObservable::removeObserver(const std::weak_ptr<KeyValueObserver>& observer, const std::string& keyPath,
                                        void* context) {
    const std::scoped_lock lock(_observingMutex);
    std::erase_if(_registrations, [&](const Registration& entry) {
        return entry.keyPath == keyPath && entry.context == context && sameObserver(entry.observer, observer);
    });
}

std::vector<KeyValueObservable::Registration> KeyValueObservable::registrationsFor(const std::string& key) {
    std::vector<Registration> interested;
    // A copy, because an observer may add or remove registrations while the notices are sent.
    std::ranges::copy_if(_registrations, std::back_inserter(interested),
                         [&](const Registration& entry) { return entry.keyPath == key || entry.keyPath == kEveryKey; });
    return interested;
}

void KeyValueObservable::willChangeValueForKey(const std::string& key) {
    std::vector<Registration> interested;
    {
        const std::scoped_lock lock(_observingMutex);
        // A setter that calls another one of the same key causes one notice, not two.
        if (_openChanges[key]++ > 0) return;
        interested = registrationsFor(key);
    }
    for (const Registration& entry : interested) {
        if (const auto observer = entry.observer.lock()) observer->willChangeValueForKey(key, *this, entry.context);
    }
}

void KeyValueObservable::didChangeValueForKey(const std::string& key) {
    if (const ChangeDiagnostic diagnostic = changeDiagnostic) diagnostic(key);
    std::vector<Registration> interested;
    {
        const std::scoped_lock lock(_observingMutex);
        const auto open = _openChanges.find(key);
        if (open == _openChanges.end()) return; // did-change without will-change: nothing was announced
        if (--open->second > 0) return;
        _openChanges.erase(open);
        interested = registrationsFor(key);
    }
    for (const Registration& entry : interested) {
        if (const auto observer = entry.observer.lock()) observer->observeValueForKeyPath(key, *this, entry.context);
    }
}

} // namespace zul
