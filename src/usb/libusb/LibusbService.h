// One printer interface as the bus announces it. Main queue.
#pragma once

#include "platform/usb/DescribedInterface.h"
#include "platform/usb/IOReturn.h"
#include "platform/usb/IOUSBInterfaceInterface.h"
#include "platform/usb/ServiceRegistry.h"
#include "usb/libusb/Attachment.h"
#include "usb/libusb/InterfaceDescriptors.h"

#include <memory>
#include <string>
#include <utility>

namespace zul {

class LibusbService final : public DescribedInterface<USBService> {
  public:
    /// Copies the descriptors; opens nothing.
    LibusbService(std::shared_ptr<Attachment> attachment, const InterfaceDescriptors& interface)
        : DescribedInterface(descriptorValues(attachment->device->descriptors(), interface)),
          _attachment(std::move(attachment)) {}

    IOReturn createInterfaceInterface(std::shared_ptr<IOUSBInterfaceInterface>& interfaceInterface) override;
    std::string locationText() const override { return _attachment->device->descriptors().locationText(); }
    std::string nodePath() const override { return _attachment->device->descriptors().nodePath(); }
    bool isVirtual() const override { return false; }

  private:
    const std::shared_ptr<Attachment> _attachment;
};

} // namespace zul
