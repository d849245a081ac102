// Messages about a printer's service, resets, probe and release.
#include "PrinterBench.h"

#include "Classes/StatusCodeNames.h"

using namespace zul;
using namespace zul::test;

namespace {

void send(const PrinterBench& bench, IOMessage message) {
    TBUSBPrinter::usbInterfaceInterestCallback(bench.printer, 7, message, nullptr);
}

} // namespace

TEST_CASE("taking a service registers for its messages, opens once and closes afterwards") {
    PrinterBench bench;
    bench.printerWithQueue();
    CHECK(bench.printer->deviceObject() == 7);
    CHECK(bench.printer->creationToken() == 7);
    CHECK(bench.log.hasLogged("-[TBUSBPrinter setDeviceObject:] (7)"));
    CHECK(bench.log.hasLogged("-[TBUSBPrinter setDeviceObject:] (7) --- on command queue"));
    CHECK(bench.log.hasLogged("setting new IOUSBInterface class IOService object\n"));
    CHECK(bench.handle->count("USBInterfaceOpenSeize") == 1);
    CHECK(bench.handle->count("USBInterfaceClose") == 1);
    CHECK(bench.printer->state() == kTBPrinterClosed);
}

TEST_CASE("taking the same service twice is refused with a log line") {
    PrinterBench bench;
    bench.printerWithQueue();
    bench.printer->setDeviceObject(7);
    bench.settle();
    CHECK(bench.log.hasLogged("FAILED -[TBUSBPrinter setDeviceObject:] (7) --- oddly it was somehow already set"));
    CHECK(bench.handle->count("USBInterfaceOpenSeize") == 1);
}

TEST_CASE("a printer that is held at its first open keeps waiting for the holder") {
    PrinterBench bench;
    bench.handle->setAnswer("USBInterfaceOpenSeize", kIOReturnExclusiveAccess);
    bench.printerWithQueue();
    CHECK(bench.printer->ownership() == Ownership::otherProgram);
    CHECK(bench.printer->state() == kTBPrinterOpening);
    CHECK(bench.handle->isWatched());
}

TEST_CASE("a terminated service saves its printer's dictionary, even an empty one") {
    PrinterBench bench;
    bench.inlinePrinter();
    REQUIRE(bench.printer->deviceInfoDict()->count() == 0);
    send(bench, kIOMessageServiceIsTerminated);
    CHECK(TBUSBPrinter::deviceInfoForKey(bench.printer->keyUSBdevice()) == bench.printer->deviceInfoDict());
    CHECK(bench.log.has(" (device 00000007) was removed\n"));
}

TEST_CASE("a holder's close has no effect on a printer without device info") {
    PrinterBench bench;
    bench.inlinePrinter();
    send(bench, kIOMessageServiceWasClosed);
    CHECK(bench.printer->status() == std::nullopt);
    CHECK(bench.handle->count("USBInterfaceOpenSeize") == 0);
}

TEST_CASE("a holder's close makes the printer available if nothing waits for it") {
    PrinterBench bench;
    bench.inlinePrinter()->setPrinterStatus("Idle");
    send(bench, kIOMessageServiceWasClosed);
    CHECK(bench.printer->status() == "USB Available");
}

TEST_CASE("an attempt to open is shown according to the printer's state") {
    PrinterBench bench;
    bench.inlinePrinter();
    send(bench, kIOMessageServiceIsAttemptingOpen);
    CHECK(bench.printer->status() == "USB Busy");

    bench.handle->setAnswer("USBInterfaceOpenSeize", kIOReturnExclusiveAccess);
    static_cast<void>(bench.printer->openInterface());
    send(bench, kIOMessageServiceIsAttemptingOpen);
    CHECK(bench.printer->status() == "Waiting for USB");

    bench.handle->setAnswer("USBInterfaceOpenSeize", kIOReturnSuccess);
    static_cast<void>(bench.printer->openInterface());
    send(bench, kIOMessageServiceIsAttemptingOpen);
    CHECK(bench.printer->status() == "USB Open");

    bench.printer->setState(kTBPrinterOpening); // the interface is open, its state is not announced yet
    REQUIRE(bench.printer->didOpenInterface());
    send(bench, kIOMessageServiceIsAttemptingOpen);
    CHECK(bench.printer->state() == kTBPrinterOpen);
}

TEST_CASE("an attempt to open in the probed state closes it without a text") {
    PrinterBench bench;
    bench.inlinePrinter()->setState(kTBPrinterProbed);
    send(bench, kIOMessageServiceIsAttemptingOpen);
    CHECK(bench.printer->state() == kTBPrinterClosed);
    CHECK(bench.printer->status() == std::nullopt);
}

