// The checks of the machine: rules, folders, services. Called by Doctor::examine on a thread that may block.
// Each reads files or runs a command with a time limit; nothing is changed.
#include "Classes/TBUSBPrinterZUL.h"
#include "archive/ArchiveTexts.h"
#include "archive/FirmwareArchive.h"
#include "archive/ProductTable.h"
#include "platform/files/Files.h"
#include "platform/foundation/Bundle.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/LocalTime.h"
#include "platform/foundation/LocalizedFormat.h"
#include "platform/foundation/ShellWord.h"
#include "session/Doctor.h"
#include "session/LoginService.h"
#include "update/UpdateHistory.h"
#include "update/UpdateRecord.h"
#include "usb/libusb/ProcessSearch.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace zul {

namespace {

namespace fs = std::filesystem;

constexpr const char* kRuleName = "70-zul-printer-utility.rules";
constexpr const char* kReload = "sudo udevadm control --reload";
constexpr const char* kIppUsb = "ipp-usb"; // claims USB printers to turn them into network printers

// A file of the rule's name that does not give access to all our printers is a different or an outdated rule.
bool coversOurPrinters(const fs::path& file) {
    std::istringstream lines(textOfFile(file));
    std::set<std::uint16_t> missing = productVendorIDs();
    // The nodes of the kernel's printer driver need lines of their own.
    std::set<std::uint16_t> missingDrivers = missing;
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with('#')) continue;
        const bool isOfDriver = line.find("SUBSYSTEM==\"usbmisc\"") != std::string::npos;
        std::erase_if(isOfDriver ? missingDrivers : missing, [&](std::uint16_t vendor) {
            const char* const match = isOfDriver ? "ATTRS{idVendor}==\"%.4x\"" : "ATTR{idVendor}==\"%.4x\"";
            return line.find(formatted(match, unsigned{vendor})) != std::string::npos;
        });
    }
    return missing.empty() && missingDrivers.empty();
}

Check notApplicable(const char* name) {
    return {name, {}, CheckState::unknown, localizedFormat("embedded printers do not need it"), {}};
}

} // namespace

std::string Doctor::installCommand() const {
    return formatted("sudo install -m 644 packaging/%s /etc/udev/rules.d/ && %s", kRuleName, kReload);
}

Check Doctor::udevRule() const {
    constexpr const char* kName = "udev-rule";
    if (_options.areEmbedded) return notApplicable(kName);
    std::vector<fs::path> found;
    for (const fs::path& folder : _options.ruleFolders) {
        std::error_code error;
        if (fs::exists(fs::symlink_status(folder / kRuleName, error))) found.push_back(folder / kRuleName);
    }
    if (found.empty()) {
        // Root can use every printer without the rule.
        return {
            kName,
            {},
            _options.isRoot ? CheckState::warning : CheckState::problem,
            localizedFormat("the udev rule %s is not installed: users may have no access to the printers", kRuleName),
            installCommand()};
    }
    if (coversOurPrinters(found.front())) {
        return {kName, {}, CheckState::ok, localizedFormat("the udev rule is %s", found.front().string()), {}};
    }
    // udev reads only the first file of a name; a good one in a later folder has no effect.
    const auto good = std::find_if(found.begin(), found.end(), coversOurPrinters);
    if (good != found.end()) {
        return {kName,
                {},
                CheckState::problem,
                localizedFormat("the udev rule %s is hidden by %s, which does not cover all printers", good->string(),
                                found.front().string()),
                formatted("sudo rm %s && %s", shellWord(found.front().string()), kReload)};
    }
    return {kName,
            {},
            CheckState::problem,
            localizedFormat("the udev rule %s does not cover all printers", found.front().string()),
            installCommand()};
}

Check Doctor::stateFolder() const {
    constexpr const char* kName = "state-folder";
    if (_options.stateFolder.empty()) {
        return {kName,
                {},
                CheckState::problem,
                localizedFormat("there is no folder for the history of updates"),
                "export HOME=\"$(getent passwd \"$(id -un)\" | cut -d: -f6)\""};
    }
    // The first update creates the folder: until then the rights of the nearest existing parent decide.
    fs::path folder = _options.stateFolder;
    std::error_code error;
    while (!fs::exists(folder, error) && folder.has_relative_path()) folder = folder.parent_path();
    if (!fs::is_directory(folder, error)) {
        return {kName,
                {},
                CheckState::problem,
                localizedFormat("%s is not a folder", folder.string()),
                "mv " + shellWord(folder.string()) + " " + shellWord(folder.string() + ".old")};
    }
    // Both are checked: the folder may be writable, and a history that root has made not.
    for (const fs::path& file : {folder, _options.stateFolder / "history.sqlite"}) {
        if (!fs::exists(file, error) || mayUse(file.string())) continue;
        return {kName,
                {},
                CheckState::problem,
                localizedFormat("%s cannot be written: updates are not recorded", file.string()),
                "sudo chown -R \"$USER\" " + shellWord(folder.string())};
    }
    return {kName, {}, CheckState::ok, localizedFormat("%s can be written", _options.stateFolder.string()), {}};
}

