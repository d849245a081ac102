// The printer objects of each device of a run. A device with several printer interfaces has one object for each of
// them, all with one key; only one of them may carry an update. Printers call this, on whatever queue they are: one
// lock, any thread.
#pragma once

#include "platform/usb/IOUSBInterfaceInterface.h"

#include <map>
#include <mutex>
#include <set>
#include <string>

namespace zul {

class DeviceObjects {
  public:
    /// An object was made for a service (token) of the device with this key. True if no other object of the device is
    /// attached: then it is the leader, which continues the device's update and whose dictionary is kept for it.
    bool add(const std::string& key, ServiceToken token);
    /// The object's service has left. It remains the leader until another object is.
    void remove(const std::string& key, ServiceToken token);
    /// True for the leader, and for an object that was never added.
    bool isLeader(const std::string& key, ServiceToken token) const;
    /// Whether another attached object of the device carries an update.
    bool isUpdatedElsewhere(const std::string& key, ServiceToken token) const;
    /// The object begins to carry the device's update and becomes the leader. False, and without effect, while another
    /// attached object carries one.
    [[nodiscard]] bool beginUpdate(const std::string& key, ServiceToken token);
    /// The object no longer carries the device's update; no effect if it does not.
    void endUpdate(const std::string& key, ServiceToken token);

  private:
    struct Device {
        std::set<ServiceToken> attached;
        ServiceToken leader = 0;
        ServiceToken updating = 0; // 0: none

        // The update of an object that has left blocks no other one: its successor has to continue it.
        bool isUpdatedByOtherThan(ServiceToken token) const {
            return updating != 0 && updating != token && attached.contains(updating);
        }
    };

    mutable std::mutex _mutex;
    std::map<std::string, Device> _devices; // by key
};

} // namespace zul
