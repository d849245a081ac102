// A session without a user interface: what it reports about printers that cannot be used.
#include "session/PrinterInfo.h"
#include "session/Session.h"
#include "support/LogCapture.h"
#include "support/ScriptedInterface.h"
#include "support/SimulatedClock.h"
#include "support/TemporaryFolder.h"

#include <cstdlib>
#include <doctest/doctest.h>
#include <nlohmann/json.hpp>
#include <thread>

using namespace zul;

namespace {

class NoAlerts final : public AlertOutlet {
  public:
    void beginAlert(AlertDescription /*alert*/) override { FAIL("unexpected alert"); }
};

class TestApplication final : public ApplicationOutlet {
  public:
    void setDelegate(TBPrinters* /*delegate*/) override {}
    void terminate() override {}
    std::string processName() const override { return "zulctl"; }
};

class Watcher final : public SessionObserver {
  public:
    int changes = 0;
    void updateDidChange(const std::string& /*key*/) override {}
    void updateDidEnd(const std::string& /*key*/) override {}
    void unusablePrinterDidArrive(const std::string& /*message*/) override {}
    void unusablePrintersDidChange() override { ++changes; }
};

// A session with one embedded printer, and a bus to which a test adds printers.
struct SessionLab {
    SessionLab() {
        ::setenv("XDG_STATE_HOME", folder.path.c_str(), 1);
        SessionOptions options;
        options.virtualPrinters = {"VK14"};
        session.emplace(options, alerts, application, &clock);
        session->setObserver(&watcher);
        REQUIRE_FALSE(session->start({}));
        settle();
    }
    ~SessionLab() {
        settle();
        session->setObserver(nullptr);
        session->endBus();
        settle();
        session->controller->prepareForTermination();
        session->mainQueue.close();
        session.reset();
        while (SerialQueue::liveThreads() > 0) std::this_thread::yield();
        ::unsetenv("XDG_STATE_HOME");
    }
    void settle() { clock.drain(session->mainQueue); }
    static std::shared_ptr<ScriptedInterface> printer() {
        auto handle = std::make_shared<ScriptedInterface>();
        handle->answerByDefault();
        handle->setDeviceID("MFG:ZUL;MDL:VK14;SERN:7;");
        handle->locationID = 0x01700000;
        return handle;
    }
    void attach(const std::shared_ptr<ScriptedInterface>& handle) {
        const auto service = std::make_shared<ScriptedService>(handle);
        service->location = "1-7";
        session->registry.serviceArrived(service);
        settle();
    }

    LogCapture log;
    TemporaryFolder folder;
    SimulatedClock clock;
    NoAlerts alerts;
    TestApplication application;
    Watcher watcher;
    std::optional<Session> session;
};

} // namespace

TEST_CASE("a listed printer is among the hints while opening it is not permitted, and the observer is notified of "
          "both") {
    SessionLab lab;
    CHECK(lab.session->unusablePrinters().empty());
    const auto handle = SessionLab::printer();
    handle->setAnswer("USBInterfaceOpenSeize", kIOReturnNotPrivileged);
    lab.attach(handle);
    REQUIRE(lab.session->printers().size() == 2);
    REQUIRE(lab.session->unusablePrinters().size() == 1);
    CHECK(lab.session->unusablePrinters().front().find("(1-7) may not be used: no right to open") != std::string::npos);
    CHECK(lab.watcher.changes > 1); // the arrival is one of them
    handle->setAnswer("USBInterfaceOpenSeize", kIOReturnSuccess);
    const int changes = lab.watcher.changes;
    const auto printer = lab.session->printers().back();
    printer->openInterface(nullptr);
    printer->closeInterface(nullptr);
    lab.settle();
    CHECK(lab.session->unusablePrinters().empty());
    CHECK(lab.watcher.changes > changes);
}

TEST_CASE("an update of a printer that may not be opened ends with the missing right, not with a power cycle") {
    SessionLab lab;
    const auto handle = SessionLab::printer();
    handle->setAnswer("USBInterfaceOpenSeize", kIOReturnNotPrivileged);
    lab.attach(handle);
    const auto printer = lab.session->printers().back();
    UpdateSupervisor& supervisor = lab.session->supervisor;
    supervisor.begin(printer, UpdateSupervisor::Equal::install);
    lab.session->recorder.flush();
    lab.settle();
    const Update& update = supervisor.updates().at(printer->keyUSBdevice());
    CHECK(update.verdict.result == UpdateResult::notOpened);
    CHECK(update.verdict.isUntouched());
    CHECK(update.verdict.reason == "this user has no right to open the printer");
    CHECK(update.advice.starts_with("Run \"zulctl doctor\":"));
}

TEST_CASE("a printer that another process of this product updates is shown with that process, its activity and its "
          "phase") {
    SessionLab lab;
    const auto handle = SessionLab::printer();
    handle->setAnswer("USBInterfaceOpenSeize", kIOReturnExclusiveAccess);
    handle->interfaceHolder = {.kind = InterfaceHolder::Kind::ownProgram,
                               .program = "zulctl",
                               .pid = 77,
                               .activity = "update",
                               .phase = "writing"};
    lab.attach(handle);
    REQUIRE(lab.session->printers().size() == 2);
    const auto printer = lab.session->printers().back();
    const UpdateSupervisor& supervisor = lab.session->supervisor;
    CHECK(statusLine(supervisor, *printer) ==
          "In use by other application: zulctl uses the printer (process 77): update, writing the firmware");
    const auto holder = conditionOf(supervisor, *printer)["holder"];
    CHECK(holder["kind"] == "printer utility");
    CHECK(holder["pid"] == 77);
    CHECK(holder["phase"] == "writing");
    CHECK(lab.session->unusablePrinters().empty()); // it will be released without help
}
