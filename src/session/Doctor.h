// The diagnosis: a closed list of what keeps printers from being used or updated on a machine, each with the command
// that fixes it. Both programs show the same list.
//
// Checks read files, ask services and run programs of the print service, each with a time limit of some seconds: they
// belong on a thread that may wait, never on the main queue. Nothing is changed, and no printer is opened.
#pragma once

#include "platform/usb/PrinterReservations.h"
#include "session/AttachedPrinters.h"
#include "session/LoginService.h"
#include "usb/libusb/SystemFolders.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace zul {

class FirmwareArchive;
class UpdateHistory;

enum class CheckState {
    ok,
    warning, // works, but may disturb
    problem,
    unknown // could not be checked, or does not apply
};

/// "ok", "warning", "problem", "unknown": the names in JSON, never translated.
const char* nameOfCheckState(CheckState state);

struct Check {
    std::string name{};    // of the closed list, never translated: "udev-rule"
    std::string printer{}; // the key of the printer that it is about; empty: the machine
    CheckState state = CheckState::ok;
    std::string text{};   // what was found, for people, without an end stop
    std::string remedy{}; // the command that fixes it, or what to do; empty where there is nothing to do
};

/// What is known about an attached printer: from the kernel, and from the session where that could use it.
struct ExaminedPrinter {
    std::string key{};
    std::string name{}; // for people: "VK14 000001 (1-4)"
    std::string location{};
    std::string model{};
    std::string serial{};
    std::string node{}; // empty: an embedded printer
    std::uint16_t product = 0;
    std::vector<std::string> drivers{};
    std::vector<std::string> driverNodes{}; // of the kernel's printer driver, while it was bound: "/dev/usb/lp0"
    std::optional<std::string> status{};    // its status as a text; nullopt: it was not asked or did not answer
    bool isInLoader = false;
    bool isReady = false;
    bool isUsable = false;        // the session could open it
    bool isHeldElsewhere = false; // the session found it in use
};

struct CommandResult {
    int status = 0; // 127: there is no such program
    std::string output{};
};

/// Where the checks look. Tests put folders and answers of their own in place of the machine's.
struct DoctorOptions {
    SystemFolders folders{};
    /// In the order in which udev takes them: a file hides those of the same name in later folders.
    std::vector<std::filesystem::path> ruleFolders{"/etc/udev/rules.d", "/run/udev/rules.d",
                                                   "/usr/local/lib/udev/rules.d", "/usr/lib/udev/rules.d",
                                                   "/lib/udev/rules.d"};
    std::filesystem::path stateFolder{};
    /// The folder that was named for this run, absolute: commands that update name it too. Empty: the installed one.
    std::filesystem::path firmwareArchive{};
    LoginServiceOptions login{};
    bool areEmbedded = false; // embedded printers: what is about USB and the print service does not apply
    bool isRoot = false;
    /// Whether this user may read and write the file; null: the system is asked.
    std::function<bool(const std::string& file)> mayUse{};
    /// Runs a command by the shell; null: the system's.
    std::function<CommandResult(const std::string& command)> run{};
    /// The other process of ours that has reserved the printer; null: none.
    std::function<std::optional<InterfaceHolder>(const std::string& key)> reservation{};
    /// May be null in tests that do not look at them.
    FirmwareArchive* archive = nullptr;
    UpdateHistory* history = nullptr;
};

/// One use, on one thread that may wait.
class Doctor {
  public:
    explicit Doctor(DoctorOptions options);

    /// Every check of the list in its fixed order: those of the machine once (an interrupted update each), those of
    /// printers once for each printer, or once as "unknown" without any.
    std::vector<Check> examine(const std::vector<ExaminedPrinter>& printers);

    // The machine.
    Check udevRule() const;
    Check stateFolder() const;
    Check loginService() const;
    Check ippUsb(const std::vector<ExaminedPrinter>& printers) const;
    std::vector<Check> interruptedUpdates(const std::vector<ExaminedPrinter>& printers) const;
    /// What is wrong with the firmware files whatever the model.
    Check archiveFolder() const;

    // One printer.
    Check nodeRights(const ExaminedPrinter& printer) const;
    Check holder(const ExaminedPrinter& printer) const;
    Check printQueue(const ExaminedPrinter& printer) const;
    Check usblp(const ExaminedPrinter& printer) const;
    Check archive(const ExaminedPrinter& printer) const;
    Check loader(const ExaminedPrinter& printer) const;
    Check ready(const ExaminedPrinter& printer) const;

  private:
    bool mayUse(const std::string& file) const;
    CommandResult run(const std::string& command) const;
    std::string installCommand() const;
    std::string updateCommand(const std::string& printer) const;

    const DoctorOptions _options;
};

} // namespace zul
