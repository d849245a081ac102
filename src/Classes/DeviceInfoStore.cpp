// Keeps the dictionaries of the devices of a run. Main queue; the printers call this when they are made and when they
// leave, the static operations of TBUSBPrinter for all other callers.
#include "Classes/DeviceInfoStore.h"

#include "Classes/DeviceInfo.h"
#include "Classes/TBUSBPrinter.h"
#include "platform/foundation/Format.h"

#include <cassert>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace zul {

DeviceInfoPtr DeviceInfoStore::infoForKey(const std::string& key) {
    assert(TBUSBPrinter::isMainQueue());
    DeviceInfoPtr& info = _gPrivateInstanceRegistry[key];
    if (!info) info = std::make_shared<DeviceInfo>();
    return info;
}

void DeviceInfoStore::setInfo(DeviceInfoPtr info, const std::string& key) {
    assert(TBUSBPrinter::isMainQueue());
    const auto description = info ? std::optional(info->description()) : std::nullopt;
    logText("%s:[%s] : %s", "+[TBUSBPrinter setDeviceInfo:forKey:]", key, textOrNull(description));
    // An immutable one is refused, because callers of infoForKey() may store values in what they get.
    if (info && info->isMutable()) _gPrivateInstanceRegistry[key] = std::move(info);
}

} // namespace zul
