// One printer interface as the bus announces it. Main queue.
#pragma once

#include "platform/usb/ServiceRegistry.h"
#include "usb/libusb/Attachment.h"

namespace zul {

class LibusbService final : public DescribedInterface<USBService> {
  public:
    LibusbService(std::shared_ptr<Attachment> attachment, const InterfaceDescriptors& descriptors)
        : DescribedInterface(attachment->device->descriptors(), descriptors), _attachment(std::move(attachment)) {}

    IOReturn createInterfaceInterface(std::shared_ptr<IOUSBInterfaceInterface>& interfaceInterface) override;
    std::string locationText() const override { return _deviceDescriptors.locationText(); }
    std::string nodePath() const override { return _deviceDescriptors.nodePath(); }
    bool isVirtual() const override { return false; }

  private:
    const std::shared_ptr<Attachment> _attachment;
};

} // namespace zul
