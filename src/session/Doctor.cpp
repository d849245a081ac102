// The fixed list of checks, and the checks of a single printer. Called by the diagnosis of either program on a thread
// that may block.
#include "session/Doctor.h"

#include "Classes/TBUSBPrinterZUL.h"
#include "archive/ArchiveTexts.h"
#include "archive/ProductTable.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/LocalizedFormat.h"
#include "platform/foundation/ShellWord.h"
#include "platform/usb/PrinterReservations.h"
#include "update/UpdateTexts.h"
#include "usb/libusb/ProcessSearch.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

namespace zul {

namespace {

Check checkOf(const ExaminedPrinter& printer, const char* name, CheckState state, std::string text,
              std::string remedy = {}) {
    return {name, printer.key, state, printer.name + ": " + text, std::move(remedy)};
}

Check notApplicable(const ExaminedPrinter& printer, const char* name) {
    return checkOf(printer, name, CheckState::unknown, localizedFormat("it is an embedded printer"));
}

// The name of the queue if its device is this printer. line: "device for NAME: usb://ZUL/VK14?serial=000001".
std::string queueOfLine(const std::string& line, const ExaminedPrinter& printer) {
    constexpr std::string_view kBegin = "device for ";
    const std::size_t colon = line.find(": ");
    if (!line.starts_with(kBegin) || colon == std::string::npos) return {};
    const std::string device = line.substr(colon + 2);
    const std::size_t serial = device.find("serial=");
    // A queue without a serial number serves every printer of its model.
    const bool isModel = !printer.model.empty() && device.find(printer.model + "?") != std::string::npos;
    const bool isSerial = !printer.serial.empty() && serial != std::string::npos &&
                          device.compare(serial + 7, std::string::npos, printer.serial) == 0;
    if (!device.starts_with("usb:") || (!isModel && !isSerial)) return {};
    return line.substr(kBegin.size(), colon - kBegin.size());
}

// Whether a process may be ended is for people to decide: the command only shows it.
std::string remedyFor(const InterfaceHolder& holder, const ExaminedPrinter& printer) {
    std::string command = "lpstat -o";
    if (holder.kind != InterfaceHolder::Kind::printing) {
        if (holder.pid == 0 && printer.node.empty()) return {};
        command = holder.pid == 0 ? "sudo fuser -v " + shellWord(printer.node) : formatted("ps -fp %d", holder.pid);
    }
    return localizedFormat("Wait until it has finished, or end it. To see what it is: %s", command);
}

// With messages in one language, and a time limit in case the print service hangs.
std::string lpstat(const char* option) {
    return formatted("command -v lpstat >/dev/null || exit 127; LC_ALL=C timeout 5 lpstat %s 2>/dev/null", option);
}

CommandResult runByShell(const std::string& command) {
    FILE* const pipe = ::popen(command.c_str(), "re");
    if (pipe == nullptr) return {.status = 127};
    CommandResult result;
    std::array<char, 4096> buffer{};
    while (const std::size_t size = std::fread(buffer.data(), 1, buffer.size(), pipe)) {
        result.output.append(buffer.data(), size);
    }
    const int status = ::pclose(pipe);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 1;
    return result;
}

} // namespace

const char* nameOfCheckState(CheckState state) {
    switch (state) {
    case CheckState::ok:
        return "ok";
    case CheckState::warning:
        return "warning";
    case CheckState::problem:
        return "problem";
    case CheckState::unknown:
        break;
    }
    return "unknown";
}

Doctor::Doctor(DoctorOptions options) : _options(std::move(options)) {}

bool Doctor::mayUse(const std::string& file) const {
    return _options.mayUse ? _options.mayUse(file) : ::access(file.c_str(), R_OK | W_OK) == 0;
}

CommandResult Doctor::run(const std::string& command) const {
    return _options.run ? _options.run(command) : runByShell(command);
}

// Without the folder of this run, the update would use other files, or none.
std::string Doctor::updateCommand(const std::string& printer) const {
    const std::string folder = _options.firmwareArchive.string();
    const std::string archive = folder.empty() ? "" : "--firmware-archive " + shellWord(folder) + " ";
    return "zulctl " + archive + "update " + shellWord(printer);
}

std::vector<Check> Doctor::examine(const std::vector<ExaminedPrinter>& printers) {
    std::vector<Check> checks{udevRule()};
    const auto ofEach = [&](const char* name, Check (Doctor::*check)(const ExaminedPrinter&) const) {
        for (const ExaminedPrinter& printer : printers) checks.push_back((this->*check)(printer));
        if (printers.empty()) {
            checks.push_back({name, {}, CheckState::unknown, localizedFormat("no printer is attached"), {}});
        }
    };
    ofEach("node-rights", &Doctor::nodeRights);
    ofEach("holder", &Doctor::holder);
    ofEach("print-queue", &Doctor::printQueue);
    ofEach("usblp", &Doctor::usblp);
    checks.push_back(ippUsb(printers));
    if (printers.empty()) {
        checks.push_back(archiveFolder());
    } else {
        ofEach("firmware-archive", &Doctor::archive);
    }
    ofEach("loader", &Doctor::loader);
    for (Check& check : interruptedUpdates(printers)) checks.push_back(std::move(check));
    ofEach("ready", &Doctor::ready);
    checks.push_back(stateFolder());
    checks.push_back(loginService());
    return checks;
}

Check Doctor::nodeRights(const ExaminedPrinter& printer) const {
    constexpr const char* kName = "node-rights";
    if (printer.node.empty()) return notApplicable(printer, kName);
    constexpr const char* kJoin = "sudo usermod -aG lp \"$USER\"";
    if (!mayUse(printer.node)) {
        return checkOf(printer, kName, CheckState::problem, localizedFormat("no right to open %s", printer.node),
                       kJoin);
    }
    for (const std::string& node : printer.driverNodes) {
        std::error_code error;
        // The driver's node is removed while this program holds the printer; a removed node needs no rights.
        if (mayUse(node) || !std::filesystem::exists(node, error)) continue;
        return checkOf(printer, kName, CheckState::problem,
                       localizedFormat("no right to open %s, where the kernel's printer driver shows whether a job is "
                                       "being printed: the printer is not used",
                                       node),
                       kJoin);
    }
    return checkOf(printer, kName, CheckState::ok, localizedFormat("%s may be used", printer.node));
}

Check Doctor::holder(const ExaminedPrinter& printer) const {
    constexpr const char* kName = "holder";
    std::optional<InterfaceHolder> found;
    if (_options.reservation) found = _options.reservation(printer.key);
    // The session was refused: look for the process now, because the earlier one may have ended.
    if (!found && printer.isHeldElsewhere) {
        found = probableHolder(processesWithOpen(_options.folders, printer.node), InterfaceHolder::Kind::process);
    }
    if (!found) return checkOf(printer, kName, CheckState::ok, localizedFormat("no other program uses it"));
    return checkOf(printer, kName, CheckState::problem, describeHolder(*found), remedyFor(*found, printer));
}

Check Doctor::printQueue(const ExaminedPrinter& printer) const {
    constexpr const char* kName = "print-queue";
    if (printer.node.empty()) return notApplicable(printer, kName);
    const CommandResult devices = run(lpstat("-v"));
    if (devices.status == 127) {
        return checkOf(printer, kName, CheckState::ok, localizedFormat("there is no print service"));
    }
    // A disabled queue sends no job, so it cannot take the printer.
    const std::string states = run(lpstat("-p")).output;
    std::istringstream lines(devices.output);
    for (std::string line; std::getline(lines, line);) {
        const std::string queue = queueOfLine(line, printer);
        if (queue.empty() || states.find("printer " + queue + " disabled") != std::string::npos) continue;
        return checkOf(printer, kName, CheckState::warning,
                       localizedFormat("the print queue %s is active and may claim the printer", queue),
                       "cupsdisable " + shellWord(queue));
    }
    return checkOf(printer, kName, CheckState::ok, localizedFormat("no active print queue uses it"));
}

Check Doctor::usblp(const ExaminedPrinter& printer) const {
    constexpr const char* kName = "usblp";
    if (printer.node.empty()) return notApplicable(printer, kName);
    if (std::ranges::count(printer.drivers, kName) == 0) {
        return checkOf(printer, kName, CheckState::ok,
                       localizedFormat("the kernel's printer driver is not bound to it"));
    }
    return checkOf(
        printer, kName, CheckState::warning,
        localizedFormat("the kernel's printer driver is bound to it; it is detached while no job is printed"),
        "sudo modprobe -r usblp");
}

Check Doctor::archive(const ExaminedPrinter& printer) const {
    constexpr const char* kName = "firmware-archive";
    if (_options.archive == nullptr)
        return checkOf(printer, kName, CheckState::unknown, localizedFormat("not checked"));
    const auto problems =
        _options.archive->problems(productWithID(printer.product), TBUSBPrinterZUL::kProductClassName);
    if (problems.empty()) {
        return checkOf(printer, kName, CheckState::ok, localizedFormat("its firmware files are there and match"));
    }
    // Only the first problem, which has to be fixed first; "archive verify" lists all.
    return checkOf(printer, kName, CheckState::problem, messageOf(problems.front()), remedyOf(problems.front()));
}

Check Doctor::loader(const ExaminedPrinter& printer) const {
    constexpr const char* kName = "loader";
    if (!printer.isUsable || printer.isHeldElsewhere || !printer.status) {
        return checkOf(printer, kName, CheckState::unknown, localizedFormat("it could not be queried"));
    }
    if (!printer.isInLoader) {
        return checkOf(printer, kName, CheckState::ok, localizedFormat("it is not in its loader"));
    }
    return checkOf(printer, kName, CheckState::problem,
                   localizedFormat("it is in its loader and waits for its firmware"),
                   updateCommand(printer.serial.empty() ? printer.key : printer.serial));
}

Check Doctor::ready(const ExaminedPrinter& printer) const {
    constexpr const char* kName = "ready";
    if (!printer.isUsable)
        return checkOf(printer, kName, CheckState::unknown, localizedFormat("it could not be queried"));
    // The holder and the loader have checks of their own.
    if (printer.isHeldElsewhere || printer.isInLoader) {
        return checkOf(printer, kName, CheckState::unknown,
                       printer.status.value_or(localizedFormat("it was not asked")));
    }
    if (!printer.status) {
        return checkOf(printer, kName, CheckState::problem, localizedFormat("it does not answer"),
                       localizedFormat("Switch it off and on, then run: %s", "zulctl doctor"));
    }
    if (printer.isReady) return checkOf(printer, kName, CheckState::ok, *printer.status);
    return checkOf(
        printer, kName, CheckState::problem, *printer.status,
        localizedFormat("Correct it at the printer, then run: %s", "zulctl status " + shellWord(printer.key)));
}

} // namespace zul
