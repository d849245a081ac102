// The alert routine and the waits, without a whole update.
#include "PrinterBench.h"

using namespace zul;
using namespace zul::test;

TEST_CASE("an alert with neither title nor message is not shown and calls no completion") {
    PrinterBench bench;
    bench.inlinePrinter();
    int answers = 0;
    bench.printer->showCustomAlertWithTitle({.messageText = "", .completion = [&](int) { ++answers; }});
    bench.printer->showAlertWithTitle("", "", std::nullopt, [&](int) { ++answers; });
    bench.settle();
    CHECK(bench.alerts.shown.empty());
    CHECK(answers == 0);
}

TEST_CASE("a missing title becomes Alert, and missing buttons one OK") {
    PrinterBench bench;
    bench.inlinePrinter()->showAlertWithTitle(std::nullopt, std::nullopt, std::nullopt, {});
    bench.printer->showCustomAlertWithTitle({.informativeText = "m"});
    bench.settle();
    REQUIRE(bench.alerts.shown.size() == 2);
    for (const auto& alert : bench.alerts.shown) {
        CHECK(alert.messageText == "Alert");
        CHECK(alert.buttons == std::vector<std::string>{"OK"});
        CHECK(alert.style == AlertStyle::warning);
        CHECK(alert.iconName == "ZUL_VK_Series");
        CHECK(alert.isModal == false);
    }
    CHECK(bench.alerts.shown[1].informativeText == "m");
}

TEST_CASE("an alert is posted, not shown synchronously") {
    PrinterBench bench;
    bench.inlinePrinter()->showAlertWithTitle("t", "m", std::vector<std::string>{"A", "B"}, {});
    CHECK(bench.alerts.shown.empty());
    bench.settle();
    CHECK(bench.alerts.shown.size() == 1);
    CHECK(bench.log.has("showCustomAlertWithTitle:message:buttonTitles:accessoryView:alertStyle:customLayout:"));
}

TEST_CASE("the older form of the alert shows the same") {
    PrinterBench bench;
    bench.inlinePrinter()->old_showAlertWithTitle(std::nullopt, "m", std::nullopt, {});
    bench.settle();
    REQUIRE(bench.alerts.shown.size() == 1);
    CHECK(bench.alerts.shown[0].messageText == "Alert");
    CHECK(bench.alerts.shown[0].buttons == std::vector<std::string>{"OK"});
}

TEST_CASE("the agreement box is 72 by 18, off, and only a box can change the agreement") {
    PrinterBench bench;
    bench.inlinePrinter()->ShowRZ7Warning();
    bench.settle();
    REQUIRE(bench.alerts.shown.size() == 1);
    const auto box = bench.alerts.shown[0].accessory;
    REQUIRE(box);
    CHECK(box->title == "I Agree");
    CHECK(box->width == 72);
    CHECK(box->height == 18);
    CHECK(box->type == ButtonType::switchButton);
    CHECK(box->state == 0);
    auto notices = std::make_shared<Notices>();
    bench.printer->addObserver(notices, "customerDidAgree", nullptr);
    bench.printer->setToggleAgreed(nullptr);
    CHECK(notices->count["customerDidAgree"] == 0);
    box->state = 1;
    box->action(*box);
    CHECK(bench.printer->customerDidAgree());
    CHECK(notices->count["customerDidAgree"] == 1);
    bench.printer->ShowRZ7Warning();
    CHECK(bench.printer->customerDidAgree() == false);
}

TEST_CASE("a tick in an earlier agreement of the printer does not enable the next one's Continue") {
    struct Layout final : AlertLayout {
        std::function<bool()> isContinueEnabled;
        std::size_t buttonCount() const override { return 2; }
        void bindButtonEnabled(std::size_t /*button*/, const std::shared_ptr<KeyValueObservable>& /*object*/,
                               const std::string& /*keyPath*/, std::function<bool()> isEnabled) override {
            isContinueEnabled = std::move(isEnabled);
        }
    };
    PrinterBench bench;
    bench.inlinePrinter()->ShowRZ7Warning();
    bench.printer->ShowRZ7Warning();
    bench.settle();
    REQUIRE(bench.alerts.shown.size() == 2); // both were created before the first one was shown
    Layout first;
    bench.alerts.shown[0].layout(first);
    const auto box = bench.alerts.shown[0].accessory;
    box->state = 1;
    box->action(*box);
    CHECK(first.isContinueEnabled());
    Layout second;
    bench.alerts.shown[1].layout(second);
    CHECK_FALSE(second.isContinueEnabled());
    CHECK_FALSE(bench.printer->customerDidAgree());
}

