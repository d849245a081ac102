// The registry of services and its notification ports.
#include "platform/usb/ServiceRegistry.h"
#include "support/ScriptedInterface.h"

#include <doctest/doctest.h>

using namespace zul;

namespace {

// A registry with one port, and a list of all its notifications.
struct RegistryLab {
    ServiceRegistry registry;
    NotificationPort port{registry};
    std::vector<std::string> notices;
    const ServiceMatching printers{.bInterfaceClass = 7, .bInterfaceSubClass = 1};

    static std::shared_ptr<ScriptedService> service(std::uint8_t interfaceClass = 7) {
        const auto scripted = std::make_shared<ScriptedInterface>();
        scripted->interfaceClass = interfaceClass;
        return std::make_shared<ScriptedService>(scripted);
    }
    static std::vector<ServiceToken> drain(ServiceIterator& iterator) {
        std::vector<ServiceToken> tokens;
        while (const ServiceToken token = iterator.next()) tokens.push_back(token);
        return tokens;
    }
    std::shared_ptr<ServiceIterator> watch(ServiceNotification kind, const std::string& name) {
        return port.addMatchingNotification(kind, printers, [this, name](ServiceIterator& iterator) {
            for (const ServiceToken token : drain(iterator)) notices.push_back(name + ' ' + std::to_string(token));
        });
    }
    std::uint32_t listen(ServiceToken token, const void* context, const std::string& name) {
        return port.interests()->add(token, context, [this, name](ServiceToken service, IOMessage message, void*) {
            notices.push_back(name + ' ' + std::to_string(service) +
                              (message == kIOMessageServiceIsTerminated ? " terminated" : " message"));
        });
    }
};

} // namespace

TEST_CASE("tokens are incremented and never used again") {
    RegistryLab lab;
    const ServiceToken first = lab.registry.serviceArrived(RegistryLab::service());
    lab.registry.serviceTerminated(first);
    const ServiceToken second = lab.registry.serviceArrived(RegistryLab::service());
    CHECK(first != 0);
    CHECK(second > first);
    CHECK(lab.registry.service(first) == nullptr);
    CHECK(lab.registry.service(second) != nullptr);
    CHECK(lab.registry.services() == std::vector{second});
}

TEST_CASE("a registration for arrivals starts with the matching services") {
    RegistryLab lab;
    const ServiceToken printer = lab.registry.serviceArrived(RegistryLab::service());
    lab.registry.serviceArrived(RegistryLab::service(/*interfaceClass=*/3));
    const auto iterator = lab.watch(ServiceNotification::matched, "arrived");
    CHECK(RegistryLab::drain(*iterator) == std::vector{printer});
    CHECK(lab.notices.empty());
}

TEST_CASE("an added service is known but neither listed nor returned before it is announced") {
    RegistryLab lab;
    const auto early = lab.watch(ServiceNotification::matched, "arrived");
    RegistryLab::drain(*early);
    const ServiceToken token = lab.registry.add(RegistryLab::service());
    CHECK(lab.registry.service(token) != nullptr);
    CHECK(lab.registry.services().empty());
    CHECK(RegistryLab::drain(*lab.watch(ServiceNotification::matched, "late")).empty());
    CHECK(lab.notices.empty());
    lab.registry.announce(token);
    CHECK(lab.registry.services() == std::vector{token});
    CHECK(lab.notices.size() == 2);
    lab.registry.announce(token + 1); // unknown
    CHECK(lab.notices.size() == 2);
}

TEST_CASE("a service that is removed before it was announced is removed silently") {
    RegistryLab lab;
    RegistryLab::drain(*lab.watch(ServiceNotification::matched, "arrived"));
    RegistryLab::drain(*lab.watch(ServiceNotification::terminated, "left"));
    const ServiceToken token = lab.registry.add(RegistryLab::service());
    lab.registry.serviceTerminated(token);
    lab.registry.announce(token);
    CHECK(lab.notices.empty());
    CHECK(lab.registry.service(token) == nullptr);
}

TEST_CASE("a registration for departures starts with no service") {
    RegistryLab lab;
    lab.registry.serviceArrived(RegistryLab::service());
    const auto iterator = lab.watch(ServiceNotification::terminated, "left");
    CHECK(RegistryLab::drain(*iterator).empty());
}

TEST_CASE("draining its iterator arms a notification, and services that arrive meanwhile are appended to it") {
    RegistryLab lab;
    const auto iterator = lab.watch(ServiceNotification::matched, "arrived");
    const ServiceToken first = lab.registry.serviceArrived(RegistryLab::service());
    CHECK(lab.notices.empty());
    CHECK(RegistryLab::drain(*iterator) == std::vector{first});
    const ServiceToken second = lab.registry.serviceArrived(RegistryLab::service());
    CHECK(lab.notices == std::vector<std::string>{"arrived " + std::to_string(second)});
}

TEST_CASE("a callback that does not drain its iterator is not called again") {
    RegistryLab lab;
    int calls = 0;
    const auto iterator = lab.port.addMatchingNotification(ServiceNotification::matched, lab.printers,
                                                           [&](ServiceIterator&) { ++calls; });
    RegistryLab::drain(*iterator);
    const ServiceToken first = lab.registry.serviceArrived(RegistryLab::service());
    const ServiceToken second = lab.registry.serviceArrived(RegistryLab::service());
    CHECK(calls == 1);
    CHECK(RegistryLab::drain(*iterator) == std::vector{first, second});
}

