// The printer object's queues and its interface: open, close, pipes, transfers, ownership.
#include "PrinterBench.h"

#include <csignal>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace zul;
using namespace zul::test;

TEST_CASE("before the device ID is decoded there is no queue and everything runs inline") {
    PrinterBench bench;
    bench.inlinePrinter();
    CHECK(bench.printer->printerCommandQueue() == nullptr);
    CHECK(bench.printer->isPrinterCommandQueue());
    int ran = 0;
    bench.printer->performInlineOnCommandQueue([&] { ++ran; });
    bench.printer->sendNoReplyPrinterCommand([&] { ++ran; });
    bench.printer->closeInterface([&](IOReturn) { ++ran; });
    CHECK(ran == 3);
}

TEST_CASE("a printer with a decoded device ID has a queue, labelled with its identity") {
    PrinterBench bench;
    bench.printerWithQueue("MFG:Zul Imaging Company;MDL:VK14;SERN:42;");
    REQUIRE(bench.printer->printerCommandQueue());
    CHECK(bench.printer->printerCommandQueue()->label().ends_with("printer.ZUL.VK14.42"));
    CHECK(bench.log.has("printer command queue:"));
    CHECK(bench.printer->isPrinterCommandQueue() == false);
    CHECK(bench.printer->deviceInfoDict()->string("manufacturer") == "ZUL");
    CHECK(bench.printer->deviceInfoDict()->string("model") == "VK14");
}

TEST_CASE("the label falls back to the USB serial number") {
    PrinterBench bench;
    bench.handle->setString(3, u"USB7");
    bench.printerWithQueue("MFG:ZUL;MDL:VK14;");
    CHECK(bench.printer->printerCommandQueue()->label().ends_with("printer.ZUL.VK14.USB7"));
}

TEST_CASE("work for the command queue runs inline there and is queued from other threads") {
    PrinterBench bench;
    bench.printerWithQueue();
    std::vector<int> order;
    bench.printer->performInlineOnCommandQueue([&] {
        bench.printer->performInlineOnCommandQueue([&] { order.push_back(1); });
        order.push_back(2);
    });
    bench.settle();
    CHECK(order == std::vector<int>{1, 2});
}

TEST_CASE("without a named queue a reply is delivered on the main queue, or inline on the command queue") {
    PrinterBench bench;
    bench.printerWithQueue();
    bool onMain = false;
    bool onQueue = false;
    bench.printer->TBUSBPrinter::sendPrinterCommand([] {}, ReplyQueue::mainQueue(),
                                                    [&](const auto&) { onMain = TBUSBPrinter::isMainQueue(); });
    bench.printer->TBUSBPrinter::sendPrinterCommand(
        [] {}, ReplyQueue::commandQueue(), [&](const auto&) { onQueue = bench.printer->isPrinterCommandQueue(); });
    bench.settle();
    CHECK(onMain);
    CHECK(onQueue);
}

TEST_CASE("a reply is delivered on the queue that the caller names, or inline if that is the command queue") {
    PrinterBench bench;
    bench.printerWithQueue();
    auto others = std::make_shared<SerialQueue>("others", bench.clock);
    int key = 0;
    others->setSpecific(&key, others.get());
    bool onOthers = false;
    std::vector<int> order;
    bench.printer->TBUSBPrinter::sendPrinterCommand(
        [] {}, ReplyQueue::on(others), [&](const auto&) { onOthers = Queue::currentSpecific(&key) == others.get(); });
    bench.printer->performInlineOnCommandQueue([&] {
        bench.printer->TBUSBPrinter::sendPrinterCommand([] {}, ReplyQueue::on(bench.printer->printerCommandQueue()),
                                                        [&](const auto&) { order.push_back(1); });
        order.push_back(2);
    });
    bench.settle();
    CHECK(onOthers);
    CHECK(order == std::vector<int>{1, 2});
}

TEST_CASE("a command without a block ends the program with a message that names the missing block") {
    TemporaryFolder folder;
    const auto output = folder.path / "stderr";
    for (const bool wantsReply : {false, true}) {
        const pid_t child = ::fork();
        REQUIRE(child >= 0);
        if (child == 0) {
            std::signal(SIGABRT, SIG_DFL); // without the test framework's report
            ::dup2(::open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDERR_FILENO);
            PrinterBench bench;
            bench.inlinePrinter();
            if (wantsReply) bench.printer->TBUSBPrinter::sendPrinterCommand({}, ReplyQueue::mainQueue(), {});
            if (!wantsReply) bench.printer->sendNoReplyPrinterCommand({});
            ::_exit(0);
        }
        int status = 0;
        REQUIRE(::waitpid(child, &status, 0) == child);
        CHECK(WIFSIGNALED(status));
        CHECK(WTERMSIG(status) == SIGABRT);
        CHECK(TemporaryFolder::read(output).find("you must supply a commandBlock") != std::string::npos);
    }
}

