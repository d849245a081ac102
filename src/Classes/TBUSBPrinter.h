// One attached USB printer: its identity, its interface and bulk pipes, and the serial queue on which every exchange
// with it runs. It knows nothing of the vendor's command language; the vendor subclass does.
//
// Queues: an object is made on the main queue. Its command queue exists once its IEEE 1284 device ID has been read and
// decoded; until then every queue operation runs inline on the caller. Observed properties change on the main queue;
// the values in deviceInfoDict change on the command queue. Change notices bracket both.
#pragma once

#include "Classes/CommandChannel.h"
#include "Classes/DeviceInfo.h"
#include "Classes/Environment.h"
#include "Classes/IdentifiedPrinter.h"
#include "Classes/PrinterQueues.h"
#include "Classes/PrinterTypes.h"
#include "Classes/StringDescriptors.h"
#include "Classes/UnusedRecord.h"
#include "platform/foundation/Data.h"
#include "platform/foundation/OptionalText.h"
#include "platform/usb/IOUSBInterfaceInterface.h"
#include "platform/usb/ServiceRegistry.h"

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>

namespace zul {

class TBUSBPrinter : public IdentifiedPrinter, public PrinterQueues, public std::enable_shared_from_this<TBUSBPrinter> {
  public:
    using CommandBlock = Block;
    using ReplyBlock = std::function<void(const std::optional<Data>& reply)>;
    using CodeCompletion = std::function<void(IOReturn code)>;
    using InterfacePtr = std::shared_ptr<IOUSBInterfaceInterface>;
    using DevicePtr = std::shared_ptr<IOUSBDeviceInterface>;

    // ---- creation -------------------------------------------------------------------------------------------------

    /// init: everything empty, state closed. Make it through std::make_shared, then call one initialiser.
    explicit TBUSBPrinter(Environment& environment);
    ~TBUSBPrinter() override;

    /// initWithInterfaceInterface:forDeviceObject:  Reads the identity, makes the command queue, sets the device
    /// object. Main queue; blocks it for at most a few control requests. Never fails: a printer that does not report
    /// its ID has no queue. deviceObject is the token of the interface's service.
    virtual void initWithInterfaceInterface(InterfacePtr interfaceInterface, ServiceToken deviceObject);
    /// initWithDeviceObject:  Takes the device object alone, without an identity or a queue. Main queue.
    void initWithDeviceObject(ServiceToken deviceObject);

    // ---- commands -------------------------------------------------------------------------------------------------

    /// Runs commandBlock on the command queue, inline when already there. A missing block is a programming error.
    void sendNoReplyPrinterCommand(CommandBlock commandBlock);
    /// sendPrinterCommand:replyQueue:reply:  Runs commandBlock on the command queue, then hands printerReply() to
    /// reply (if given) on the reply queue.
    void sendPrinterCommand(CommandBlock commandBlock, ReplyQueue replyQueue, ReplyBlock reply);
    /// The reply of the last command. Command queue. nullopt in this class.
    virtual std::optional<Data> printerReply() ZUL_REQUIRES_ROLE(commandQueueRole) { return std::nullopt; }

    // ---- interface ------------------------------------------------------------------------------------------------

