// The controller's start, its list and table, and its end. How printers are found is in TBPrinters_Discovery.cpp.
// Main queue throughout.
#include "Classes/TBPrinters.h"

#include "Classes/Environment.h"
#include "Classes/Outlets.h"
#include "Classes/TBUSBPrinter.h"
#include "platform/dispatch/Queue.h"
#include "platform/dispatch/QueueRole.h"
#include "platform/foundation/Bundle.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/KeyValueObserving.h"
#include "platform/foundation/UserDefaults.h"

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace zul {

namespace {

const char mainQueueKey = 0; // its address is the key

constexpr const char* kShortVersionKey = "CFBundleShortVersionString";
constexpr const char* kVersionKey = "CFBundleVersion";
constexpr const char* kDisplayVersionKey = "prefDisplayVersionString";
constexpr const char* kPrintersKey = "printers";
constexpr const char* kFirmwareVersionKey = "firmwareVersion";
constexpr const char* kDiagnosticName = "newPrivateAPI_Imp";

// Values of the device info change on the printers' queues by design; this log shows which ones, while a developer
// looks for the cause of a flicker.
void logChange(const std::string& key) {
    const std::string none = textOrNull({}); // a change here is always of one key; the line has room for three
    if (TBPrinters::isMainQueue()) {
        logText("%s @#@#@#@#@#@#@#@#@#@#@#@# %s %s %s", kDiagnosticName, key, none, none);
        return;
    }
    if (key == "printerStatus") logText("setting printerStatus off Main QUEUE!");
    logText("%s &&&&&&&&&&&&&&&&&&&&&&&& %s %s %s", kDiagnosticName, key, none, none);
}

} // namespace

void TBPrinters::initialize(MainQueue& mainQueue) {
    mainQueue.setSpecific(&mainQueueKey, &mainQueue);
    TBUSBPrinter::initialize(mainQueue);
}

const void* TBPrinters::mainQueueSpecificKey() {
    return &mainQueueKey;
}

bool TBPrinters::isMainQueue() {
    return Queue::currentSpecific(&mainQueueKey) != nullptr;
}

TBPrinters::TBPrinters(Environment& environment, Outlets outlets)
    : _environment(environment), _outlets(std::move(outlets)) {}

TBPrinters::~TBPrinters() {
    prepareForTermination();
    logText("about to call [super dealloc] in %s\n", "-[TBPrinters dealloc]");
}

void TBPrinters::init() {
    assertOnMainQueue();
    _environment.application.setDelegate(this);
    _printers.reset();
    _notifyPort = sharedNotificationPort(_environment);
    _printerIterator = nullptr;
}

// ---- start ----------------------------------------------------------------------------------------------------------

void TBPrinters::awakeFromNib() {
    assertOnMainQueue();
    const Bundle& bundle = _environment.mainBundle;
    const std::string display =
        formatted("%s (build %s)", textOrNull(bundle.objectForInfoDictionaryKey(kShortVersionKey)),
                  textOrNull(bundle.objectForInfoDictionaryKey(kVersionKey)));
    logText("display string is %s", display);
    // The window and its reports show the version from there.
    _environment.userDefaults.setString(kDisplayVersionKey, display);
    logText("%s", "-[TBPrinters awakeFromNib]");
    getPrintingDevices();
    if (_outlets.controller == nullptr) return;
    _outlets.controller->setPreservesSelection(false);
    _outlets.controller->setAvoidsEmptySelection(true);
    _outlets.controller->setSelectsInsertedObjects(true);
}

void TBPrinters::applicationDidFinishLaunching() {
    assertOnMainQueue();
    if (_outlets.mainMenu) localizeItemsInMenu(*_outlets.mainMenu);
    if (const auto version = _environment.mainBundle.objectForInfoDictionaryKey(kShortVersionKey)) {
        _environment.userDefaults.setString(kShortVersionKey, *version);
    }
    localizeWindow();
}

void TBPrinters::localizeWindow() {
    const Bundle& bundle = _environment.mainBundle;
    if (_outlets.window != nullptr) {
        _outlets.window->setTitle(bundle.localizedString(_outlets.window->title()));
        // The process name replaces the translated title: the same window carries several product names.
        _outlets.window->setTitle(_environment.application.processName());
    }
    if (_outlets.tableview == nullptr) return;
    for (std::size_t column = 0; column < _outlets.tableview->numberOfColumns(); ++column) {
        _outlets.tableview->setColumnTitle(column, bundle.localizedString(_outlets.tableview->columnTitle(column)));
    }
    _outlets.tableview->setNeedsDisplay();
}

void TBPrinters::localizeItemsInMenu(Menu& menu) {
    const auto localize = [this](std::string& text) {
        std::string localized = _environment.mainBundle.localizedString(text);
        if (localized != text) text = std::move(localized);
    };
    for (MenuItem& item : menu.items) {
        if (item.isSeparator) continue;
        if (item.submenu) localizeItemsInMenu(*item.submenu);
        localize(item.title);
        if (!item.toolTip.empty()) localize(item.toolTip);
    }
    localize(menu.title);
}

ArrayControllerOutlet* TBPrinters::controller() const {
    assertOnMainQueue();
    return _outlets.controller;
}

void TBPrinters::setController(ArrayControllerOutlet* controller) {
    assertOnMainQueue();
    _outlets.controller = controller;
}

// ---- the list -------------------------------------------------------------------------------------------------------

TBPrinters::PrinterList TBPrinters::printers() const {
    assertOnMainQueue();
    return _printers.value_or(PrinterList{});
}

void TBPrinters::setPrinters(const PrinterList& /*printers*/) {
    logText("inside %s", "-[TBPrinters setPrinters:]");
}

void TBPrinters::insertOnMain(const Printer& printer) {
    std::erase(_awaitingInsertion, printer);
    {
        const KeyChange change(*this, kPrintersKey);
        if (!_printers) _printers.emplace(); // termination may have come between
        _printers->push_back(printer);
    }
    if (_outlets.tableview != nullptr && _outlets.tableview->selectedRow() == 0) _outlets.tableview->selectRow(0);
}

void TBPrinters::removeOnMain(const Printer& printer) {
    const KeyChange change(*this, kPrintersKey);
    // The list is gone when the termination came first.
    if (_printers) std::erase(*_printers, printer);
}

// ---- table and observing --------------------------------------------------------------------------------------------

void TBPrinters::tableViewSelectionDidChange(TableOutlet* sender) {
    if (sender == nullptr) return;
    logText("rows = %d; selected row = %d", sender->numberOfRows(), sender->selectedRow());
    if (sender->numberOfRows() > 0 && sender->selectedRow() < 0) {
        logText("selecting row 0");
        sender->selectRow(0);
    }
    // In every case: the first printer is the one that an operator's click ends at.
    logText("really selecting row 0");
    sender->selectRow(0);
}

void TBPrinters::observeValueForKeyPath(const std::string& keyPath, KeyValueObservable& /*object*/, void* context) {
    logText("%s %s", "-[TBPrinters observeValueForKeyPath:ofObject:change:context:]", keyPath);
    if (keyPath != kFirmwareVersionKey) return;
    // context is valid: retire() removes the observer while the list still has the printer. Posted, because the notice
    // comes on the printer's queue and the outlets belong to main.
    const auto printer = static_cast<TBUSBPrinterZUL*>(context)->shared_from_this();
    _environment.mainQueue.async([self = shared_from_this(), printer] {
        assertOnMainQueue();
        if (self->_outlets.controller == nullptr) return;
        self->_outlets.controller->setSelectedObjects({std::static_pointer_cast<TBUSBPrinterZUL>(printer)});
    });
}

// ---- termination ----------------------------------------------------------------------------------------------------

bool TBPrinters::applicationShouldTerminateAfterLastWindowClosed(const ApplicationOutlet* sender) const {
    return sender == &_environment.application;
}

TerminateReply TBPrinters::applicationShouldTerminate() {
    logText("inside %s\n", "-[TBPrinters applicationShouldTerminate:]");
    prepareForTermination();
    return TerminateReply::now; // a printer in the middle of an update is not waited for
}

void TBPrinters::prepareForTermination() {
    assertOnMainQueue();
    logText("inside %s\n", "-[TBPrinters prepareForTermination]");
    if (_printers) {
        // The program may end before this runs; nothing depends on it. In the destructor the object has no owner any
        // more, and the call is left out.
        if (const auto self = weak_from_this().lock()) {
            _environment.mainQueue.async([self] {
                assertOnMainQueue();
                if (!self->_printers) return;
                const KeyChange change(*self, kPrintersKey);
                self->_printers.reset();
            });
        }
    }
    // Without the port no arrival or departure is delivered any more.
    _environment.notificationPort.reset();
    _notifyPort.reset();
    _printerIterator.reset(); // the removal iterator stays: it goes with the port
}

void TBPrinters::swapImpsforPrivateAPI() {
    static std::atomic_flag done = ATOMIC_FLAG_INIT;
    if (!done.test_and_set()) KeyValueObservable::setChangeDiagnostic(logChange);
}

} // namespace zul
