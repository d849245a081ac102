// The handles through which the engine talks to one USB device: the interface (pipes) and the device (resets, string
// indices). Every bus implements both; so does the scripted handle of the unit tests. All calls block the caller and
// are made on the printer's command queue (or inline on the creating thread while no queue exists yet); an
// implementation need not lock against concurrent calls on one handle.
#pragma once

#include "platform/usb/IOReturn.h"
#include "platform/usb/PrinterReservations.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

namespace zul {

/// Token of one USB interface on the bus: allocated per (arrival, interface number), never reused while the process
/// lives, so the same port after a restart has another token. 0 is none.
using ServiceToken = std::uint32_t;

/// One control request. pData holds wLength bytes; wLenDone is filled by the call.
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

enum class PipeDirection : std::uint8_t { out = 0, in = 1 };
constexpr std::uint8_t kUSBBulk = 2; // transfer type of a bulk pipe

struct PipeProperties {
    PipeDirection direction = PipeDirection::out;
    std::uint8_t number = 0; // endpoint number without the direction bit
    std::uint8_t transferType = 0;
    std::uint16_t maxPacketSize = 0; // bytes
    std::uint8_t interval = 0;
};

/// What can be asked of an interface without opening the device node: it is in the descriptors. Each call answers with
/// kIOReturnSuccess and the value, or with the reason why the descriptors cannot be read. Any thread.
class IOUSBInterfaceDescription {
  public:
    virtual ~IOUSBInterfaceDescription() = default;

    virtual IOReturn GetInterfaceClass(std::uint8_t& interfaceClass) = 0;
    virtual IOReturn GetInterfaceSubClass(std::uint8_t& interfaceSubClass) = 0;
    virtual IOReturn GetDeviceVendor(std::uint16_t& vendor) = 0;
    virtual IOReturn GetDeviceProduct(std::uint16_t& product) = 0;
    virtual IOReturn GetDeviceReleaseNumber(std::uint16_t& releaseNumber) = 0;
    /// Bus number in the top byte, port path in nibbles below; the same before and after a restart on the same port.
    virtual IOReturn GetLocationID(std::uint32_t& locationID) = 0;
    virtual IOReturn GetInterfaceNumber(std::uint8_t& number) = 0;
    virtual IOReturn GetAlternateSetting(std::uint8_t& alternate) = 0;
    virtual IOReturn GetConfigurationValue(std::uint8_t& configuration) = 0;
    /// Endpoints of the active alternate setting, the control pipe not counted.
    virtual IOReturn GetNumEndpoints(std::uint8_t& count) = 0;
    /// pipe: 1 to GetNumEndpoints; kIOUSBUnknownPipeErr for any other.
    virtual IOReturn GetPipeProperties(std::uint8_t pipe, PipeProperties& properties) = 0;
};

class IOUSBDeviceInterface;

/// A usable interface: the device node is open from creation to destruction; "interface open" means claimed.
class IOUSBInterfaceInterface : public IOUSBInterfaceDescription {
  public:
    /// Claims the interface, taking it from the kernel's own driver if that holds it and no print job goes through it.
    /// kIOReturnExclusiveAccess when another program holds it, a job is printed or another process of ours has reserved
    /// the printer: holder() then answers which. kIOReturnNotPrivileged when it cannot be seen whether a job is
    /// printed. Success when this handle already holds it. Command queue.
    virtual IOReturn USBInterfaceOpenSeize() = 0;
    /// Releases the claim. Bytes of a read that were kept back are dropped. While the bus keeps the printer for an
    /// update, only this handle's use ends; other programs still cannot claim it. Command queue.
    virtual IOReturn USBInterfaceClose() = 0;
    /// Which process holds the interface after a refused open, as far as the system reports it; kind unknown otherwise.
    /// Looks through the open files of all processes: tens of milliseconds on a busy machine, and up to 300 ms more for
    /// the answer of another process of ours. Command queue.
    virtual InterfaceHolder holder() = 0;

    /// Reads up to size bytes in one transfer; size receives the count read (never more than asked).
    virtual IOReturn ReadPipeTO(std::uint8_t pipe, void* buffer, std::uint32_t& size, std::uint32_t noDataTimeout,
                                std::uint32_t completionTimeout) = 0;
    /// Writes all size bytes; one overall deadline of completionTimeout ms. No zero-length packet is appended.
    virtual IOReturn WritePipeTO(std::uint8_t pipe, const void* buffer, std::uint32_t size, std::uint32_t noDataTimeout,
                                 std::uint32_t completionTimeout) = 0;
    /// pipe is 0, the control pipe. Works without the claim where the system lets it.
    virtual IOReturn ControlRequestTO(std::uint8_t pipe, IOUSBDevRequestTO& request) = 0;
    /// Brings a bulk-in pipe back in step after a reply that was late, missing or malformed: clears its halt, drops
    /// what was kept back, and reads until no data comes for 100 ms. Success when the pipe is quiet;
    /// kIOReturnOverrun when the device still sends after 2 s or 1 MiB; kIOReturnNoDevice when it has left. Needs the
    /// claim. Command queue.
    virtual IOReturn resynchronize(std::uint8_t pipe) = 0;

    /// The device that this interface belongs to; null device on failure.
    virtual IOReturn GetDevice(std::shared_ptr<IOUSBDeviceInterface>& device) = 0;

    /// Reports how many bytes of the write under way are done, on the thread that writes. A bus need not call it.
    using WriteProgress = std::function<void(std::uint32_t bytesDone, std::uint32_t bytesTotal)>;
    /// Called for every write from now on; null ends that. Command queue.
    virtual void setWriteProgress(WriteProgress progress) = 0;

    /// While another program holds the interface: asks the bus to call mayBeFree on the main queue each time the
    /// holder may have released it (also as a slow fallback poll). Null ends the watch. Never called for own closes.
    /// Any thread.
    virtual void watchHolder(std::function<void()> mayBeFree) = 0;
    /// Claims and releases without any other effect; success when nobody else holds the interface, no job is printed
    /// and no other process of ours has reserved the printer. Command queue.
    virtual IOReturn tryClaim() = 0;
};

/// The whole device, for what is not tied to one interface. kIOReturnNoDevice once it has left. Command queue.
class IOUSBDeviceInterface {
  public:
    virtual ~IOUSBDeviceInterface() = default;

    /// Both answer whether the device is still there: its node is open as long as the handle exists.
    virtual IOReturn USBDeviceOpen() = 0;
    virtual IOReturn USBDeviceClose() = 0;
    /// Resets the device in place: it keeps its address and its services.
    virtual IOReturn ResetDevice() = 0;
    /// The device leaves and returns as a new service: departure and arrival are delivered afterwards, on the main
    /// queue, even where the system resets in place.
    virtual IOReturn USBDeviceReEnumerate(std::uint32_t options) = 0;
    /// The indices of the device's strings; 0 if it has none.
    virtual IOReturn USBGetManufacturerStringIndex(std::uint8_t& index) = 0;
    virtual IOReturn USBGetProductStringIndex(std::uint8_t& index) = 0;
    virtual IOReturn USBGetSerialNumberStringIndex(std::uint8_t& index) = 0;
};

} // namespace zul
