// Which notices of a change are sent, and to which observers.
#include "platform/foundation/KeyValueObserving.h"

#include <doctest/doctest.h>
#include <functional>

using namespace zul;

namespace {

struct Witness : KeyValueObserver {
    void willChangeValueForKey(const std::string& keyPath, KeyValueObservable&, void*) override {
        notices.push_back("will " + keyPath);
    }
    void observeValueForKeyPath(const std::string& keyPath, KeyValueObservable& object, void* context) override {
        notices.push_back("did " + keyPath);
        lastObject = &object;
        lastContext = context;
        if (whenTold) whenTold();
    }
    std::vector<std::string> notices;
    KeyValueObservable* lastObject = nullptr;
    void* lastContext = nullptr;
    std::function<void()> whenTold;
};

std::vector<std::string> changedKeys; // set by the diagnostic, which is a plain function

} // namespace

TEST_CASE("an observer receives will-change and did-change of its key with object and context") {
    KeyValueObservable object;
    const auto witness = std::make_shared<Witness>();
    int context = 0;
    object.addObserver(witness, "status", &context);
    { const KeyChange change(object, "status"); }
    { const KeyChange change(object, "model"); }
    CHECK(witness->notices == std::vector<std::string>{"will status", "did status"});
    CHECK(witness->lastObject == &object);
    CHECK(witness->lastContext == &context);
}

TEST_CASE("nested changes of one key are reported once, at the outermost pair") {
    KeyValueObservable object;
    const auto witness = std::make_shared<Witness>();
    object.addObserver(witness, "status", nullptr);
    {
        const KeyChange outer(object, "status");
        { const KeyChange inner(object, "status"); }
        CHECK(witness->notices == std::vector<std::string>{"will status"});
    }
    CHECK(witness->notices == std::vector<std::string>{"will status", "did status"});
}

TEST_CASE("changes of different keys nest without hiding each other") {
    KeyValueObservable object;
    const auto witness = std::make_shared<Witness>();
    object.addObserver(witness, KeyValueObservable::kEveryKey, nullptr);
    {
        const KeyChange outer(object, "a");
        const KeyChange inner(object, "b");
    }
    CHECK(witness->notices == std::vector<std::string>{"will a", "will b", "did b", "did a"});
}

TEST_CASE("a did-change without a will-change is not reported") {
    KeyValueObservable object;
    const auto witness = std::make_shared<Witness>();
    object.addObserver(witness, "status", nullptr);
    object.didChangeValueForKey("status");
    CHECK(witness->notices.empty());
}

TEST_CASE("an observer is removed for its key and context only") {
    KeyValueObservable object;
    const auto witness = std::make_shared<Witness>();
    int one = 0;
    int two = 0;
    object.addObserver(witness, "status", &one);
    object.addObserver(witness, "status", &two);
    object.removeObserver(witness, "status", &one);
    object.removeObserver(witness, "model", &two);
    { const KeyChange change(object, "status"); }
    CHECK(witness->notices == std::vector<std::string>{"will status", "did status"});
    CHECK(witness->lastContext == &two);
}

TEST_CASE("an observer that no longer exists is not notified") {
    KeyValueObservable object;
    auto witness = std::make_shared<Witness>();
    const auto other = std::make_shared<Witness>();
    object.addObserver(witness, "status", nullptr);
    object.addObserver(other, "status", nullptr);
    witness.reset();
    { const KeyChange change(object, "status"); }
    CHECK(other->notices.size() == 2);
}

TEST_CASE("an observer may change another key and remove itself while it is notified") {
    KeyValueObservable object;
    const auto witness = std::make_shared<Witness>();
    object.addObserver(witness, "status", nullptr);
    witness->whenTold = [&] {
        object.removeObserver(witness, "status", nullptr);
        const KeyChange change(object, "model");
    };
    { const KeyChange change(object, "status"); }
    { const KeyChange change(object, "status"); }
    CHECK(witness->notices == std::vector<std::string>{"will status", "did status"});
}

TEST_CASE("the change diagnostic is called at every did-change while it is set") {
    KeyValueObservable object;
    KeyValueObservable::setChangeDiagnostic([](const std::string& key) { changedKeys.push_back(key); });
    { const KeyChange change(object, "status"); }
    KeyValueObservable::setChangeDiagnostic(nullptr);
    { const KeyChange change(object, "model"); }
    CHECK(changedKeys == std::vector<std::string>{"status"});
}