Check Doctor::loginService() const {
    constexpr const char* kName = "login-service";
    const std::string problem = loginServiceProblem(_options.login);
    if (problem.empty()) {
        return {kName, {}, CheckState::ok, localizedFormat("the machine can be kept awake during updates"), {}};
    }
    return {kName,
            {},
            CheckState::warning,
            localizedFormat("the machine cannot be kept awake during updates: %s", problem),
            "sudo systemctl start dbus systemd-logind"};
}

Check Doctor::ippUsb(const std::vector<ExaminedPrinter>& printers) const {
    if (_options.areEmbedded) return notApplicable(kIppUsb);
    for (const ExaminedPrinter& printer : printers) {
        // An embedded printer has no node that another process could open.
        if (printer.node.empty()) continue;
        const auto processes = processesWithOpen(_options.folders, printer.node);
        const auto found = std::ranges::find(processes, kIppUsb, &FoundProcess::name);
        if (found == processes.end()) continue;
        return {kIppUsb, printer.key, CheckState::problem,
                localizedFormat("ipp-usb has claimed %s (process %d)", printer.name, found->pid),
                "sudo systemctl stop ipp-usb"};
    }
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(_options.folders.proc, error)) {
        if (firstLineOfFile(entry.path() / "comm") != kIppUsb) continue;
        return {kIppUsb,
                {},
                CheckState::warning,
                localizedFormat("ipp-usb is running and may claim new printers"),
                "sudo systemctl stop ipp-usb"};
    }
    return {kIppUsb, {}, CheckState::ok, localizedFormat("ipp-usb does not run"), {}};
}

std::vector<Check> Doctor::interruptedUpdates(const std::vector<ExaminedPrinter>& printers) const {
    constexpr const char* kName = "interrupted-update";
    if (_options.history == nullptr) return {{kName, {}, CheckState::unknown, localizedFormat("not checked"), {}}};
    UpdateHistory::Records found = _options.history->interrupted();
    std::erase_if(found.records, [](const UpdateRecord& record) { return !record.hasSentCommands(); });
    UpdateHistory::Records failed = _options.history->lastFailures();
    if (found.problem.empty()) found.problem = failed.problem;
    for (UpdateRecord& record : failed.records) {
        const auto isSame = [&](const UpdateRecord& one) { return isSamePrinter(one, record); };
        if (std::ranges::none_of(found.records, isSame)) found.records.push_back(std::move(record));
    }
    if (!found.problem.empty()) {
        return {
            {kName, {}, CheckState::problem, found.problem, "ls -l " + shellWord(_options.history->file().string())}};
    }
    if (found.records.empty()) {
        return {{kName, {}, CheckState::ok, localizedFormat("no update was interrupted"), {}}};
    }
    std::vector<Check> checks;
    for (const UpdateRecord& record : found.records) {
        const std::string called = record.serial.empty() ? record.key : record.serial;
        Check check{kName, record.key, CheckState::problem,
                    localizedFormat(record.verdicts.empty()
                                        ? operatorText("the update of %s %s at %s was interrupted on %s")
                                        : operatorText("the update of %s %s at %s, begun on %s, is not complete"),
                                    record.model, called, record.place, localTimeText(record.begun)),
                    updateCommand(called)};
        const auto isThis = [&](const ExaminedPrinter& one) {
            return isSamePrinter({.key = one.key, .model = one.model, .serial = one.serial}, record);
        };
        // An update cannot be recommended for a printer that is not there.
        if (std::ranges::none_of(printers, isThis)) {
            check.text = localizedFormat("%s. The printer is not attached: attach it and start its update again. If it "
                                         "is gone for good, run this command.",
                                         check.text);
            check.remedy = "zulctl history --printer " + shellWord(called) + " --dismiss";
        }
        checks.push_back(std::move(check));
    }
    return checks;
}

Check Doctor::archiveFolder() const {
    constexpr const char* kName = "firmware-archive";
    if (_options.archive == nullptr) return {kName, {}, CheckState::unknown, localizedFormat("not checked"), {}};
    using Kind = ArchiveProblem::Kind;
    // The problems of the folder and its digest file are the same for every model.
    const auto problems = _options.archive->problems(&allProducts().front(), TBUSBPrinterZUL::kProductClassName);
    for (const ArchiveProblem& problem : problems) {
        if (problem.kind != Kind::noFolder && problem.kind != Kind::digestsMissing &&
            problem.kind != Kind::digestsUnreadable && problem.kind != Kind::digestsDamaged)
            continue;
        return {kName, {}, CheckState::problem, messageOf(problem), remedyOf(problem)};
    }
    return {kName, {}, CheckState::ok, localizedFormat("the folder with the firmware files can be used"), {}};
}

} // namespace zul
