#include "cli/Program.h"

#include "cli/ExitStatus.h"
#include "platform/foundation/Format.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <thread>
#include <unistd.h>

namespace zul::cli {

namespace {

int interruptPipe[2] = {-1, -1};

void noteInterrupt(int signal) {
    const int kept = errno;
    const char byte = signal == SIGINT ? 'i' : 't';
    [[maybe_unused]] const auto written = ::write(interruptPipe[1], &byte, 1);
    errno = kept;
}

} // namespace

Program::Program(Options runOptions)
    : Session(runOptions, alerts, application), options(std::move(runOptions)), output(options.json) {}

int Program::start(std::function<void()> ready) {
    if (const auto problem = startSession(TBPrinters::Outlets{})) {
        const int status = problem->isWrongUsage ? kWrongUsage : kFailed;
        output.problem(problem->message, status);
        return status;
    }
    onInterrupt([this](Interrupt) { quit(kInterrupted); }); // commands that have more to end say so themselves
    // Behind the insertion of the rows; twice, because what is queued first asks for a close behind itself.
    whenEnumerated([this, ready = std::move(ready)] {
        mainQueue.async([this, ready] { afterQueues(printers(), [this, ready] { afterQueues(printers(), ready); }); });
    });
    return kDone;
}

// ---- printers -------------------------------------------------------------------------------------------------------

std::string Program::listed() const {
    std::string text;
    for (const Printer& printer : printers()) {
        text += (text.empty() ? "" : ", ") + printer->keyUSBdevice() + " = " + nameOf(*printer);
    }
    return text;
}

void Program::noteUnusable() const {
    for (const std::string& message : unusablePrinters()) output.note(message);
}

void Program::tellNoPrinter(int exitStatus) {
    noteUnusable();
    output.problem("no printer is attached. Connect a ZUL printer by USB and switch it on.", exitStatus);
}

Program::Printer Program::find(const std::string& name, int& exitStatus) {
    exitStatus = kNoPrinter;
    const auto all = printers();
    const auto isCalled = [&](const Printer& printer) {
        return name == printer->keyUSBdevice() || name == printer->printerSerialNumber() ||
               name == printer->locationText() || name == printer->serialNumberUSB();
    };
    if (std::ranges::count_if(all, isCalled) > 1) {
        exitStatus = kWrongUsage;
        output.problem("\"" + name +
                           "\" stands for several printers; use a key or a position in the list: " + listed() + ".",
                       exitStatus);
        return nullptr;
    }
    if (const auto found = std::ranges::find_if(all, isCalled); found != all.end()) return *found;
    // A short number is a position; a serial number that looks like one was found above.
    const auto position = static_cast<std::size_t>(std::max<std::int64_t>(integerValue(name), 0));
    if (name.find_first_not_of("0123456789") == std::string::npos && position >= 1 && position <= all.size()) {
        return all[position - 1];
    }
    if (all.empty()) {
        tellNoPrinter(exitStatus);
    } else {
        noteUnusable();
        output.problem("no printer is called \"" + name + "\". Attached: " + listed() + ".", kNoPrinter);
    }
    return nullptr;
}

Program::Printer Program::findOnly(const std::vector<std::string>& names, int& exitStatus) {
    exitStatus = kNoPrinter;
    if (!names.empty()) return find(names.front(), exitStatus);
    const auto all = printers();
    if (all.size() == 1) return all.front();
    if (all.empty()) {
        tellNoPrinter(kNoPrinter);
    } else {
        exitStatus = kWrongUsage;
        output.problem("several printers are attached; name one of them: " + listed() + ".", kWrongUsage);
    }
    return nullptr;
}

void Program::onInterrupt(std::function<void(Interrupt)> handler) {
    const bool isFirst = !_interrupted;
    _interrupted = std::move(handler);
    if (!isFirst || ::pipe(interruptPipe) != 0) return;
    std::thread([this, from = interruptPipe[0]] {
        char byte = 0;
        for (;;) {
            const auto count = ::read(from, &byte, 1);
            const auto interrupt = byte == 'i' ? Interrupt::byUser : Interrupt::bySystem;
            if (count == 1) mainQueue.async([this, interrupt] { _interrupted(interrupt); });
            if (count == 0 || (count < 0 && errno != EINTR)) return;
        }
    }).detach();
    struct sigaction action {};
    action.sa_handler = noteInterrupt;
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGHUP, &action, nullptr);
}

} // namespace zul::cli