    /// Claims the interface and finds its pipes; 0 at once when it is open already. Command queue. Codes:
    /// kIOReturnExclusiveAccess (another program holds it; the open stays pending), kIOReturnNoDevice (no handle, or
    /// the device has left), and whatever the bus reports.
    IOReturn openInterface() ZUL_REQUIRES_ROLE(commandQueueRole);
    /// openInterface:  The same on the command queue; completion (if any) gets the code there.
    void openInterface(CodeCompletion completion);
    /// closeInterface:  Always posted to the command queue, so it follows what is queued. There is no open count: one
    /// close closes for all. Completion gets the close's code, 0 when nothing was open. A close that was asked for
    /// before another program took the interface does not end the wait for that program. Any thread.
    void closeInterface(CodeCompletion completion);
    /// Finds the bulk pipes, on the command queue. Any thread.
    void getPipes();
    /// True for "open by this program" and for "held by another".
    bool isOwned() const { return _isOwned != Ownership::none; }
    /// Who has the interface open. Any thread.
    Ownership ownership() const { return _isOwned; }
    /// Opens the interface if value is not 0 and no program has it open; otherwise closes it. If value is 1 and another
    /// program holds the interface, the message "attempting to open" is sent after the close, and the interface is
    /// still opened when that program releases it. Any thread.
    void setIsOwned(int value);
    /// One bulk write of the whole data (time-outs 5000 ms). Command queue. True exactly when _writeStatus is 0.
    bool writeToInterfaceWithData(const Data& data) ZUL_REQUIRES_ROLE(commandQueueRole);
    /// One bulk read (time-outs 5000 ms). Command queue. Always size bytes, zero-padded; nullopt on failure: the code
    /// is in _readStatus.
    std::optional<Data> interfaceReadDataOfSize(std::uint32_t size) ZUL_REQUIRES_ROLE(commandQueueRole);
    /// Result of the last bulk write, for whoever watches. Any thread.
    IOReturn writeStatus() const { return _transferStatus.write; }
    /// Result of the last open of the interface; success before the first. Any thread.
    IOReturn openStatus() const { return _transferStatus.open; }
    /// The steps of an open as state and interfaceStatus show them: open; under way; opened, but not reported yet.
    bool isInterfaceOpen() const;
    bool willOpenInterface() const;
    bool didOpenInterface() const;
    std::int32_t interfaceStatus() const { return static_cast<std::int32_t>(_interfaceStatus.load()); }
    /// One of TBPrinterState. Read on any thread; set on the thread that reports it, with change notices.
    std::int64_t state() const { return _state; }
    void setState(std::int64_t state);

    // ---- device info -----------------------------------------------------------------------------------------------

    /// Stores the text under "printerStatus", on the main queue, with notices; waits for that.
    void setPrinterStatus(const std::string& status);
    /// Three texts of deviceInfoDict, nullopt while one is not known. Any thread.
    std::optional<std::string> printerStatus() const;
    std::optional<std::string> printerSerialNumber() const;
    std::optional<std::string> firmwareVersion() const;
    /// Serial number of the 1284 device ID; nullopt if the ID has none. Any thread.
    const OptionalText& idSerialNumber() const { return _idSerialNumber; }
    /// Everything that was learned about the printer. Any thread.
    DeviceInfoPtr deviceInfoDict() const { return _deviceInfoDict; }

    /// An update of this printer is under way. Any thread.
    bool inFirmwareUpdate() const { return _isBusy; }
    /// The same with change notices; false also ends this object's claim on the device's update. Main queue.
    void setInFirmwareUpdate(bool inUpdate);

    // ---- identity -------------------------------------------------------------------------------------------------

    using DeviceIDCompletion = std::function<void(bool found, const OptionalText& deviceID)>;
    using DecodedBlock = std::function<void(const OptionalText& manufacturer, const OptionalText& model,
                                            const OptionalText& serialNumber, const OptionalText& des)>;
    /// Reads the IEEE 1284 device ID (time-outs 100 ms each) and stores it; completion is called before this returns.
    /// Command queue.
    void update1284DeviceID(DeviceIDCompletion completion);
    /// decodeDeviceID:decoded:  Calls decoded at once with the values of the ID: "unknown" for a missing manufacturer
    /// or model, the USB serial number for a missing one, nullopt for the rest. Any thread.
    void decodeDeviceID(const std::string& deviceID, const DecodedBlock& decoded) const;
    /// Languages of the string descriptors, read once; nullopt while they cannot be read. Command queue.
    std::optional<std::set<std::uint16_t>> langIds() ZUL_REQUIRES_ROLE(commandQueueRole);
    /// The chosen language; 0 while the table cannot be read. Command queue.
    std::uint16_t langId() ZUL_REQUIRES_ROLE(commandQueueRole);
    /// Ignored unless langIds contains it. Command queue.
    void setLangId(std::uint16_t langId) ZUL_REQUIRES_ROLE(commandQueueRole);
    /// The string descriptor in the chosen language; nullopt if there is none or the device does not answer. Command
    /// queue; time-outs 500 ms / 1000 ms.
    OptionalText descriptorStringAtIndex(std::uint8_t index) ZUL_REQUIRES_ROLE(commandQueueRole);
    /// The three read a string descriptor on the command queue and store it on main, with change notices. Any thread.
    void getUSBVendorString();
    void getUSBProductString();
    void getUSBSerialNumberString();

