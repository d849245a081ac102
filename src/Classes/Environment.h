// The services that the engine uses, and the state that it keeps for the length of a run. One per program (or per
// test); everything that it refers to outlives the printers. Made and destroyed on the main queue.
#pragma once

#include "Classes/DeviceInfoStore.h"
#include "Classes/DeviceObjects.h"
#include "platform/dispatch/QueueRole.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>

namespace zul {

class AlertOutlet;
class ApplicationOutlet;
class Bundle;
class Clock;
class FirmwareArchive;
class MainQueue;
class NotificationPort;
class PrinterEventsOutlet;
class ServiceRegistry;
class UserDefaults;
struct Environment;

/// Makes an environment the current one for as long as it exists. Each environment has one as its last member, so that
/// it is registered when all other members exist.
class EnvironmentRegistration {
  public:
    /// Keeps a reference only; see Environment::current().
    explicit EnvironmentRegistration(Environment& environment);
    ~EnvironmentRegistration();
    EnvironmentRegistration(const EnvironmentRegistration&) = delete;
    EnvironmentRegistration& operator=(const EnvironmentRegistration&) = delete;

  private:
    Environment& _environment;
};

struct Environment {
    /// For operations of a class, which no object hands an environment: the one that was made last. Ends the program
    /// if there is none. Main queue.
    static Environment& current();
    /// The port that service notifications come through, made on first use. Main queue.
    std::shared_ptr<NotificationPort> sharedNotificationPort();

    MainQueue& mainQueue;
    Clock& clock;
    ServiceRegistry& registry;
    UserDefaults& userDefaults;
    Bundle& mainBundle;
    FirmwareArchive& archive;
    AlertOutlet& alerts;
    ApplicationOutlet& application;
    PrinterEventsOutlet* events = nullptr;
    /// Admitted for this run beside the product ID that every run accepts.
    std::set<std::uint16_t> admittedProductIDs = {};
    /// Runs a command line and returns its exit status; on printers' command queues. Empty: the system's shell, with
    /// its output discarded.
    std::function<int(const std::string& commandLine)> shell = {};

    // ---- kept by the engine ---------------------------------------------------------------------------------------

    /// Shared with the printers: the last of them may end on its queue after the environment.
    std::shared_ptr<DeviceObjects> deviceObjects = std::make_shared<DeviceObjects>();

    // Of the main queue.
    DeviceInfoStore deviceInfo ZUL_GUARDED_BY_ROLE(mainQueueRole) = {};
    /// Null before its first use and after the controller's end.
    std::shared_ptr<NotificationPort> notificationPort ZUL_GUARDED_BY_ROLE(mainQueueRole) = {};

    EnvironmentRegistration registration{*this};
};

} // namespace zul
