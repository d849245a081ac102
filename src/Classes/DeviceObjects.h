// The printer objects of each device. A device with several printer interfaces has one object for each of them, all
// with one key; only one of them may carry an update. Printers call this, on whatever queue they are. Any thread.
#pragma once

#include "platform/usb/IOUSBInterfaceInterface.h"

#include <string>

namespace zul {

class DeviceObjects {
  public:
    /// An object was made for a service (token) of the device with this key. True if no other object of the device is
    /// attached: then it is the leader, which continues the device's update and whose dictionary is kept for it.
    static bool add(const std::string& key, ServiceToken token);
    /// The object's service has left. It remains the leader until another object is.
    static void remove(const std::string& key, ServiceToken token);
    /// True for the leader, and for an object that was never added.
    static bool isLeader(const std::string& key, ServiceToken token);
    /// Whether another attached object of the device carries an update.
    static bool isUpdatedElsewhere(const std::string& key, ServiceToken token);
    /// The object begins to carry the device's update and becomes the leader. False, and without effect, while another
    /// attached object carries one.
    [[nodiscard]] static bool beginUpdate(const std::string& key, ServiceToken token);
    static void endUpdate(const std::string& key, ServiceToken token);
    /// Forgets every device; for tests that begin afresh.
    static void forget();
};

} // namespace zul
