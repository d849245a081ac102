// The controller: start, discovery, list, table, end.
#include "PrinterBench.h"

using namespace zul;
using namespace zul::test;

namespace {

class Table final : public TableOutlet {
  public:
    int rows = 0, selected = -1, redraws = 0;
    std::vector<int> selections;
    std::vector<std::string> titles = {"Model", "Status"};
    TBPrinters* controller = nullptr; // notified of changed selections, as by a window
    int numberOfRows() const override { return rows; }
    int selectedRow() const override { return selected; }
    void selectRow(int row) override {
        selections.push_back(row);
        const bool changes = row != selected;
        selected = row;
        if (changes && controller != nullptr) controller->tableViewSelectionDidChange(this);
    }
    std::size_t numberOfColumns() const override { return titles.size(); }
    std::string columnTitle(std::size_t column) const override { return titles[column]; }
    void setColumnTitle(std::size_t column, const std::string& title) override { titles[column] = title; }
    void setNeedsDisplay() override { ++redraws; }
};

class ArrayController final : public ArrayControllerOutlet {
  public:
    std::vector<std::string> settings;
    std::vector<std::shared_ptr<TBUSBPrinterZUL>> selected;
    void setPreservesSelection(bool value) override { settings.push_back(value ? "preserves" : "preserves not"); }
    void setAvoidsEmptySelection(bool value) override { settings.push_back(value ? "avoids empty" : "allows empty"); }
    void setSelectsInsertedObjects(bool value) override { settings.push_back(value ? "selects inserted" : "not"); }
    void setSelectedObjects(const std::vector<std::shared_ptr<TBUSBPrinterZUL>>& objects) override {
        selected = objects;
    }
};

class Window final : public WindowOutlet {
  public:
    std::vector<std::string> titles = {"Printers"};
    std::string title() const override { return titles.back(); }
    void setTitle(const std::string& title) override { titles.push_back(title); }
};

struct Shell : PrinterBench {
    Shell() {
        outlets.tableview = &table;
        outlets.window = &window;
        outlets.controller = &arrayController;
        outlets.mainMenu = std::make_shared<Menu>();
        controller = std::make_shared<TBPrinters>(environment, outlets);
        table.controller = controller.get();
        controller->init();
    }
    ServiceToken plug(const std::shared_ptr<ScriptedInterface>& scripted) {
        scripted->answerByDefault();
        service = std::make_shared<ScriptedService>(scripted);
        return registry.serviceArrived(service);
    }
    std::shared_ptr<ScriptedInterface> plugged(std::uint32_t location = 1, std::uint16_t product = 3) {
        auto scripted = std::make_shared<ScriptedInterface>();
        scripted->locationID = location;
        scripted->product = product;
        scripted->setDeviceID("MFG:ZUL;MDL:VK14;SERN:1;");
        token = plug(scripted);
        return scripted;
    }
    void start() {
        controller->awakeFromNib();
        controller->applicationDidFinishLaunching();
        settle();
    }
    ~Shell() {
        for (const ServiceToken left : registry.services()) registry.serviceTerminated(left);
        settle();
    }
    Table table;
    Window window;
    ArrayController arrayController;
    TBPrinters::Outlets outlets;
    std::shared_ptr<TBPrinters> controller;
    std::shared_ptr<ScriptedService> service;
    ServiceToken token = 0;
};

std::string translated(const char* key) {
    return std::string(key) == "Printers" ? "Drucker" : key;
}

} // namespace

TEST_CASE("the main queue has its mark, and a printer's queue does not") {
    Shell shell;
    CHECK(TBPrinters::isMainQueue());
    bool onQueue = true;
    SerialQueue queue("q", shell.clock);
    queue.async([&] { onQueue = TBPrinters::isMainQueue(); });
    shell.settle();
    CHECK(onQueue == false);
}

TEST_CASE("the start stores the displayed version and sets the array controller up") {
    Shell shell;
    shell.bundle.setInfo("CFBundleVersion", "7");
    shell.start();
    CHECK(shell.application.delegate == shell.controller.get());
    CHECK(shell.defaults.stringForKey("prefDisplayVersionString") == "2.06 (build 7)");
    CHECK(shell.defaults.stringForKey("CFBundleShortVersionString") == "2.06");
    CHECK(shell.log.hasLogged("display string is 2.06 (build 7)"));
    CHECK(shell.log.hasLogged("-[TBPrinters awakeFromNib]"));
    CHECK(shell.arrayController.settings ==
          std::vector<std::string>{"preserves not", "avoids empty", "selects inserted"});
    CHECK(shell.table.redraws == 1);
}

