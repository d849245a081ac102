// The engine's view of the bus: services (one per USB interface), and the notification port that delivers their
// arrival, departure and messages. A bus fills the registry. Main queue only, unless noted.
#pragma once

#include "platform/usb/IOReturn.h"
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

/// One USB interface on a bus, not opened yet.
class USBService : public IOUSBInterfaceDescription {
  public:
    /// Opens the device node and creates a handle. kIOReturnNotPrivileged if the user may not open the node.
    virtual IOReturn createInterfaceInterface(std::shared_ptr<IOUSBInterfaceInterface>& interfaceInterface) = 0;

    /// The port in the kernel's notation, for example "1-2.4"; for messages.
    virtual std::string locationText() const = 0;
    /// The device node, for example "/dev/bus/usb/001/004"; empty if the bus has none.
    virtual std::string nodePath() const = 0;
    /// True for an embedded printer, which exists in this process only.
    virtual bool isVirtual() const = 0;
};

/// Arrivals, or departures.
enum class ServiceNotification { matched, terminated };

/// The services that a notification has not returned yet, in bus order. The notification is armed when next() has
/// returned 0. Main queue.
class ServiceIterator {
  public:
    /// The next service's token; 0 at the end, which arms the notification. Services that arrive between two calls are
    /// appended, so an iterator is always valid.
    ServiceToken next();

  private:
    friend class NotificationPort;
    std::list<ServiceToken> _pending;
    bool _armed = false;
};

/// Selects the interfaces of a notification.
struct ServiceMatching {
    std::string className = "IOUSBInterface";
    std::int32_t bInterfaceClass = 0;
    std::int32_t bInterfaceSubClass = 0;
};

class ServiceRegistry;

/// Which contexts receive the messages of which service. Separate from the port, because printers register and
/// unregister on their own queues, possibly while the port is being destroyed on the main queue. Any thread.
class InterestTable {
  public:
    using Callback = std::function<void(ServiceToken service, IOMessage message, void* argument)>;

    /// Registers for messages of one service. A context registered twice for a service receives each message once.
    /// Returns an id for remove(), never 0. Callbacks run on the main queue.
    std::uint32_t add(ServiceToken service, const void* context, Callback callback);
    /// False if there is no such registration. A message that is being delivered may still arrive.
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

    /// Registers with the registry, which must outlive the port.
    explicit NotificationPort(ServiceRegistry& registry);
    ~NotificationPort();
    NotificationPort(const NotificationPort&) = delete;
    NotificationPort& operator=(const NotificationPort&) = delete;

    /// Registers for arrivals or departures. The returned iterator already holds the matching services (none for
    /// departures) and must be drained to arm the notification.
    std::shared_ptr<ServiceIterator> addMatchingNotification(ServiceNotification kind, const ServiceMatching& matching,
                                                             MatchCallback callback);

    /// The receivers of messages of single services. The table may briefly outlive the port; it then delivers no
    /// messages.
    const std::shared_ptr<InterestTable>& interests() const { return _interests; }

    /// The registry whose services it announces.
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

/// All services of all buses, by token. A bus adds and removes them; the ports are notified. Main queue.
class ServiceRegistry {
  public:
    /// For the bus: registers a new interface under the returned token, without notifying the ports. Add all interfaces
    /// of a device before announcing the first, because a callback may remove them all.
    ServiceToken add(std::shared_ptr<USBService> service);
    /// For the bus: notifies the ports of an added service. Unknown tokens are ignored.
    void announce(ServiceToken token);
    /// add() and announce(), for a device with one interface.
    ServiceToken serviceArrived(std::shared_ptr<USBService> service);
    /// For the bus: the interface was detached. Interested contexts receive "terminated" first, then the removal
    /// notifications run, then the token is unknown. A service that was not announced is removed without notice.
    /// Unknown tokens are ignored.
    void serviceTerminated(ServiceToken token);
    /// For the bus: delivers any other message about a service.
    void serviceMessage(ServiceToken token, IOMessage message, void* argument);

    /// Null if the token is not, or no longer, on the bus.
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
    ServiceToken _nextToken = 0x101; // a recognisable first value in log lines; incremented, never reused
};

/// A source of services. start() announces the attached devices that are ready before it returns, and later ones as
/// they become ready or are attached, always on the main queue. stop() ends that without waiting.
class USBBus {
  public:
    virtual ~USBBus() = default;
    /// Main queue. kIOReturnSuccess, or why the bus cannot be watched.
    virtual IOReturn start(ServiceRegistry& registry) = 0;
    /// Main queue. No service is announced or removed afterwards. May be called twice.
    virtual void stop() = 0;
};

} // namespace zul
