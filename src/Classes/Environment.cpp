// The current environment and the port of its service notifications. Main queue; the controller and the printers call
// this.
#include "Classes/Environment.h"

#include "platform/dispatch/Queue.h"
#include "platform/dispatch/QueueRole.h"
#include "platform/foundation/Format.h"
#include "platform/usb/ServiceRegistry.h"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

namespace zul {

namespace {

// In the order in which they were made. Programs have one; a test may make one while another ends.
std::vector<Environment*>& environments() ZUL_REQUIRES_ROLE(mainQueueRole);
std::vector<Environment*>& environments() {
    // Never destroyed: an environment with static lifetime may end after it.
    static auto* const all = new std::vector<Environment*>;
    return *all;
}

} // namespace

EnvironmentRegistration::EnvironmentRegistration(Environment& environment) : _environment(environment) {
    assertOnMainQueue();
    environments().push_back(&environment);
}

EnvironmentRegistration::~EnvironmentRegistration() {
    assertOnMainQueue();
    std::erase(environments(), &_environment);
}

Environment& Environment::current() {
    assertOnMainQueue();
    if (environments().empty()) {
        std::fprintf(stderr, "an operation of the engine needs an environment, and there is none\n");
        std::abort();
    }
    return *environments().back();
}

std::shared_ptr<NotificationPort> Environment::sharedNotificationPort() {
    assertOnMainQueue();
    if (notificationPort) return notificationPort;
    notificationPort = std::make_shared<NotificationPort>(registry);
    if (mainQueue.eventDescriptor() < 0) logText("failed to add a runloop source for device notifications\n");
    return notificationPort;
}

} // namespace zul