TEST_CASE("opening an open printer makes no call to the device") {
    PrinterBench bench;
    bench.openPrinter();
    CHECK(bench.printer->openInterface() == kIOReturnSuccess);
    CHECK(bench.handle->count("USBInterfaceOpenSeize") == 0);
}

TEST_CASE("a successful open owns the interface, finds its pipes and is announced") {
    PrinterBench bench;
    bench.inlinePrinter();
    auto notices = std::make_shared<Notices>();
    bench.printer->addObserver(notices, KeyValueObservable::kEveryKey, nullptr);
    CHECK(bench.printer->openInterface() == kIOReturnSuccess);
    CHECK(bench.printer->state() == kTBPrinterOpen);
    CHECK(bench.printer->interfaceStatus() == 2);
    CHECK(bench.printer->isInterfaceOpen());
    CHECK(bench.printer->ownership() == Ownership::thisProgram);
    CHECK(notices->count["isOwned"] == 1);
    CHECK(bench.log.has(" is open.\n"));
}

TEST_CASE("after a refused open the printer is opening, owned by another program, and shown so") {
    PrinterBench bench;
    bench.inlinePrinter();
    bench.handle->setAnswer("USBInterfaceOpenSeize", kIOReturnExclusiveAccess);
    CHECK(bench.printer->openInterface() == kIOReturnExclusiveAccess);
    CHECK(bench.printer->ownership() == Ownership::otherProgram);
    CHECK(bench.printer->isOwned());
    CHECK(bench.printer->state() == kTBPrinterOpening);
    CHECK(bench.printer->willOpenInterface());
    CHECK(bench.printer->printerStatus() == "In use by other application");
    CHECK(bench.log.hasLogged("Another app has the printer USB interface open for exclusive access.\n"));
    CHECK(bench.log.hasLogged("Waiting for USB interface on device 00000000 to be closed...\n"));
    CHECK(bench.log.hasLogged("The printer is busy.\n"));
    CHECK(bench.handle->isWatched());
}

TEST_CASE("after any other failed open the printer remains opening, and the code is returned") {
    PrinterBench bench;
    bench.inlinePrinter();
    bench.handle->setAnswer("USBInterfaceOpenSeize", kIOReturnNotResponding);
    CHECK(bench.printer->openInterface() == kIOReturnNotResponding);
    CHECK(bench.printer->state() == kTBPrinterOpening);
    CHECK(bench.printer->ownership() == Ownership::none);
}

TEST_CASE("a successful close is announced") {
    PrinterBench bench;
    bench.openPrinter();
    IOReturn code = kIOReturnError;
    bench.printer->closeInterface([&](IOReturn result) { code = result; });
    CHECK(code == kIOReturnSuccess);
    CHECK(bench.log.hasLogged("The " + bench.printer->descriptionUTF8() + " was closed.\n"));
}

TEST_CASE("closing a printer that is not open still closes its states and returns 0") {
    PrinterBench bench;
    bench.inlinePrinter();
    bench.handle->setAnswer("USBInterfaceOpenSeize", kIOReturnExclusiveAccess);
    static_cast<void>(bench.printer->openInterface());
    std::optional<IOReturn> result;
    bench.printer->closeInterface([&](IOReturn code) { result = code; });
    CHECK(result == kIOReturnSuccess);
    CHECK(bench.printer->state() == kTBPrinterClosed);
    CHECK(bench.printer->interfaceStatus() == 1);
    CHECK(bench.printer->ownership() == Ownership::none);
    CHECK(bench.handle->count("USBInterfaceClose") == 0);
}

TEST_CASE("a failed close is logged by name, and the states are closed nevertheless") {
    PrinterBench bench;
    bench.openPrinter();
    bench.handle->setAnswer("USBInterfaceClose", kIOReturnNoDevice);
    std::optional<IOReturn> result;
    bench.printer->closeInterface([&](IOReturn code) { result = code; });
    CHECK(result == kIOReturnNoDevice);
    CHECK(bench.log.hasLogged("close interface returned error kIOReturnNoDevice\n"));
    CHECK(bench.printer->state() == kTBPrinterClosed);
}

TEST_CASE("a close runs after the work that is already queued, even if it is requested on the queue itself") {
    PrinterBench bench;
    bench.printerWithQueue();
    std::vector<int> order;
    bench.printer->performInlineOnCommandQueue([&] {
        bench.printer->closeInterface([&](IOReturn) { order.push_back(2); });
        order.push_back(1);
    });
    bench.settle();
    CHECK(order == std::vector<int>{1, 2});
}

