// Key-value observing: an object announces each change of a named value by a will-change and a did-change notice.
// Notices of one key nest; observers receive only the outermost pair. They are called on the thread that makes the
// change, without a lock; an observer that uses widgets posts to the main queue.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace zul {

class KeyValueObservable;

class KeyValueObserver {
  public:
    virtual ~KeyValueObserver() = default;
    /// The key's value is about to change. Called on the changing thread.
    virtual void willChangeValueForKey(const std::string& /*keyPath*/, KeyValueObservable& /*object*/,
                                       void* /*context*/) {}
    /// observeValueForKeyPath:ofObject:change:context:  The key's value has changed. Called on the changing thread.
    virtual void observeValueForKeyPath(const std::string& keyPath, KeyValueObservable& object, void* context) = 0;
};

class KeyValueObservable {
  public:
    KeyValueObservable() = default;
    KeyValueObservable(const KeyValueObservable&) = delete;
    KeyValueObservable& operator=(const KeyValueObservable&) = delete;
    virtual ~KeyValueObservable() = default;

    /// Stands for every key, for observers that mirror the whole object.
    static constexpr const char* kEveryKey = "*";

    /// Holds the observer weakly. Remove it, or let it expire, before its context becomes invalid. Any thread.
    void addObserver(std::weak_ptr<KeyValueObserver> observer, const std::string& keyPath, void* context);
    /// Removes the registration with these three values. Any thread.
    void removeObserver(const std::weak_ptr<KeyValueObserver>& observer, const std::string& keyPath, void* context);

    /// The two notices of a change: each will-change is followed by its did-change on the same thread.
    void willChangeValueForKey(const std::string& key);
    void didChangeValueForKey(const std::string& key);

    /// Off by default; for development. Reports changes of observed values outside the main queue (see
    /// TBPrinters::swapImpsforPrivateAPI): called with the key at every did-change.
    using ChangeDiagnostic = void (*)(const std::string& key);
    /// Process-wide; null turns it off. Any thread.
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

/// Sends will-change in the constructor and did-change in the destructor.
class KeyChange {
  public:
    /// The object must outlive the change.
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
