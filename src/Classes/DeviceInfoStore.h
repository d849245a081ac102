// The device information of every device of a run, by keyUSBdevice. It is how the object that a printer gets after a
// restart learns what the one before it knew. Main queue.
#pragma once

#include "Classes/DeviceInfo.h"

#include <map>
#include <string>

namespace zul {

class DeviceInfoStore {
  public:
    /// The device's dictionary, the same object at every call; an empty one is made and kept when there is none.
    DeviceInfoPtr infoForKey(const std::string& key);
    /// Keeps this very object in place of the earlier one, and logs it. Null and an immutable one are not kept.
    void setInfo(DeviceInfoPtr info, const std::string& key);

  private:
    std::map<std::string, DeviceInfoPtr> _gPrivateInstanceRegistry;
};

} // namespace zul
