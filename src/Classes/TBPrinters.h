// The controller: finds the attached printers, keeps the list of them, and keeps the selection of the table valid.
// Everything here runs on the main queue.
#pragma once

#include "Classes/Environment.h"
#include "Classes/Outlets.h"
#include "Classes/TBUSBPrinterZUL.h"
#include "platform/dispatch/QueueRole.h"
#include "platform/foundation/KeyValueObserving.h"
#include "platform/usb/IOReturn.h"
#include "platform/usb/IOUSBInterfaceInterface.h"
#include "platform/usb/ServiceRegistry.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zul {

enum class TerminateReply { now };

class TBPrinters : public KeyValueObservable, public KeyValueObserver, public std::enable_shared_from_this<TBPrinters> {
  public:
    using Printer = std::shared_ptr<TBUSBPrinterZUL>;
    using PrinterList = std::vector<Printer>;

    /// What the user interface connects; all may be null (a command line has no window).
    struct Outlets {
        TableOutlet* tableview = nullptr;
        WindowOutlet* window = nullptr;
        ArrayControllerOutlet* controller = nullptr;
        std::shared_ptr<Menu> mainMenu;
    };

    /// Marks the main queue. Once per main queue, before the first controller.
    static void initialize(MainQueue& mainQueue);
    /// The marker by which the main queue is recognised: an address, never read. Any thread.
    static const void* mainQueueSpecificKey();
    /// True on the main queue. Any thread.
    static bool isMainQueue();

    /// init: becomes the application's delegate and takes the shared port. Call init() on the new object.
    TBPrinters(Environment& environment, Outlets outlets);
    /// Releases the port as prepareForTermination() does.
    ~TBPrinters() override;
    void init();

    /// The environment's port, made on first use.
    static std::shared_ptr<NotificationPort> sharedNotificationPort(Environment& environment);

    // ---- start ----------------------------------------------------------------------------------------------------

    /// Records the display version, finds the printers that are attached, configures the array controller. Outlets
    /// must be connected.
    void awakeFromNib();
    /// Translates menu, window and table, and records the version.
    void applicationDidFinishLaunching();
    /// localizeItemsInMenu:  Translates the titles and tool tips of the menu and its submenus in place.
    void localizeItemsInMenu(Menu& menu);

    // ---- the list -------------------------------------------------------------------------------------------------

    /// A copy of the list; empty while there is none.
    PrinterList printers() const;
    /// Changes nothing: the list is changed by discovery and by termination only.
    void setPrinters(const PrinterList& printers);
    /// Always false: whether an update is under way is a question to each printer.
    bool updateInProgress() const { return false; }
    /// The outlet for the selection; null if there is no window.
    ArrayControllerOutlet* controller() const;
    void setController(ArrayControllerOutlet* controller);

    // ---- discovery ------------------------------------------------------------------------------------------------

    /// Registers for arrivals and departures of printer interfaces and handles what is attached now. No effect without
    /// a port.
    void getPrintingDevices();
    /// Makes a printer object for each accepted interface of the iterator.
    void newPrinterCallback(ServiceIterator& iterator);
    /// Retires the printer object of each interface of the iterator.
    void deviceRemovedCallback(ServiceIterator& iterator);
    /// Probes the printer and puts it into the list with the next block of the main queue.
    void addPrinter(const Printer& printer);
    /// Retires the printer that was made for this service; its row leaves after everything that is queued for it.
    void removedDeviceObject(ServiceToken service);

    // ---- table and observing --------------------------------------------------------------------------------------

    /// A change of selection that comes from the table. Null: some other object sent it.
    void tableViewSelectionDidChange(TableOutlet* sender);
    /// A printer's firmware version has changed: selects that printer. context: the printer.
    void observeValueForKeyPath(const std::string& keyPath, KeyValueObservable& object, void* context) override;

    // ---- termination ----------------------------------------------------------------------------------------------

    /// True for the environment's application.
    bool applicationShouldTerminateAfterLastWindowClosed(const ApplicationOutlet* sender) const;
    /// Always now: a printer in the middle of an update is not waited for.
    TerminateReply applicationShouldTerminate();
    /// Releases the port and, with a later block, the list. May be called more than once.
    void prepareForTermination();

    /// Turns on the log of changes made off the main queue; once per process, called by nothing.
    static void swapImpsforPrivateAPI();

    /// The iterators of the registrations; null before them and, the first, after the termination.
    std::shared_ptr<ServiceIterator> printerIterator() const;
    std::shared_ptr<ServiceIterator> removedIterator() const;

  private:
    void handleMatchedService(ServiceToken token);
    bool isSupported(USBService& service) const;
    void reportUnusable(USBService& service, IOReturn code);
    void makePrinter(USBService& service, ServiceToken token);
    void insertOnMain(const Printer& printer) ZUL_REQUIRES_ROLE(mainQueueRole);
    void removeOnMain(const Printer& printer) ZUL_REQUIRES_ROLE(mainQueueRole);
    void retire(const Printer& printer) ZUL_REQUIRES_ROLE(mainQueueRole);
    void localizeWindow() ZUL_REQUIRES_ROLE(mainQueueRole);

    Environment& _environment;

    // Of the main queue.
    Outlets _outlets ZUL_GUARDED_BY_ROLE(mainQueueRole);
    std::shared_ptr<NotificationPort> _notifyPort ZUL_GUARDED_BY_ROLE(mainQueueRole);
    std::shared_ptr<ServiceIterator> _printerIterator ZUL_GUARDED_BY_ROLE(mainQueueRole);
    std::shared_ptr<ServiceIterator> _removedIterator ZUL_GUARDED_BY_ROLE(mainQueueRole);
    std::optional<PrinterList> _printers ZUL_GUARDED_BY_ROLE(mainQueueRole);
    PrinterList _awaitingInsertion ZUL_GUARDED_BY_ROLE(mainQueueRole); // made, but their add block has not run yet
};

} // namespace zul