    /// What is known about a device, by keyUSBdevice, for the length of the current environment's run. Main queue. The
    /// same object at every call; an empty one is made and kept when there is none.
    static DeviceInfoPtr deviceInfoForKey(const std::string& key);
    /// setDeviceInfo:forKey:  Keeps this very object; an immutable one is ignored. Main queue.
    static void setDeviceInfo(DeviceInfoPtr info, const std::string& key);

    // ---- life cycle -----------------------------------------------------------------------------------------------

    /// The service that messages are taken from; 0 releases. Posted to the command queue.
    void setDeviceObject(ServiceToken deviceObject);
    /// Takes the handle over, or releases the one that it has (null), and reads its numbers. Any thread; the change is
    /// made on the command queue.
    void setInterfaceInterface(InterfacePtr interfaceInterface);
    /// Takes the handle of the device over; null releases it. Any thread; the change is made on the command queue.
    void setDeviceInterface(DevicePtr device);
    /// The service that messages are taken from; 0: none. Any thread.
    ServiceToken deviceObject() const { return _deviceObject; }
    /// The service the object was made for: known from the first moment and never changed.
    ServiceToken creationToken() const { return _creationToken; }
    /// The handle of the interface; null after the release. Command queue.
    InterfacePtr interfaceInterface() const ZUL_REQUIRES_ROLE(commandQueueRole) { return _channel.interface(); }
    /// Obtained when first asked for; null when there is none. Command queue.
    DevicePtr deviceInterface() ZUL_REQUIRES_ROLE(commandQueueRole);

    /// Handles a message about the service: departure, or another program's open or close. Main queue.
    static void usbInterfaceInterestCallback(const std::shared_ptr<TBUSBPrinter>& printer, ServiceToken service,
                                             IOMessage message, void* argument);
    /// Calls getDeviceCustomInfo on the command queue, without waiting for it. Called on the main queue.
    void probe();
    /// Asks for everything that only the vendor's commands show; no effect in this class. Command queue.
    virtual void getDeviceCustomInfo() ZUL_REQUIRES_ROLE(commandQueueRole) {}
    /// The same as probe; reEnumerateUSBDevice. Both on the command queue. Any thread.
    void updateInfo();
    void hotPlug();
    /// Printer-class soft reset. Command queue.
    IOReturn resetUSBPrinter(Recipient recipient = Recipient::interface) ZUL_REQUIRES_ROLE(commandQueueRole);
    /// Resets the port; the device keeps its address. Command queue; kIOReturnError without a device handle.
    IOReturn resetUSBDevice() ZUL_REQUIRES_ROLE(commandQueueRole);
    /// Makes the device leave the bus and return, which ends this object. The same queue and codes.
    IOReturn reEnumerateUSBDevice() ZUL_REQUIRES_ROLE(commandQueueRole);
    /// Main queue: posts the release of all handles, ends waits, and waits for nothing.
    void prepareForRelease();

    Environment& environment() const { return _environment; }
    void emit(PrinterEvent::What what) const override;
    /// An embedded printer. Any thread; set before another queue knows the object.
    bool isVirtual() const { return _isVirtual; }
    void setIsVirtual(bool isVirtual) { _isVirtual = isVirtual; }
    /// Retired: its service has left and prepareForRelease was called.
    bool isReleased() const { return _released; }
    /// An object of the device's other printer interface was attached when this one was made. Any thread.
    bool isSecondOfDevice() const { return _isSecondOfDevice; }

  protected:
    /// An open was refused and one has succeeded since: does what could not be done at the arrival. Command queue.
    virtual void continueProbe() ZUL_REQUIRES_ROLE(commandQueueRole) {}
    template <class Self> std::shared_ptr<Self> sharedSelf() {
        return std::static_pointer_cast<Self>(shared_from_this());
    }

    Environment& _environment;

    // Each guarded by a lock of its own.
    const DeviceInfoPtr _deviceInfoDict = std::make_shared<DeviceInfo>();
    const std::shared_ptr<DeviceObjects> _deviceObjects;