TEST_CASE("a missing version is shown as (null) and not stored") {
    Shell shell;
    shell.bundle.setInfo("CFBundleShortVersionString", std::nullopt);
    shell.bundle.setInfo("CFBundleVersion", "7");
    shell.start();
    CHECK(shell.defaults.stringForKey("prefDisplayVersionString") == "(null) (build 7)");
    CHECK(shell.defaults.stringForKey("CFBundleShortVersionString") == std::nullopt);
}

TEST_CASE("the window's title is translated and then becomes the process name") {
    Bundle::setTranslator(translated);
    Shell shell;
    shell.start();
    Bundle::setTranslator(nullptr);
    CHECK(shell.window.titles == std::vector<std::string>{"Printers", "Drucker", "ZUL Printer Utility"});
}

TEST_CASE("menus are translated with their submenus, tool tips and titles, without separators") {
    Shell shell;
    auto submenu = std::make_shared<Menu>(Menu{"Printers", {{"Printers", "", false, nullptr}}});
    Menu menu{"Printers", {{"Other", "Printers", false, submenu}, {"Printers", "Printers", true, nullptr}}};
    Bundle::setTranslator(translated);
    shell.controller->localizeItemsInMenu(menu);
    Bundle::setTranslator(nullptr);
    CHECK(menu.title == "Drucker");
    CHECK(menu.items[0].title == "Other");
    CHECK(menu.items[0].toolTip == "Drucker");
    CHECK(submenu->title == "Drucker");
    CHECK(submenu->items[0].title == "Drucker");
    CHECK(menu.items[1].title == "Printers");
}

TEST_CASE("printers that are attached at the start are listed in bus order without an event") {
    Shell shell;
    shell.plugged(1);
    shell.plugged(2);
    shell.start();
    const auto printers = shell.controller->printers();
    REQUIRE(printers.size() == 2);
    CHECK(printers[0]->locationNumber() == 1);
    CHECK(printers[1]->locationNumber() == 2);
}

TEST_CASE("the list is returned as a copy and cannot be set") {
    Shell shell;
    shell.plugged();
    shell.start();
    auto first = shell.controller->printers();
    first.clear();
    CHECK(shell.controller->printers().size() == 1);
    shell.controller->setPrinters({});
    CHECK(shell.controller->printers().size() == 1);
    CHECK(shell.log.hasLogged("inside -[TBPrinters setPrinters:]"));
    CHECK(shell.controller->updateInProgress() == false);
}

TEST_CASE("an interface of another vendor or product is ignored without a log line and not opened") {
    Shell shell;
    shell.start();
    const auto lines = shell.log.systemLog.size();
    auto foreign = std::make_shared<ScriptedInterface>();
    foreign->vendor = 0x1234;
    shell.plug(foreign);
    shell.plugged(1, 4); // a known vendor with a product that is not accepted
    shell.settle();
    CHECK(shell.controller->printers().empty());
    CHECK(shell.log.systemLog.size() == lines);
    CHECK(shell.log.standardError.empty());
}

TEST_CASE("an interface of the printer class with another subclass is ignored, with a log line that names the "
          "subclass") {
    Shell shell;
    shell.start();
    auto printer = std::make_shared<ScriptedInterface>();
    printer->interfaceSubClass = 2;
    // A service whose subclass cannot be read yet is announced; here it can be read when it is examined.
    printer->expect("GetInterfaceSubClass").returns(kIOReturnNotResponding);
    shell.plug(printer);
    shell.settle();
    CHECK(shell.log.hasLogged("Found a device that is a printer by class, but not by subclass; subClass=2\n"));
    CHECK(shell.controller->printers().empty());
}

TEST_CASE("either vendor is accepted with the accepted product") {
    Shell shell;
    shell.start();
    auto printer = std::make_shared<ScriptedInterface>();
    printer->vendor = 0x2B84;
    shell.plug(printer);
    shell.settle();
    CHECK(shell.controller->printers().size() == 1);
}

TEST_CASE("a handle that cannot be created yields the two error lines and no printer") {
    Shell shell;
    shell.start();
    auto printer = std::make_shared<ScriptedInterface>();
    printer->answerByDefault();
    auto service = std::make_shared<ScriptedService>(printer);
    service->createCode = kIOReturnNotPrivileged;
    shell.registry.serviceArrived(service);
    shell.settle();
    CHECK(shell.controller->printers().empty());
    CHECK(shell.log.standardError ==
          std::vector<std::string>{"ERROR: IOCreatePlugInInterfaceForService() returned [-536870207]\n",
                                   "ERROR: QueryInterface() returned [-536870207]\n"});
}

TEST_CASE("the first descriptor value of a service that cannot be read is logged and ends its examination") {
    Shell shell;
    shell.start();
    for (const char* call : {"GetInterfaceClass", "GetInterfaceSubClass", "GetDeviceVendor", "GetDeviceProduct"}) {
        auto printer = std::make_shared<ScriptedInterface>();
        printer->setAnswer(call, kIOReturnNoDevice);
        shell.plug(printer);
        CHECK(shell.log.hasLogged(std::string(call) + "() returned [-536870208]\n"));
    }
    shell.settle();
    CHECK(shell.controller->printers().empty());
}

