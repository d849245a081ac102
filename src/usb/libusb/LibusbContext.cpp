// Beginning and ending libusb sessions, and counting the references to their devices. Any thread; called by the
// sources, and by whatever keeps a device.
#include "usb/libusb/LibusbContext.h"

#include "platform/usb/IOReturn.h"
#include "usb/libusb/LibusbResult.h"

#include <atomic>
#include <libusb.h>
#include <memory>

namespace zul {

namespace {
std::atomic<int> liveContexts{0};
}

LibusbContext::LibusbContext(libusb_context* context) : _context(context) {
    ++liveContexts;
}

int LibusbContext::live() {
    return liveContexts;
}

IOReturn LibusbContext::create(std::shared_ptr<LibusbContext>& context) {
    context = nullptr;
    libusb_context* made = nullptr;
    if (const int result = libusb_init(&made); result != 0) return ioReturnFromLibusb(result);
    context.reset(new LibusbContext(made));
    return kIOReturnSuccess;
}

LibusbContext::~LibusbContext() {
    libusb_exit(_context);
    --liveContexts;
}

DeviceReference::DeviceReference(libusb_device* device) : _device(libusb_ref_device(device)) {}

DeviceReference::~DeviceReference() {
    if (_device != nullptr) libusb_unref_device(_device);
}

} // namespace zul
