// The handles through which the engine uses one USB device: the interface (pipes) and the device (resets, string
// indices). Every bus implements both, and so does the scripted handle of the unit tests. All calls block; they are
// made on the printer's command queue, or inline on the creating thread before that queue exists. An implementation
// need not lock against concurrent calls on one handle.
#pragma once

#include "platform/usb/IOReturn.h"
#include "platform/usb/PrinterReservations.h"

#include <cstdint>
#include <functional>
#include <memory>

namespace zul {

/// Identifies one USB interface on the bus. A token is allocated per arrival and interface number and never reused in a
/// process, so the same port has a new token after a restart. 0 is invalid.
using ServiceToken = std::uint32_t;

/// One control request. pData points to wLength bytes; the call sets wLenDone.
struct IOUSBDevRequestTO {
    std::uint8_t bmRequestType = 0;
    std::uint8_t bRequest = 0;
    std::uint16_t wValue = 0;
    std::uint16_t wIndex = 0;
    std::uint16_t wLength = 0;
    void* pData = nullptr;
    std::uint32_t wLenDone = 0;
    std::uint32_t noDataTimeout = 0;     // ms
    std::uint32_t completionTimeout = 0; // ms; 0 = the bus's default
};

/// As seen from the host.
enum class PipeDirection : std::uint8_t { out = 0, in = 1 };
constexpr std::uint8_t kUSBBulk = 2; // transfer type of a bulk pipe

/// One endpoint of an interface, as its descriptor reports it.
struct PipeProperties {
    PipeDirection direction = PipeDirection::out;
    std::uint8_t number = 0; // endpoint number without the direction bit
    std::uint8_t transferType = 0;
    std::uint16_t maxPacketSize = 0; // bytes
    std::uint8_t interval = 0;
};

/// The data of an interface that can be read from the descriptors without opening the device node. Each call returns
/// kIOReturnSuccess and the value, or the reason why the descriptors cannot be read. Any thread.
class IOUSBInterfaceDescription {
  public:
    virtual ~IOUSBInterfaceDescription() = default;

    /// bInterfaceClass and bInterfaceSubClass: 7 and 1 for printers.
    virtual IOReturn GetInterfaceClass(std::uint8_t& interfaceClass) = 0;
    virtual IOReturn GetInterfaceSubClass(std::uint8_t& interfaceSubClass) = 0;
    /// idVendor, idProduct and bcdDevice of the device.
    virtual IOReturn GetDeviceVendor(std::uint16_t& vendor) = 0;
    virtual IOReturn GetDeviceProduct(std::uint16_t& product) = 0;
    virtual IOReturn GetDeviceReleaseNumber(std::uint16_t& releaseNumber) = 0;
    /// Bus number in the top byte, port path in the nibbles below; unchanged by a restart on the same port.
    virtual IOReturn GetLocationID(std::uint32_t& locationID) = 0;
    /// bInterfaceNumber, bAlternateSetting and bConfigurationValue: a request for the device ID is addressed with the
    /// three.
    virtual IOReturn GetInterfaceNumber(std::uint8_t& number) = 0;
    virtual IOReturn GetAlternateSetting(std::uint8_t& alternate) = 0;
    virtual IOReturn GetConfigurationValue(std::uint8_t& configuration) = 0;
    /// Number of endpoints of the active alternate setting, without the control endpoint.
    virtual IOReturn GetNumEndpoints(std::uint8_t& count) = 0;
    /// pipe: 1 to GetNumEndpoints; any other yields kIOUSBUnknownPipeErr.
    virtual IOReturn GetPipeProperties(std::uint8_t pipe, PipeProperties& properties) = 0;
};

class IOUSBDeviceInterface;

/// A usable interface: the device node is open while the object exists; "open" below means claimed.
class IOUSBInterfaceInterface : public IOUSBInterfaceDescription {
  public:
    /// Claims the interface. Detaches the kernel's driver if that holds it and no print job goes through it.
    /// kIOReturnExclusiveAccess: another process holds it, a job is being printed, or another process of this product
    /// has reserved the printer; holder() returns which. kIOReturnNotPrivileged: cannot determine whether a job is
    /// being printed. Success if this handle already holds the claim. Command queue.
    virtual IOReturn USBInterfaceOpenSeize() = 0;
    /// Releases the claim and drops buffered bytes of a read. While the bus keeps the printer for an update, only this
    /// handle's use ends; other processes still cannot claim the interface. Command queue.
    virtual IOReturn USBInterfaceClose() = 0;
    /// The process that holds the interface after a refused open, as far as the system reports it; otherwise kind
    /// unknown. Scans the open files of all processes: tens of milliseconds on a busy machine, and up to 300 ms more
    /// for the reply of another process of this product. Command queue.
    virtual InterfaceHolder holder() = 0;