TEST_CASE("a printer's departure saves its device info, retires it, and logs both") {
    Shell shell;
    shell.plugged();
    shell.start();
    const auto printer = shell.controller->printers().at(0);
    shell.registry.serviceTerminated(shell.token);
    CHECK(TBUSBPrinter::deviceInfoForKey(printer->keyUSBdevice()) == printer->deviceInfoDict());
    CHECK(printer->isReleased());
    shell.settle();
    CHECK(shell.controller->printers().empty());
    CHECK(shell.log.hasLogged("a printer object was removed ... checking for matching device"));
    CHECK(shell.log.has("removing ZUL VK14 "));
}

TEST_CASE("a departure that matches no printer is logged and changes no row") {
    Shell shell;
    shell.plugged();
    shell.start();
    shell.controller->removedDeviceObject(0xABC);
    CHECK(shell.log.hasLogged("failed to match a printer object for device abc"));
    CHECK(shell.controller->printers().size() == 1);
}

TEST_CASE("adding a printer selects row 0 again if it was selected, and an empty selection remains empty") {
    Shell shell;
    shell.start();
    shell.table.rows = 1;
    shell.table.selected = 0;
    shell.plugged(1);
    shell.settle();
    CHECK(shell.table.selections == std::vector<int>{0});
    shell.table.selections.clear();
    shell.table.selected = -1;
    shell.plugged(2);
    shell.settle();
    CHECK(shell.table.selections.empty());
}

TEST_CASE("every change of selection by the table ends at row 0") {
    Shell shell;
    shell.table.rows = 3;
    shell.table.selectRow(2);
    CHECK(shell.table.selected == 0);
    CHECK(shell.log.hasLogged("rows = 3; selected row = 2"));
    CHECK(shell.log.hasLogged("really selecting row 0"));
    CHECK(shell.log.hasLogged("selecting row 0") == false);
    shell.table.selectRow(-1);
    CHECK(shell.table.selected == 0);
    CHECK(shell.log.hasLogged("selecting row 0"));
    const auto lines = shell.log.systemLog.size();
    shell.controller->tableViewSelectionDidChange(nullptr);
    CHECK(shell.log.systemLog.size() == lines);
}

TEST_CASE("a printer whose version changes becomes the selected object") {
    Shell shell;
    shell.plugged(1);
    shell.plugged(2);
    shell.start();
    const auto second = shell.controller->printers().at(1);
    shell.arrayController.selected.clear();
    {
        const KeyChange change(*second, "firmwareVersion");
        second->deviceInfoDict()->set("firmwareVersion", std::string("VK14 01.61"));
    }
    shell.settle();
    CHECK(shell.arrayController.selected == std::vector<std::shared_ptr<TBUSBPrinterZUL>>{second});
    CHECK(shell.log.hasLogged("-[TBPrinters observeValueForKeyPath:ofObject:change:context:] firmwareVersion"));
}

TEST_CASE("quitting returns at once, releases the arrivals' iterator and keeps the departures'") {
    Shell shell;
    shell.plugged();
    shell.start();
    CHECK(shell.controller->applicationShouldTerminateAfterLastWindowClosed(&shell.application));
    CHECK(shell.controller->applicationShouldTerminate() == TerminateReply::now);
    CHECK(shell.controller->printerIterator() == nullptr);
    CHECK(shell.controller->removedIterator() != nullptr);
    CHECK(shell.log.hasLogged("inside -[TBPrinters applicationShouldTerminate:]\n"));
    CHECK(shell.log.hasLogged("inside -[TBPrinters prepareForTermination]\n"));
    shell.controller->prepareForTermination(); // every step may be repeated
    shell.settle();
    CHECK(shell.controller->printers().empty());
    shell.plugged(5);
    shell.settle();
    CHECK(shell.controller->printers().empty());
}

TEST_CASE("the diagnostic switch reports changes made outside the main queue") {
    Shell shell;
    shell.plugged();
    shell.start();
    TBPrinters::swapImpsforPrivateAPI();
    const auto printer = shell.controller->printers().at(0);
    printer->setPrinterStatus("Idle");
    CHECK(shell.log.has("newPrivateAPI_Imp @#@#@#@#@#@#@#@#@#@#@#@# printerStatus"));
    printer->performInlineOnCommandQueue([printer] { const KeyChange change(*printer, "printerStatus"); });
    shell.settle();
    CHECK(shell.log.hasLogged("setting printerStatus off Main QUEUE!"));
    CHECK(shell.log.has("newPrivateAPI_Imp &&&&&&&&&&&&&&&&&&&&&&&& printerStatus"));
    KeyValueObservable::setChangeDiagnostic(nullptr);
}
