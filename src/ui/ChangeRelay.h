// Change notices for widgets: notices come on any thread, widgets live on the GUI thread, which is the main queue's.
#pragma once

#include "platform/dispatch/Queue.h"
#include "platform/foundation/KeyValueObserving.h"

#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace zul::ui {

/// Observes one key of one object for as long as it lives. A notice sent on the main queue is handed on at once, any
/// other is posted there. Made and destroyed on the GUI thread; changed is never called afterwards.
class ChangeRelay {
  public:
    using Changed = std::function<void(const std::string& keyPath)>;

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
