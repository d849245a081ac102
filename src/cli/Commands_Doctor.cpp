// The command doctor: finds what keeps printers from being used or updated on this machine. Printers are queried on the
// main queue as for "list". The checks wait for files and services, so they run on a serial queue of their own.
#include "Classes/PrinterTypes.h"
#include "Classes/TBUSBPrinter.h"
#include "Classes/TBUSBPrinterZUL.h"
#include "archive/ProductTable.h"
#include "cli/Commands.h"
#include "cli/ExitStatus.h"
#include "cli/Program.h"
#include "platform/dispatch/Queue.h"
#include "platform/foundation/Format.h"
#include "platform/usb/IOReturn.h"
#include "protocol/StatusTexts.h"
#include "session/AttachedPrinters.h"
#include "session/Doctor.h"
#include "session/HistoryOptions.h"
#include "update/UpdateHistory.h"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace zul::cli {

namespace {

using nlohmann::json;

// The descriptors as the kernel reports them; what the session knows is added later.
ExaminedPrinter examinedOf(const AttachedPrinter& attached) {
    const Product* const product = productWithID(attached.product);
    const std::string model = product != nullptr ? std::string(product->model) : "";
    return {.key = attached.key,
            .name = (model.empty() ? "printer" : model) + " (" + attached.location + ")",
            .location = attached.location,
            .model = model,
            .node = attached.node,
            .product = attached.product,
            .drivers = attached.drivers,
            .driverNodes = attached.driverNodes};
}

void addSessionsView(ExaminedPrinter& examined, TBUSBPrinterZUL& printer) {
    examined.key = printer.keyUSBdevice();
    examined.name = displayNameOf(printer);
    examined.location = printer.locationText();
    examined.model = printer.model().value_or(examined.model);
    examined.serial = printer.printerSerialNumber().value_or("");
    examined.product = printer.productNumber();
    examined.status = printer.printerStatus();
    examined.isInLoader = examined.status == textForStatus(kLoaderStatus);
    examined.isReady = examined.status == textForStatus(kReadyStatus);
    examined.isUsable = printer.openStatus() != kIOReturnNotPrivileged; // not queried without access
    examined.isHeldElsewhere = printer.ownership() == Ownership::otherProgram;
}

// The kernel's descriptors of a printer that was attached after the session started.
ExaminedPrinter newlyAttached(const Program::Printer& printer) {
    if (printer->isVirtual()) return {};
    const auto attached = attachedPrinters({});
    const auto found = std::ranges::find(attached, printer->locationText(), &AttachedPrinter::location);
    return found == attached.end() ? ExaminedPrinter{} : examinedOf(*found);
}

std::vector<ExaminedPrinter> examinedPrinters(Program& program) {
    std::vector<ExaminedPrinter> all;
    for (const AttachedPrinter& attached : program.attachedAtStart) all.push_back(examinedOf(attached));
    for (const Program::Printer& printer : program.session.printers()) {
        auto known = std::ranges::find(all, printer->locationText(), &ExaminedPrinter::location);
        if (known == all.end()) known = all.insert(known, newlyAttached(printer));
        addSessionsView(*known, *printer);
    }
    return all;
}

// Absolute, because a command copied from the output may be run in another folder.
std::filesystem::path namedArchive(const Program& program) {
    namespace fs = std::filesystem;
    const std::string& named = program.options.firmwareArchive;
    std::error_code error;
    if (named.empty() || fs::equivalent(named, Bundle::mainBundle({}).archiveFolder(), error)) return {};
    return fs::absolute(named, error).lexically_normal();
}

DoctorOptions optionsFor(Program& program, UpdateHistory& history) {
    Session& session = program.session;
    return {.stateFolder = history.file().parent_path(),
            .firmwareArchive = namedArchive(program),
            .areEmbedded = !program.options.virtualPrinters.empty(),
            .isRoot = ::geteuid() == 0,
            .reservation = [&session](const std::string& key) { return session.locks.heldElsewhere(key); },
            .archive = &session.archive,
            .history = &history};
}

void show(Program& program, const std::vector<Check>& checks) {
    if (program.output.isJson()) {
        json list = json::array();
        for (const Check& check : checks) {
            list.push_back({{"check", check.name},
                            {"printer", check.printer.empty() ? json(nullptr) : json(check.printer)},
                            {"state", nameOfCheckState(check.state)},
                            {"text", check.text},
                            {"remedy", check.remedy.empty() ? json(nullptr) : json(check.remedy)}});
        }
        program.output.document(list);
    } else {
        for (const Check& check : checks) {
            program.output.line(formatted("%-7s  %-18s  %s", nameOfCheckState(check.state), check.name, check.text));
            if (!check.remedy.empty()) program.output.line(formatted("%29s-> %s", "", check.remedy));
        }
    }
    const bool isFine = std::ranges::count(checks, CheckState::problem, &Check::state) == 0;
    program.quit(isFine ? kDone : kFailed);
}

} // namespace

void runDoctor(Program& program) {
    // Kept until the process ends: an interrupt does not wait for a running check.
    static UpdateHistory history(historyOptions(program.options));
    static const auto queue = std::make_shared<SerialQueue>("doctor", program.session.clock);
    queue->async([&program, options = optionsFor(program, history), printers = examinedPrinters(program)] {
        const std::vector<Check> checks = Doctor(options).examine(printers);
        program.session.mainQueue.async([&program, checks] { show(program, checks); });
    });
}

} // namespace zul::cli