TEST_CASE("services of another class are not announced") {
    RegistryLab lab;
    RegistryLab::drain(*lab.watch(ServiceNotification::matched, "arrived"));
    RegistryLab::drain(*lab.watch(ServiceNotification::terminated, "left"));
    const ServiceToken keyboard = lab.registry.serviceArrived(RegistryLab::service(/*interfaceClass=*/3));
    lab.registry.serviceTerminated(keyboard);
    CHECK(lab.notices.empty());
}

TEST_CASE(
    "interested contexts receive the termination before the removal is announced, both while the token is known") {
    RegistryLab lab;
    RegistryLab::drain(*lab.watch(ServiceNotification::terminated, "left"));
    const ServiceToken token = lab.registry.serviceArrived(RegistryLab::service());
    int context = 0;
    bool known = false;
    lab.listen(token, &context, "heard");
    lab.port.interests()->add(token, &known, [&](ServiceToken service, IOMessage, void*) {
        known = lab.registry.service(service) != nullptr;
    });
    lab.registry.serviceTerminated(token);
    const std::string number = std::to_string(token);
    CHECK(lab.notices == std::vector<std::string>{"heard " + number + " terminated", "left " + number});
    CHECK(known);
    CHECK(lab.registry.service(token) == nullptr);
}

TEST_CASE("a service that returns is announced after its departure was") {
    RegistryLab lab;
    RegistryLab::drain(*lab.watch(ServiceNotification::matched, "arrived"));
    RegistryLab::drain(*lab.watch(ServiceNotification::terminated, "left"));
    const auto printer = RegistryLab::service();
    const ServiceToken before = lab.registry.serviceArrived(printer);
    lab.registry.serviceTerminated(before);
    const ServiceToken after = lab.registry.serviceArrived(printer);
    CHECK(lab.notices == std::vector<std::string>{"arrived " + std::to_string(before), "left " + std::to_string(before),
                                                  "arrived " + std::to_string(after)});
}

TEST_CASE("a context registered twice for a service receives each message once, two contexts receive it each") {
    RegistryLab lab;
    const ServiceToken token = lab.registry.serviceArrived(RegistryLab::service());
    int one = 0;
    int two = 0;
    lab.listen(token, &one, "one");
    lab.listen(token, &one, "one again");
    lab.listen(token, &two, "two");
    lab.registry.serviceMessage(token, kIOMessageServiceWasClosed, nullptr);
    const std::string number = std::to_string(token);
    CHECK(lab.notices == std::vector<std::string>{"one " + number + " message", "two " + number + " message"});
}

TEST_CASE("a removed interest receives no message, and removing it twice returns false") {
    RegistryLab lab;
    const ServiceToken token = lab.registry.serviceArrived(RegistryLab::service());
    int context = 0;
    const auto interest = lab.listen(token, &context, "heard");
    CHECK(interest != 0);
    CHECK(lab.port.interests()->remove(interest));
    CHECK_FALSE(lab.port.interests()->remove(interest));
    lab.registry.serviceMessage(token, kIOMessageServiceWasClosed, nullptr);
    CHECK(lab.notices.empty());
}

TEST_CASE("messages are delivered with their argument to their own service's contexts only") {
    RegistryLab lab;
    const ServiceToken one = lab.registry.serviceArrived(RegistryLab::service());
    const ServiceToken two = lab.registry.serviceArrived(RegistryLab::service());
    int argument = 0;
    const void* received = nullptr;
    int context = 0;
    lab.port.interests()->add(one, &context, [&](ServiceToken, IOMessage, void* given) { received = given; });
    lab.listen(two, &context, "two");
    lab.registry.serviceMessage(one, kIOMessageServiceBusyStateChange, &argument);
    CHECK(received == &argument);
    CHECK(lab.notices.empty());
}

TEST_CASE("the termination of an unknown service is ignored") {
    RegistryLab lab;
    RegistryLab::drain(*lab.watch(ServiceNotification::terminated, "left"));
    const ServiceToken token = lab.registry.serviceArrived(RegistryLab::service());
    lab.registry.serviceTerminated(token + 1);
    lab.registry.serviceTerminated(token);
    lab.registry.serviceTerminated(token);
    CHECK(lab.notices == std::vector<std::string>{"left " + std::to_string(token)});
}

TEST_CASE("a destroyed port is not notified, not even when a callback of the same event destroyed it") {
    ServiceRegistry registry;
    NotificationPort first(registry);
    auto second = std::make_unique<NotificationPort>(registry);
    int secondCalls = 0;
    const auto firstIterator = first.addMatchingNotification(ServiceNotification::matched, {"", 7, 1},
                                                             [&](ServiceIterator&) { second.reset(); });
    const auto secondIterator = second->addMatchingNotification(ServiceNotification::matched, {"", 7, 1},
                                                                [&](ServiceIterator&) { ++secondCalls; });
    RegistryLab::drain(*firstIterator);
    RegistryLab::drain(*secondIterator);
    registry.serviceArrived(RegistryLab::service());
    CHECK(second == nullptr);
    CHECK(secondCalls == 0);
}

TEST_CASE("an interest may be removed by its last owner after its port was destroyed") {
    ServiceRegistry registry;
    auto port = std::make_unique<NotificationPort>(registry);
    const ServiceToken token = registry.serviceArrived(RegistryLab::service());
    const auto interests = port->interests();
    int context = 0;
    int calls = 0;
    const auto interest = interests->add(token, &context, [&](ServiceToken, IOMessage, void*) { ++calls; });
    port.reset();
    registry.serviceMessage(token, kIOMessageServiceWasClosed, nullptr);
    CHECK(calls == 0);
    CHECK(interests->remove(interest));
}