TEST_CASE("Continue without the tick does not continue") {
    PrinterBench bench;
    bench.inlinePrinter()->ShowRZ7Warning();
    bench.settle();
    bench.alerts.shown[0].completion(kAlertSecondButton);
    bench.settle();
    CHECK(bench.alerts.shown.size() == 1);
    CHECK(bench.application.terminations == 0);
}

TEST_CASE("a power cycle is requested only while the device does not yet report the new setting") {
    struct Row {
        const char* setting;
        bool hasSerial;
        bool isShown;
    };
    for (const Row& row :
         {Row{"1", true, false}, Row{"0", false, false}, Row{"1", false, true}, Row{"0", true, true}}) {
        PrinterBench bench;
        bench.inlinePrinter(0x8B01)->deviceInfoDict()->set(HOLVEN_ZUL_USB_ISerialisSet, std::string(row.setting));
        bench.printer->setSerialNumberUSB(row.hasSerial ? std::optional<std::string>("S") : std::nullopt);
        bench.defaults.setBool(HOLVEN_ZUL_USB_SuppressPowerCycleAlert, true); // never suppresses it
        bench.printer->showPowerCycleAlert();
        bench.settle();
        CHECK(bench.alerts.shown.size() == (row.isShown ? 1 : 0));
    }
}

TEST_CASE("the power-cycle alert remembers a suppression if its box were ever shown") {
    PrinterBench bench;
    bench.inlinePrinter(0x8B01)->setSerialNumberUSB("S");
    bench.printer->showPowerCycleAlert();
    bench.settle();
    const auto& alert = bench.alerts.shown.at(0);
    CHECK(alert.isModal);
    CHECK(alert.isSuppressionHidden);
    alert.completion(kAlertFirstButton);
    CHECK(bench.defaults.boolForKey(HOLVEN_ZUL_USB_SuppressPowerCycleAlert) == false);
    alert.suppression->state = 1;
    alert.completion(kAlertFirstButton);
    CHECK(bench.defaults.boolForKey(HOLVEN_ZUL_USB_SuppressPowerCycleAlert));
}

TEST_CASE("a wait queries every half second and ends when the texts are equal") {
    PrinterBench bench;
    bench.inlinePrinter();
    bench.reply("00001\r");
    bench.reply("00900\r");
    bench.reply("0\r"); // its text is Idle, like that of 00000
    const auto before = bench.clock.elapsed();
    CHECK(bench.printer->waitForPrinterStatusCode("00000"));
    CHECK(bench.clock.elapsed() - before == std::chrono::seconds(1));
    CHECK(bench.commands().size() == 3);
}

TEST_CASE("a wait continues after refused opens and missing replies") {
    PrinterBench bench;
    bench.inlinePrinter();
    bench.handle->setFault(1, kIOReturnExclusiveAccess);
    bench.handle->enqueueRead({}, kIOUSBTransactionTimeout);
    bench.handle->expect("resynchronize"); // before the next query: the reply may still come
    bench.handle->expectWritePipeTO(1, [](const Data&) { return true; }).during([&] { bench.reply("00000\r"); });
    CHECK(bench.printer->waitForPrinterStatusCode("00000"));
    CHECK(bench.commands().size() == 2);
}

TEST_CASE("the progress value is saved for the successor if requested") {
    PrinterBench bench;
    bench.inlinePrinter()->setFirmwareUpdateStatus(2);
    bench.settle();
    const auto saved = TBUSBPrinter::deviceInfoForKey(bench.printer->keyUSBdevice());
    CHECK(saved == bench.printer->deviceInfoDict());
    CHECK(saved->integer("deviceFirmwareStatus") == 2);
    CHECK(bench.log.has("writing key:2A71000314100000 for dict:"));
}

TEST_CASE("the text in place of the status is announced and shown") {
    PrinterBench bench;
    bench.inlinePrinter()->setOverridePrinterStatus("Writing firmware ...");
    bench.settle();
    CHECK(bench.printer->printerStatus() == "Writing firmware ...");
    CHECK(bench.log.hasLogged("forcing printer status string to \"Writing firmware ...\""));
}
