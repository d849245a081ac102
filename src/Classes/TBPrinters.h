// The controller: finds the attached printers, keeps the list of them, and keeps the table in step with the list.
// Everything here runs on the main queue.
#pragma once

#include "Classes/Environment.h"
#include "Classes/Outlets.h"
#include "Classes/TBUSBPrinterZUL.h"
#include "platform/foundation/KeyValueObserving.h"
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
    static const void* mainQueueSpecificKey();
    static bool isMainQueue();

    /// init: becomes the application's delegate and takes the shared port. Call init() on the new object.
    TBPrinters(Environment& environment, Outlets outlets);
    ~TBPrinters() override;
    void init();

    /// The environment's port, made on first use.
    static std::shared_ptr<NotificationPort> sharedNotificationPort(Environment& environment);

    // ---- start ----------------------------------------------------------------------------------------------------

    /// Records the display version, finds the printers that are attached, configures the array controller. Outlets
    /// must be connected.
    void awakeFromNib();
    void applicationDidFinishLaunching();
    /// localizeItemsInMenu:
    void localizeItemsInMenu(Menu& menu);

    // ---- the list -------------------------------------------------------------------------------------------------

    /// A copy of the list; empty while there is none.
    PrinterList printers() const;
    /// Changes nothing: the list is changed by discovery and by termination only.
    void setPrinters(const PrinterList& printers);
    bool updateInProgress() const { return false; }
    ArrayControllerOutlet* controller() const { return _outlets.controller; }
    void setController(ArrayControllerOutlet* controller) { _outlets.controller = controller; }

    // ---- discovery ------------------------------------------------------------------------------------------------

    void getPrintingDevices();
    void newPrinterCallback(ServiceIterator& iterator);
    void deviceRemovedCallback(ServiceIterator& iterator);
    void addPrinter(const Printer& printer);
    void removedDeviceObject(ServiceToken service);

    // ---- table and observing --------------------------------------------------------------------------------------

    /// A change of selection that comes from the table. Null: some other object sent it.
    void tableViewSelectionDidChange(TableOutlet* sender);
    void observeValueForKeyPath(const std::string& keyPath, KeyValueObservable& object, void* context) override;

    // ---- termination ----------------------------------------------------------------------------------------------

    bool applicationShouldTerminateAfterLastWindowClosed(const ApplicationOutlet* sender) const;
    TerminateReply applicationShouldTerminate();
    void prepareForTermination();

    /// Turns on the log of changes made off the main queue; once per process, called by nothing.
    static void swapImpsforPrivateAPI();

    std::shared_ptr<ServiceIterator> printerIterator() const { return _printerIterator; }
    std::shared_ptr<ServiceIterator> removedIterator() const { return _removedIterator; }

  private:
    void handleMatchedService(ServiceToken token);
    bool isSupported(USBService& service) const;
    void reportUnusable(USBService& service, IOReturn code);
    void makePrinter(USBService& service, ServiceToken token);
    void insertOnMain(const Printer& printer);
    void removeOnMain(const Printer& printer);
    void retire(const Printer& printer);
    void localizeWindow();

    Environment& _environment;
    Outlets _outlets;
    std::shared_ptr<NotificationPort> _notifyPort;
    std::shared_ptr<ServiceIterator> _printerIterator;
    std::shared_ptr<ServiceIterator> _removedIterator;
    std::optional<PrinterList> _printers;
    PrinterList _awaitingInsertion; // made, but their add block has not run yet
};

} // namespace zul
