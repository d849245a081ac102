// Observing: an object announces every change of a named value between a will-change and a did-change notice. Notices
// nest per key by counting: observers receive the outermost pair only. Notices are sent on the thread that makes the
// change, with no lock held; an observer that touches widgets posts to the main queue.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace zul {

class KeyValueObservable;

class KeyValueObserver {
  public:
    virtual ~KeyValueObserver() = default;
    /// The key's value is about to change. On the changing thread.
    virtual void willChangeValueForKey(const std::string& /*keyPath*/, KeyValueObservable& /*object*/,
                                       void* /*context*/) {}
    /// observeValueForKeyPath:ofObject:change:context:  The key's value has changed. On the changing thread.
    virtual void observeValueForKeyPath(const std::string& keyPath, KeyValueObservable& object, void* context) = 0;
};

class KeyValueObservable {
  public:
    KeyValueObservable() = default;
    KeyValueObservable(const KeyValueObservable&) = delete;
    KeyValueObservable& operator=(const KeyValueObservable&) = delete;
    virtual ~KeyValueObservable() = default;

    /// Every key, for observers that mirror the whole object.
    static constexpr const char* kEveryKey = "*";

    /// The observer is held weakly and must be removed (or gone) before it is destroyed elsewhere. Any thread.
    void addObserver(std::weak_ptr<KeyValueObserver> observer, const std::string& keyPath, void* context);
    void removeObserver(const std::weak_ptr<KeyValueObserver>& observer, const std::string& keyPath, void* context);

    /// The notices of one change; each will-change is followed by its did-change on the same thread.
    void willChangeValueForKey(const std::string& key);
    void didChangeValueForKey(const std::string& key);

    /// A switch for development, off by default: reports changes of observed values that are made off the main
    /// queue (see TBPrinters::swapImpsforPrivateAPI). Called with the key at every did-change.
    using ChangeDiagnostic = void (*)(const std::string& key);
    static void setChangeDiagnostic(ChangeDiagnostic diagnostic);

  private:
    struct Registration {
        std::weak_ptr<KeyValueObserver> observer;
        std::string keyPath;
        void* context;
    };
    std::vector<Registration> registrationsFor(const std::string& key);

    std::mutex _observingMutex;
    std::vector<Registration> _registrations;
    std::map<std::string, int> _openChanges;
};

/// The pair of notices as a scope: will-change now, did-change at the end, whatever happens between.
class KeyChange {
  public:
    KeyChange(KeyValueObservable& object, std::string key) : _object(object), _key(std::move(key)) {
        _object.willChangeValueForKey(_key);
    }
    ~KeyChange() { _object.didChangeValueForKey(_key); }
    KeyChange(const KeyChange&) = delete;
    KeyChange& operator=(const KeyChange&) = delete;

  private:
    KeyValueObservable& _object;
    const std::string _key;
};

} // namespace zul