TEST_CASE("only bulk pipes are used, and a later one of the same direction replaces the earlier") {
    PrinterBench bench;
    bench.handle->endpoints = {{PipeDirection::in, 1, 3, 8, 1},
                               {PipeDirection::out, 2, 2, 512, 0},
                               {PipeDirection::in, 3, 2, 512, 0},
                               {PipeDirection::out, 4, 2, 512, 0}};
    bench.openPrinter()->writeToInterfaceWithData({1, 2, 3});
    static_cast<void>(bench.printer->interfaceReadDataOfSize(4));
    const Journal journal = bench.handle->journal();
    REQUIRE(journal.size() == 2);
    CHECK(journal[0].pipe == 4);
    CHECK(journal[1].pipe == 3);
}

TEST_CASE("a failure to count the endpoints is logged") {
    PrinterBench bench;
    bench.inlinePrinter();
    bench.handle->setAnswer("GetNumEndpoints", kIOReturnNoDevice);
    bench.printer->getPipes();
    CHECK(bench.log.has("failure for GetNumEndpoints on the open USB device; error=[-536870208]\n"));
}

TEST_CASE("a short read keeps the requested size, padded with zeros") {
    PrinterBench bench;
    bench.openPrinter();
    bench.handle->enqueueRead(Data(10, 'x'));
    const auto data = bench.printer->interfaceReadDataOfSize(64);
    REQUIRE(data);
    Data expected(64, 0);
    std::fill_n(expected.begin(), 10, 'x');
    CHECK(*data == expected);
}

TEST_CASE("a failed read returns no data") {
    PrinterBench bench;
    bench.openPrinter();
    bench.handle->enqueueRead({}, kIOReturnOverrun);
    CHECK(bench.printer->interfaceReadDataOfSize(8) == std::nullopt);
}

TEST_CASE("taking the ownership opens, and releasing it closes") {
    PrinterBench bench;
    bench.inlinePrinter();
    bench.printer->setIsOwned(1);
    CHECK(bench.printer->ownership() == Ownership::thisProgram);
    bench.printer->setIsOwned(0);
    CHECK(bench.printer->ownership() == Ownership::none);
    CHECK(bench.handle->count("USBInterfaceOpenSeize") == 1);
    CHECK(bench.handle->count("USBInterfaceClose") == 1);
}

TEST_CASE("taking a printer that another program holds closes it and replays the attempt to open") {
    PrinterBench bench;
    bench.inlinePrinter();
    bench.handle->setAnswer("USBInterfaceOpenSeize", kIOReturnExclusiveAccess);
    static_cast<void>(bench.printer->openInterface());
    bench.printer->setIsOwned(1);
    CHECK(bench.printer->ownership() == Ownership::none);
    CHECK(bench.log.has("kIOMessageServiceIsAttemptingOpen(e0000101); arg = "));
    CHECK(bench.printer->status() == "USB Busy"); // closed and not in the probed state
}

TEST_CASE("several hints that the other holder has released the printer cause one retry") {
    PrinterBench bench;
    bench.printerWithQueue();
    bench.settle();
    bench.handle->setAnswer("USBInterfaceOpenSeize", kIOReturnExclusiveAccess);
    bench.printer->openInterface(nullptr);
    bench.settle();
    REQUIRE(bench.printer->ownership() == Ownership::otherProgram);
    bench.handle->setAnswer("tryClaim", kIOReturnSuccess);
    bench.handle->setAnswer("USBInterfaceOpenSeize", kIOReturnSuccess);
    for (int hint = 0; hint < 3; ++hint) bench.handle->holderMayBeFree();
    bench.settle();
    CHECK(bench.log.times("kIOMessageServiceWasClosed(e0000110)") == 1);
}

TEST_CASE("the other holder's close is checked with a silent claim and causes one retry") {
    PrinterBench bench;
    bench.inlinePrinter();
    bench.handle->setAnswer("USBInterfaceOpenSeize", kIOReturnExclusiveAccess);
    static_cast<void>(bench.printer->openInterface());
    bench.handle->setAnswer("tryClaim", kIOReturnExclusiveAccess);
    bench.handle->holderMayBeFree();
    bench.settle();
    CHECK(bench.log.has("kIOMessageServiceWasClosed") == false);

    bench.handle->setAnswer("tryClaim", kIOReturnSuccess);
    bench.handle->setAnswer("USBInterfaceOpenSeize", kIOReturnSuccess);
    bench.handle->holderMayBeFree();
    bench.settle();
    CHECK(bench.log.times("kIOMessageServiceWasClosed(e0000110)") == 1);
    CHECK(bench.commands() == std::vector<std::string>{"STATUS"}); // queried at once, and closed again
    CHECK(bench.printer->state() == kTBPrinterClosed);
}
