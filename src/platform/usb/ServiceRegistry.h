// What is on the bus, as the engine sees it: services (one per USB interface), and the notification port through which
// their arrival, departure and messages reach the engine. A bus feeds the registry; everything here is main queue only.
#pragma once

#include "platform/usb/IOUSBInterfaceInterface.h"

#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace zul {

/// One USB interface on a bus, before anything of it is opened.
class USBService : public IOUSBInterfaceDescription {
  public:
    /// Opens the device node and makes a handle. kIOReturnNotPrivileged when the node may not be opened.
    virtual IOReturn createInterfaceInterface(std::shared_ptr<IOUSBInterfaceInterface>& interfaceInterface) = 0;

    /// The port in the system's notation, for example "1-2.4"; for messages to people.
    virtual std::string locationText() const = 0;
    /// The device node, for example "/dev/bus/usb/001/004"; empty when the bus has none.
    virtual std::string nodePath() const = 0;
    /// True for an embedded printer, which exists in this process only.
    virtual bool isVirtual() const = 0;
};

enum class ServiceNotification { matched, terminated };

/// The services that a notification has not handed out yet, in bus order. Must be drained to arm its notification. Main
/// queue.
class ServiceIterator {
  public:
    /// The next service's token; 0 at the end, and from then on the notification is armed. What arrives between two
    /// calls is added at the end, so an iterator is valid at all times.
    ServiceToken next();

  private:
    friend class NotificationPort;
    std::list<ServiceToken> _pending;
    bool _armed = false;
};

/// Which interfaces a notification is about.
struct ServiceMatching {
    std::string className = "IOUSBInterface";
    std::int32_t bInterfaceClass = 0;
    std::int32_t bInterfaceSubClass = 0;
};

class ServiceRegistry;

/// Which contexts receive the messages of which service. Apart from the port, because printers register and withdraw on
/// their own queues, and the last of them may do so while the port is destroyed on the main queue. Any thread.
class InterestTable {
  public:
    using Callback = std::function<void(ServiceToken service, IOMessage message, void* argument)>;

    /// Registers for messages of one service. A context that is registered twice for a service receives each message
    /// once. Returns an id for remove, never 0. The callbacks run on the main queue.
    std::uint32_t add(ServiceToken service, const void* context, Callback callback);
    /// False when there is no such registration. A message being delivered may still arrive.
    bool remove(std::uint32_t interest);
    /// Delivers a message to every context registered for the service.
    void deliver(ServiceToken service, IOMessage message, void* argument);

  private:
    struct Interest {
        std::uint32_t id;
        ServiceToken service;
        const void* context;
        Callback callback;
    };
    std::mutex _mutex;
    std::vector<Interest> _interests;
    std::uint32_t _nextInterest = 1;
};

/// Delivers the registry's events on the main queue until it is destroyed.
class NotificationPort {
  public:
    using MatchCallback = std::function<void(ServiceIterator& iterator)>;

    explicit NotificationPort(ServiceRegistry& registry);
    ~NotificationPort();
    NotificationPort(const NotificationPort&) = delete;
    NotificationPort& operator=(const NotificationPort&) = delete;

    /// Registers for arrivals or departures. The returned iterator already holds the matching services (for
    /// departures: none) and must be drained to arm the notification.
    std::shared_ptr<ServiceIterator> addMatchingNotification(ServiceNotification kind, const ServiceMatching& matching,
                                                             MatchCallback callback);

    /// The receivers of messages of single services. The table may outlive the port by a moment; it then delivers no
    /// more messages.
    const std::shared_ptr<InterestTable>& interests() const { return _interests; }

    ServiceRegistry& registry() { return _registry; }

  private:
    friend class ServiceRegistry;
    struct Match {
        ServiceNotification kind;
        ServiceMatching matching;
        MatchCallback callback;
        std::shared_ptr<ServiceIterator> iterator;
    };
    void announce(ServiceNotification kind, ServiceToken token, USBService& service);

    ServiceRegistry& _registry;
    std::vector<std::shared_ptr<Match>> _matches;
    const std::shared_ptr<InterestTable> _interests = std::make_shared<InterestTable>();
};

/// Every service of every bus, by token. A bus adds and withdraws them; ports are notified. Main queue.
class ServiceRegistry {
  public:
    /// For the bus: a new interface is there and has this token from now on, but no port is notified before announce().
    /// A device's interfaces are all added before the first is announced, because what is announced may end them all.
    ServiceToken add(std::shared_ptr<USBService> service);
    /// For the bus: notifies the ports of a service that was added. Unknown tokens are ignored.
    void announce(ServiceToken token);
    /// Both at once, for a device with one interface.
    ServiceToken serviceArrived(std::shared_ptr<USBService> service);
    /// For the bus: the interface has left. Interested contexts receive "terminated" first, then the removal
    /// notifications run; afterwards the token is unknown. A service that was not announced leaves without notice.
    /// Unknown tokens are ignored.
    void serviceTerminated(ServiceToken token);
    /// For the bus: any other message about a service.
    void serviceMessage(ServiceToken token, IOMessage message, void* argument);

    /// Null when the token is not on the bus (any more).
    std::shared_ptr<USBService> service(ServiceToken token) const;
    /// The tokens of the announced services, in bus order.
    std::vector<ServiceToken> services() const;

  private:
    friend class NotificationPort;
    struct Entry {
        std::shared_ptr<USBService> service;
        bool isAnnounced = false;
    };
    std::map<ServiceToken, Entry> _services;
    std::vector<NotificationPort*> _ports;
    ServiceToken _nextToken = 0x101; // a recognisable first value in log lines; counts up, never reused
};

/// A source of services. start() reports what is attached before it returns, but for devices that are not ready yet,
/// and reports from then on, always on the main queue; stop() ends that without waiting.
class USBBus {
  public:
    virtual ~USBBus() = default;
    /// Main queue. kIOReturnSuccess, or why the bus cannot be watched.
    virtual IOReturn start(ServiceRegistry& registry) = 0;
    /// Main queue. No service is announced or withdrawn afterwards. Safe to call twice.
    virtual void stop() = 0;
};

} // namespace zul