TEST_CASE("any other message shows OK, except a change of the busy state, which shows no text") {
    PrinterBench bench;
    bench.inlinePrinter();
    send(bench, kIOMessageServiceBusyStateChange);
    CHECK(bench.printer->status() == std::nullopt);
    send(bench, static_cast<IOMessage>(0xE0000130));
    CHECK(bench.printer->status() == "OK");
    CHECK(bench.log.has("kIOMessageServicePropertyChange(e0000130); arg = "));
}

TEST_CASE("during an update no status text changes, but states do") {
    PrinterBench bench;
    bench.inlinePrinter()->setPrinterStatus("Idle");
    bench.printer->setInFirmwareUpdate(true);
    bench.printer->setState(kTBPrinterProbed);
    send(bench, kIOMessageServiceIsAttemptingOpen);
    send(bench, kIOMessageServiceIsAttemptingOpen);
    send(bench, kIOMessageServiceWasClosed);
    send(bench, static_cast<IOMessage>(0xE0000130));
    CHECK(bench.printer->status() == std::nullopt);
    CHECK(bench.printer->state() == kTBPrinterClosed);
}

TEST_CASE("a soft reset has the recipient interface, or other if requested") {
    PrinterBench bench;
    bench.handle->interfaceNumber = 2;
    bench.inlinePrinter();
    bench.handle->setAnswer("ControlRequestTO", kIOReturnSuccess);
    CHECK(bench.printer->resetUSBPrinter() == kIOReturnSuccess);
    CHECK(bench.printer->resetUSBPrinter(Recipient::other) == kIOReturnSuccess);
    Journal requests;
    for (const auto& entry : bench.handle->journal()) {
        if (entry.call == "ControlRequestTO") requests.push_back(entry);
    }
    REQUIRE(requests.size() == 2);
    CHECK(requests[0].request.bmRequestType == 0x21);
    CHECK(requests[1].request.bmRequestType == 0x23);
    for (const auto& entry : requests) {
        CHECK(entry.request.bRequest == 2);
        CHECK(entry.request.wValue == 0);
        CHECK(entry.request.wIndex == 2);
        CHECK(entry.request.wLength == 0);
        CHECK(entry.completionTimeout == 100);
    }
}

TEST_CASE("a device reset opens the device, resets and closes") {
    PrinterBench bench;
    bench.inlinePrinter();
    CHECK(bench.printer->resetUSBDevice() == kIOReturnSuccess);
    CHECK(bench.handle->count("USBDeviceOpen") == 1);
    CHECK(bench.handle->count("ResetDevice") == 1);
    CHECK(bench.handle->count("USBDeviceClose") == 1);
    bench.handle->setAnswer("USBDeviceOpen", kIOReturnExclusiveAccess);
    CHECK(bench.printer->resetUSBDevice() == kIOReturnExclusiveAccess);
    CHECK(bench.handle->count("ResetDevice") == 1);
}

TEST_CASE("a missing device handle is reported with the code's name") {
    PrinterBench bench;
    bench.handle->setAnswer("GetDevice", kIOReturnNotPrivileged);
    bench.inlinePrinter();
    CHECK(bench.printer->deviceInterface() == nullptr);
    CHECK(bench.log.standardError.back() == "ERROR: IOCreatePlugInInterfaceForService() returned (" +
                                                std::string(strForIOReturn(kIOReturnNotPrivileged)) + ")\n");
}

TEST_CASE("a re-enumeration without a device handle fails without a log line") {
    PrinterBench bench;
    const auto printer = std::make_shared<TBUSBPrinter>(bench.environment);
    const auto before = bench.log.systemLog.size();
    CHECK(printer->reEnumerateUSBDevice() == kIOReturnError);
    CHECK(bench.log.systemLog.size() == before);
}

TEST_CASE("a re-enumeration is logged with its result") {
    PrinterBench bench;
    bench.inlinePrinter();
    CHECK(bench.printer->reEnumerateUSBDevice() == kIOReturnSuccess);
    CHECK(bench.log.has("Successfully reenumerated "));
    bench.handle->setAnswer("USBDeviceReEnumerate", kIOReturnNotResponding);
    CHECK(bench.printer->reEnumerateUSBDevice() == kIOReturnNotResponding);
    CHECK(bench.log.has("(kIOReturnNotResponding)"));
}

TEST_CASE("a released printer has released its handles and replies like a detached device") {
    PrinterBench bench;
    bench.printerWithQueue();
    bench.printer->prepareForRelease();
    bench.settle();
    CHECK(bench.printer->deviceObject() == 0);
    CHECK(bench.handle.use_count() == 1);
    std::optional<IOReturn> result;
    bench.printer->openInterface([&](IOReturn code) { result = code; });
    bench.settle();
    CHECK(result == kIOReturnNoDevice);
}

TEST_CASE("a probe is announced and queries the device info") {
    PrinterBench bench;
    bench.inlinePrinter()->probe();
    CHECK(bench.log.has("running probe on "));
    CHECK(bench.commands() == std::vector<std::string>{"STATUS"});
}