    /// Reads up to size bytes in one transfer; size receives the number of bytes read, never more than requested.
    /// Time-outs in ms. Command queue.
    virtual IOReturn ReadPipeTO(std::uint8_t pipe, void* buffer, std::uint32_t& size, std::uint32_t noDataTimeout,
                                std::uint32_t completionTimeout) = 0;
    /// Writes all size bytes; one deadline of completionTimeout ms for the whole transfer. Appends no zero-length
    /// packet. Command queue.
    virtual IOReturn WritePipeTO(std::uint8_t pipe, const void* buffer, std::uint32_t size, std::uint32_t noDataTimeout,
                                 std::uint32_t completionTimeout) = 0;
    /// pipe is 0, the control pipe. Works without the claim if the system allows it. Command queue.
    virtual IOReturn ControlRequestTO(std::uint8_t pipe, IOUSBDevRequestTO& request) = 0;
    /// Resynchronizes a bulk-in pipe after a late, missing or malformed reply: clears its halt, drops buffered bytes,
    /// and reads until no data arrives for 100 ms. Success when the pipe is idle; kIOReturnOverrun if the device still
    /// sends after 2 s or 1 MiB; kIOReturnNoDevice if it was detached. Needs the claim. Command queue.
    virtual IOReturn resynchronize(std::uint8_t pipe) = 0;

    /// The device of this interface; device is null on failure.
    virtual IOReturn GetDevice(std::shared_ptr<IOUSBDeviceInterface>& device) = 0;

    /// Receives the number of bytes written so far, on the writing thread. A bus need not call it.
    using WriteProgress = std::function<void(std::uint32_t bytesDone, std::uint32_t bytesTotal)>;
    /// Sets the callback for all following writes; null removes it. Command queue.
    virtual void setWriteProgress(WriteProgress progress) = 0;

    /// While another process holds the interface: the bus calls mayBeFree on the main queue each time the holder may
    /// have released it, and also polls slowly. Null ends the watch. Not called when this process closes the interface.
    /// Any thread.
    virtual void watchHolder(std::function<void()> mayBeFree) = 0;
    /// Claims and releases without any other effect. Success if no other process holds the interface, no job is being
    /// printed and no other process of this product has reserved the printer. Command queue.
    virtual IOReturn tryClaim() = 0;
};

/// Operations on the whole device. kIOReturnNoDevice once it was detached. Command queue.
class IOUSBDeviceInterface {
  public:
    virtual ~IOUSBDeviceInterface() = default;

    /// Both only report whether the device is still attached: its node is open while the handle exists.
    virtual IOReturn USBDeviceOpen() = 0;
    virtual IOReturn USBDeviceClose() = 0;
    /// Resets the device in place: address and services are kept.
    virtual IOReturn ResetDevice() = 0;
    /// Makes the device leave and return as a new service. Departure and arrival are delivered afterwards on the main
    /// queue, even if the system resets the device in place.
    virtual IOReturn USBDeviceReEnumerate(std::uint32_t options) = 0;
    /// Indices of the device's string descriptors; 0 if it has none.
    virtual IOReturn USBGetManufacturerStringIndex(std::uint8_t& index) = 0;
    virtual IOReturn USBGetProductStringIndex(std::uint8_t& index) = 0;
    virtual IOReturn USBGetSerialNumberStringIndex(std::uint8_t& index) = 0;
};

} // namespace zul