    // Atomics.
    TransferStatus _transferStatus;

    // Set once, before another queue knows the object.
    OptionalText _idSerialNumber;            // of the 1284 device ID
    std::weak_ptr<InterestTable> _interests; // the program may end first
    ServiceToken _creationToken = 0;

    // Of the command queue.
    CommandChannel _channel ZUL_GUARDED_BY_ROLE(commandQueueRole){*this, _transferStatus};

  private:
    void finishOpen(IOReturn code) ZUL_REQUIRES_ROLE(commandQueueRole);
    IOReturn closeNow() ZUL_REQUIRES_ROLE(commandQueueRole);
    void closeAndReplayAttempt();
    void setOwnershipOnMain(Ownership ownership) ZUL_REQUIRES_ROLE(mainQueueRole);
    void watchForHolder() ZUL_REQUIRES_ROLE(commandQueueRole);
    void endWaitForHolder() ZUL_REQUIRES_ROLE(commandQueueRole);
    void holderMayHaveLetGo() ZUL_REQUIRES_ROLE(commandQueueRole);
    void makeLabelledQueue(const OptionalText& manufacturer, const OptionalText& model,
                           const OptionalText& serialNumber);
    void releaseNotification(std::uint32_t notification, int line);
    void registerForMessages(ServiceToken deviceObject) ZUL_REQUIRES_ROLE(commandQueueRole);
    void readNumbers(IOUSBInterfaceInterface& handle);
    void handleInterestMessage(ServiceToken service, IOMessage message) ZUL_REQUIRES_ROLE(mainQueueRole);
    void otherHolderClosed() ZUL_REQUIRES_ROLE(mainQueueRole);
    void attemptingOpen() ZUL_REQUIRES_ROLE(mainQueueRole);
    void showStatus(const char* key) ZUL_REQUIRES_ROLE(mainQueueRole);
    using StringIndexGetter = IOReturn (IOUSBDeviceInterface::*)(std::uint8_t&);
    void readUSBStrings() ZUL_REQUIRES_ROLE(commandQueueRole);
    OptionalText readUSBString(StringIndexGetter getter, const char* getterName, bool& asked)
        ZUL_REQUIRES_ROLE(commandQueueRole);
    IOReturn withOpenDevice(const std::function<IOReturn(IOUSBDeviceInterface&)>& action)
        ZUL_REQUIRES_ROLE(commandQueueRole);

    // Atomics: set on main or on the command queue, read on any thread.
    std::atomic<TBPrinterState> _state{kTBPrinterClosed};
    std::atomic<TBPrinterState> _interfaceStatus{kTBPrinterClosed};
    std::atomic<Ownership> _isOwned{Ownership::none};
    std::atomic<ServiceToken> _deviceObject{0};
    std::atomic<bool> _isBusy{false};
    std::atomic<bool> _released{false};
    std::atomic<bool> _awaitsHolder{false}; // an open was refused, and is tried again when it can succeed
    std::atomic<unsigned> _refusals{0};     // how many opens were refused
    std::atomic<bool> _isVirtual{false};
    std::atomic<bool> _isSecondOfDevice{false};

    // Of the command queue.
    StringDescriptors _descriptors ZUL_GUARDED_BY_ROLE(commandQueueRole){_channel};
    DevicePtr _dInterface ZUL_GUARDED_BY_ROLE(commandQueueRole);
    std::uint32_t _interestNotification ZUL_GUARDED_BY_ROLE(commandQueueRole) = 0;
    std::uint32_t _busyNotification ZUL_GUARDED_BY_ROLE(commandQueueRole) = 0; // never registered
    bool _isHolderGone ZUL_GUARDED_BY_ROLE(commandQueueRole) = false;          // "was closed" is on its way

    // Of the main queue.
    std::uint32_t _creationInterest ZUL_GUARDED_BY_ROLE(mainQueueRole) = 0;

    // Of no queue: no operation uses it.
    UnusedRecord _unused;
};

/// How a printer is called in messages to people: model, serial number where one is known, location. Any thread.
std::string displayNameOf(const TBUSBPrinter& printer);

} // namespace zul
