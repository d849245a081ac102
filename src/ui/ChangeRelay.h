// Brings change notices of engine objects, which may be sent on any thread, to widgets on the GUI thread, which is the
// main queue's.
#pragma once

#include "platform/dispatch/Queue.h"
#include "platform/foundation/KeyValueObserving.h"

#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace zul::ui {

/// Observes one key of one object from construction to destruction, both on the GUI thread.
class ChangeRelay {
  public:
    using Changed = std::function<void(const std::string& keyPath)>;

    /// Calls changed with the key path on the GUI thread: at once for a change made on the main queue, later for any
    /// other. Never after the destructor. keyPath may be KeyValueObservable::kEveryKey.
    ChangeRelay(MainQueue& mainQueue, std::shared_ptr<KeyValueObservable> object, std::string keyPath, Changed changed)
        : _object(std::move(object)), _keyPath(std::move(keyPath)),
          _observer(std::make_shared<Observer>(mainQueue, std::move(changed))) {
        _object->addObserver(_observer, _keyPath, nullptr);
    }
    ~ChangeRelay() {
        _object->removeObserver(_observer, _keyPath, nullptr);
        _observer->changed = nullptr;
    }
    ChangeRelay(const ChangeRelay&) = delete;
    ChangeRelay& operator=(const ChangeRelay&) = delete;

  private:
    struct Observer final : KeyValueObserver, std::enable_shared_from_this<Observer> {
        Observer(MainQueue& queue, Changed handler) : mainQueue(queue), changed(std::move(handler)) {}
        void observeValueForKeyPath(const std::string& keyPath, KeyValueObservable& /*object*/,
                                    void* /*context*/) override {
            if (isOnMain()) {
                if (changed) changed(keyPath);
                return;
            }
            mainQueue.async([self = shared_from_this(), keyPath] {
                if (self->changed) self->changed(keyPath);
            });
        }
        static bool isOnMain();
        MainQueue& mainQueue;
        Changed changed; // GUI thread only
    };

    const std::shared_ptr<KeyValueObservable> _object;
    const std::string _keyPath;
    const std::shared_ptr<Observer> _observer;
};

} // namespace zul::ui
