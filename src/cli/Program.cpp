// The start of a run that uses printers, and the look-up of a printer by the name that the user gave.
// Called by main() and the commands, on the main queue.
#include "cli/Program.h"

#include "Classes/PrinterTypes.h"
#include "Classes/TBPrinters.h"
#include "Classes/TBUSBPrinter.h"
#include "cli/ExitStatus.h"
#include "cli/Options.h"
#include "platform/foundation/Data.h"
#include "session/AttachedPrinters.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace zul::cli {

namespace {

// How long a query of another process usually takes at most, and how often its end is checked.
constexpr auto kBriefUse = std::chrono::seconds(3);
constexpr auto kBriefPause = std::chrono::milliseconds(200);

Program::Interrupt interruptOf(int signal) {
    if (signal == SIGINT) return Program::Interrupt::byUser;
    return signal == SIGHUP ? Program::Interrupt::terminalClosed : Program::Interrupt::bySystem;
}

} // namespace

// Commands with more to do at an interrupt replace this handler.
Program::Program(Options runOptions)
    : options(std::move(runOptions)), output(options.json), session(options, alerts, application),
      _interrupted([this](Interrupt) { quit(kInterrupted); }),
      _signals(session.mainQueue, {SIGINT, SIGTERM, SIGHUP},
               [this](int signal) { _interrupted(interruptOf(signal)); }) {}

int Program::start(std::function<void()> ready) {
    // Before the session opens printers: that changes their drivers and holders.
    if (options.command == "doctor" && options.virtualPrinters.empty()) attachedAtStart = attachedPrinters({});
    if (const auto problem = session.start(TBPrinters::Outlets{})) {
        const int status = problem->isWrongUsage ? kWrongUsage : kFailed;
        output.problem(problem->message, status, problem->code);
        return status;
    }
    // After the rows are inserted. Waits twice, because the first queued work queues a close of the interface.
    session.whenEnumerated([this, ready = std::move(ready)] {
        session.mainQueue.async([this, ready] {
            session.afterQueues(session.printers(), [this, ready] {
                session.afterQueues(session.printers(),
                                    [this, ready] { whenNotBrieflyUsed(session.clock.now() + briefUse(), ready); });
            });
        });
    });
    return kDone;
}

// A command that prints once waits until another process has finished its brief use; watch shows that use instead.
Clock::Duration Program::briefUse() const {
    return options.command == "watch" ? Clock::Duration(0) : Clock::Duration(kBriefUse);
}

// True if a printer is held by a process that may hold it only briefly, such as another zulctl that lists it. Print
// jobs and updates take longer and have holder kinds of their own.
bool Program::isAnyBrieflyUsed() const {
    return std::ranges::any_of(session.printers(), [this](const Printer& printer) {
        const auto holder = session.supervisor.holder(printer->keyUSBdevice());
        return printer->ownership() == Ownership::otherProgram && holder &&
               (holder->kind == InterfaceHolder::Kind::process || holder->kind == InterfaceHolder::Kind::unknown);
    });
}

// The engine opens a printer again once it is released, and sends its queries then.
void Program::whenNotBrieflyUsed(Clock::TimePoint deadline, Block ready) {
    if (session.clock.now() >= deadline || !isAnyBrieflyUsed()) {
        session.afterQueues(session.printers(), std::move(ready));
        return;
    }
    session.clock.callAt(session.clock.now() + kBriefPause, [this, deadline, ready = std::move(ready)] {
        session.mainQueue.async([this, deadline, ready] { whenNotBrieflyUsed(deadline, ready); });
    });
}

// ---- printers -------------------------------------------------------------------------------------------------------

std::string Program::listed() const {
    std::string text;
    for (const Printer& printer : session.printers()) {
        text += (text.empty() ? "" : ", ") + printer->keyUSBdevice() + " = " + displayNameOf(*printer);
    }
    return text;
}

void Program::noteUnusable() const {
    for (const std::string& message : session.unusablePrinters()) output.note(message);
}

void Program::reportNoPrinter(int exitStatus) {
    noteUnusable();
    output.problem(session.unusablePrinters().empty()
                       ? "no printer is attached. Connect a ZUL printer by USB and switch it on."
                       : "no attached printer can be used.", // the reason has just been reported
                   exitStatus);
}

Program::Printer Program::find(const std::string& name, int& exitStatus) {
    exitStatus = kNoPrinter;
    const auto all = session.printers();
    const auto isCalled = [&](const Printer& printer) {
        return name == printer->keyUSBdevice() || name == printer->printerSerialNumber() ||
               name == printer->locationText() || name == printer->serialNumberUSB();
    };
    // Two printers may have the same serial number, for example when it was never set.
    if (std::ranges::count_if(all, isCalled) > 1) {
        exitStatus = kWrongUsage;
        output.problem("\"" + name + "\" matches several printers; use a key or a position in the list: " + listed() +
                           ".",
                       exitStatus);
        return nullptr;
    }
    if (const auto found = std::ranges::find_if(all, isCalled); found != all.end()) return *found;
    // A short number is a position. Serial numbers that look like one were matched above.
    const auto position = static_cast<std::size_t>(std::max<std::int64_t>(integerValue(name), 0));
    if (name.find_first_not_of("0123456789") == std::string::npos && position >= 1 && position <= all.size()) {
        return all[position - 1];
    }
    if (all.empty()) {
        reportNoPrinter(exitStatus);
    } else {
        noteUnusable();
        output.problem("no printer is called \"" + name + "\". Attached: " + listed() + ".", kNoPrinter);
    }
    return nullptr;
}

Program::Printer Program::findOnly(const std::vector<std::string>& names, int& exitStatus) {
    exitStatus = kNoPrinter;
    if (!names.empty()) return find(names.front(), exitStatus);
    const auto all = session.printers();
    if (all.size() == 1) return all.front();
    if (all.empty()) {
        reportNoPrinter(kNoPrinter);
    } else {
        exitStatus = kWrongUsage;
        output.problem("several printers are attached; name one of them: " + listed() + ".", kWrongUsage);
    }
    return nullptr;
}

} // namespace zul::cli
