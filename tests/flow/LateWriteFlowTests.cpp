// Writes with a wrong result: the printer accepted the command and was detached before the bus completed the write.
#include "SupervisedLab.h"

#include "protocol/CommandFrame.h"

#include <doctest/doctest.h>

using namespace zul;
using namespace std::chrono_literals;

namespace {

// Makes the bus report this code for a command that the printer has accepted.
class WrongEnd final : public PrinterEventsOutlet {
  public:
    WrongEnd(SupervisedLab& lab, std::uint32_t command, IOReturn code)
        : _supervisor(lab.supervisor), _command(command), _code(code) {
        lab.environment.events = this;
    }
    void printerEvent(const PrinterEvent& event) override {
        PrinterEvent altered = event;
        if (auto* const sent = std::get_if<events::CommandSent>(&altered.what); sent && sent->command == _command) {
            sent->code = _code;
        }
        _supervisor.printerEvent(altered);
    }

  private:
    UpdateSupervisor& _supervisor;
    const std::uint32_t _command;
    const IOReturn _code;
};

} // namespace

TEST_CASE("a printer detached before the write of the loader command has ended has accepted the command") {
    for (const IOReturn code : {kIOReturnNoDevice, kIOReturnNotResponding}) {
        CAPTURE(code);
        SupervisedLab lab;
        WrongEnd bus(lab, kCommandEnterLoader, code);
        lab.startWithVK14();
        lab.beginUpdate();
        lab.rest();
        CHECK(lab.ends == std::vector<UpdateResult>{UpdateResult::succeeded});
    }
}

TEST_CASE("a printer that restarts although the bus reported a failed command is followed, and the verdict corrected") {
    SupervisedLab lab;
    WrongEnd bus(lab, kCommandEnterLoader, kIOUSBTransactionTimeout);
    lab.startWithVK14();
    lab.beginUpdate();
    lab.rest();
    CHECK(lab.ends == std::vector<UpdateResult>{UpdateResult::commandRefused, UpdateResult::succeeded});
    CHECK(lab.update().verdict.isCorrected);
}

TEST_CASE("a printer detached before the write of the image has ended is judged by the version after its return") {
    for (const IOReturn code : {kIOReturnNoDevice, kIOReturnNotResponding}) {
        CAPTURE(code);
        SupervisedLab lab;
        WrongEnd bus(lab, kCommandProgramFlash, code);
        lab.startWithVK14();
        lab.beginUpdate();
        lab.rest();
        CHECK(lab.ends == std::vector<UpdateResult>{UpdateResult::succeeded});
    }
}
