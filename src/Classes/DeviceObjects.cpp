// Which object of a device leads and which carries its update. Any thread; called by the printers. Tokens are never
// reused while the process lives, so those of the objects before and after a restart differ.
#include "Classes/DeviceObjects.h"

#include "platform/usb/IOUSBInterfaceInterface.h"

#include <mutex>
#include <string>

namespace zul {

bool DeviceObjects::add(const std::string& key, ServiceToken token) {
    const std::scoped_lock lock(_mutex);
    Device& device = _devices[key];
    device.attached.insert(token);
    if (device.attached.size() > 1) return false;
    // The first object after a departure. An update that an earlier object carried is not continued by itself: the new
    // object has to claim it.
    device.leader = token;
    device.updating = 0;
    return true;
}

void DeviceObjects::remove(const std::string& key, ServiceToken token) {
    const std::scoped_lock lock(_mutex);
    const auto found = _devices.find(key);
    if (found != _devices.end()) found->second.attached.erase(token);
}

bool DeviceObjects::isLeader(const std::string& key, ServiceToken token) const {
    const std::scoped_lock lock(_mutex);
    const auto found = _devices.find(key);
    return found == _devices.end() || found->second.leader == token;
}

bool DeviceObjects::isUpdatedElsewhere(const std::string& key, ServiceToken token) const {
    const std::scoped_lock lock(_mutex);
    const auto found = _devices.find(key);
    return found != _devices.end() && found->second.isUpdatedByOtherThan(token);
}

bool DeviceObjects::beginUpdate(const std::string& key, ServiceToken token) {
    const std::scoped_lock lock(_mutex);
    Device& device = _devices[key];
    if (device.isUpdatedByOtherThan(token)) return false;
    device.leader = device.updating = token;
    return true;
}

void DeviceObjects::endUpdate(const std::string& key, ServiceToken token) {
    const std::scoped_lock lock(_mutex);
    const auto found = _devices.find(key);
    if (found != _devices.end() && found->second.updating == token) found->second.updating = 0;
}

} // namespace zul
