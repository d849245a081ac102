// Owners of libusb's objects. The context lives as long as anything made from it; its end is the last owner's.
#pragma once

#include "platform/usb/IOReturn.h"

#include <memory>
#include <utility>
#include <vector>

struct libusb_context;
struct libusb_device;

namespace zul {

/// One libusb session. It ends with its last reference, on the thread that drops it; never inside a hot-plug
/// callback, which holds no reference.
class LibusbContext {
  public:
    /// Begins a session; context is null on failure. Any thread.
    static IOReturn create(std::shared_ptr<LibusbContext>& context);
    ~LibusbContext();
    LibusbContext(const LibusbContext&) = delete;
    LibusbContext& operator=(const LibusbContext&) = delete;

    /// Sessions in the whole process. Any thread.
    static int live();
    libusb_context* get() const { return _context; }
    /// Keeps what callbacks were given until the session has ended: a callback may still run on some thread after it
    /// was deregistered. Before the first callback only.
    void keep(std::shared_ptr<void> argument) { _kept.push_back(std::move(argument)); }

  private:
    explicit LibusbContext(libusb_context* context);
    libusb_context* _context;
    std::vector<std::shared_ptr<void>> _kept;
};

/// A counted reference to a device of a session, taken when made. The session must outlive it; owners hold both.
class DeviceReference {
  public:
    /// Adds a reference; the caller keeps its own.
    explicit DeviceReference(libusb_device* device);
    /// Takes the reference over; other is empty then.
    DeviceReference(DeviceReference&& other) noexcept : _device(other._device) { other._device = nullptr; }
    DeviceReference& operator=(DeviceReference&&) = delete;
    ~DeviceReference();
    /// Null after a move.
    libusb_device* get() const { return _device; }

  private:
    libusb_device* _device;
};

} // namespace zul
