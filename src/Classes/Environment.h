// What the engine is given to live in. One per program (or per test); everything in it outlives the printers.
#pragma once

#include <cstdint>
#include <set>

namespace zul {

class AlertOutlet;
class ApplicationOutlet;
class Bundle;
class Clock;
class FirmwareArchive;
class MainQueue;
class PrinterEventsOutlet;
class ServiceRegistry;
class UserDefaults;

struct Environment {
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
};

} // namespace zul
