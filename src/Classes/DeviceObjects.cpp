// Tokens are never reused while the process lives, so those of the objects before and after a restart differ.
#include "Classes/DeviceObjects.h"

#include <map>
#include <mutex>
#include <set>

namespace zul {

namespace {

struct Device {
    std::set<ServiceToken> attached;
    ServiceToken leader = 0;
    ServiceToken updating = 0; // 0: none

    bool isUpdatedByOtherThan(ServiceToken token) const {
        return updating != 0 && updating != token && attached.contains(updating);
    }
};

struct Devices {
    std::mutex mutex;
    std::map<std::string, Device> byKey;
};

// Never destroyed: printers' queues may outlive the end of main().
Devices& devices() {
    static auto* const all = new Devices;
    return *all;
}

} // namespace

bool DeviceObjects::add(const std::string& key, ServiceToken token) {
    const std::scoped_lock lock(devices().mutex);
    Device& device = devices().byKey[key];
    device.attached.insert(token);
    if (device.attached.size() > 1) return false;
    device.leader = token;
    device.updating = 0;
    return true;
}

void DeviceObjects::remove(const std::string& key, ServiceToken token) {
    const std::scoped_lock lock(devices().mutex);
    const auto found = devices().byKey.find(key);
    if (found != devices().byKey.end()) found->second.attached.erase(token);
}

bool DeviceObjects::isLeader(const std::string& key, ServiceToken token) {
    const std::scoped_lock lock(devices().mutex);
    const auto found = devices().byKey.find(key);
    return found == devices().byKey.end() || found->second.leader == token;
}

bool DeviceObjects::isUpdatedElsewhere(const std::string& key, ServiceToken token) {
    const std::scoped_lock lock(devices().mutex);
    const auto found = devices().byKey.find(key);
    return found != devices().byKey.end() && found->second.isUpdatedByOtherThan(token);
}

bool DeviceObjects::beginUpdate(const std::string& key, ServiceToken token) {
    const std::scoped_lock lock(devices().mutex);
    Device& device = devices().byKey[key];
    if (device.isUpdatedByOtherThan(token)) return false;
    device.leader = device.updating = token;
    return true;
}

void DeviceObjects::endUpdate(const std::string& key, ServiceToken token) {
    const std::scoped_lock lock(devices().mutex);
    const auto found = devices().byKey.find(key);
    if (found != devices().byKey.end() && found->second.updating == token) found->second.updating = 0;
}

void DeviceObjects::forget() {
    const std::scoped_lock lock(devices().mutex);
    devices().byKey.clear();
}

} // namespace zul
