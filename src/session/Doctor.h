// The diagnosis: a fixed list of conditions that keep printers from being used or updated on a machine, each with the
// command that fixes it. Both programs show the same list.
//
// Checks read files, ask services and run programs of the print service, each with a time limit of some seconds. Run
// them on a thread that may block, never on the main queue. They change nothing and open no printer.
#pragma once

#include "platform/usb/PrinterReservations.h"
#include "session/LoginService.h"
#include "usb/libusb/SystemFolders.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace zul {

class FirmwareArchive;
class UpdateHistory;

/// The result of one check.
enum class CheckState {
    ok,
    warning, // works, but may disturb updates or printing
    problem,
    unknown // could not be checked, or does not apply
};

/// "ok", "warning", "problem", "unknown": the names in JSON, never translated.
const char* nameOfCheckState(CheckState state);

/// One line of the diagnosis.
struct Check {
    std::string name{};    // from the fixed list, never translated: "udev-rule"
    std::string printer{}; // the key of the examined printer; empty: the machine
    CheckState state = CheckState::ok;
    std::string text{};   // the finding for people, without a full stop
    std::string remedy{}; // the command that fixes it, or what to do; empty if there is nothing to do
};

/// What is known about an attached printer: from the kernel, and from the session if it could use the printer.
struct ExaminedPrinter {
    std::string key{};
    std::string name{}; // for people: "VK14 000001 (1-4)"
    std::string location{};
    std::string model{};
    std::string serial{};
    std::string node{}; // empty: an embedded printer
    std::uint16_t product = 0;
    std::vector<std::string> drivers{};
    std::vector<std::string> driverNodes{}; // nodes of the kernel's printer driver, while it was bound: "/dev/usb/lp0"
    std::optional<std::string> status{};    // its status text; nullopt: not queried, or no reply
    bool isInLoader = false;
    bool isReady = false;
    bool isUsable = false;        // the session could open it
    bool isHeldElsewhere = false; // the session found it in use
};

/// The end of a command that a check has run.
struct CommandResult {
    int status = 0; // 127: no such program
    std::string output{};
};

/// What the checks examine. Tests replace folders and commands with their own.
struct DoctorOptions {
    SystemFolders folders{};
    /// In udev's order of precedence: a file hides files of the same name in later folders.
    std::vector<std::filesystem::path> ruleFolders{"/etc/udev/rules.d", "/run/udev/rules.d",
                                                   "/usr/local/lib/udev/rules.d", "/usr/lib/udev/rules.d",
                                                   "/lib/udev/rules.d"};
    std::filesystem::path stateFolder{};
    /// Absolute path of the folder named for this run; proposed update commands name it too. Empty: the installed
    /// folder.
    std::filesystem::path firmwareArchive{};
    LoginServiceOptions login{};
    bool areEmbedded = false; // embedded printers: checks of USB and of the print service do not apply
    bool isRoot = false;
    /// Whether this user may read and write the file; null: ask the system.
    std::function<bool(const std::string& file)> mayUse{};
    /// Runs a command with the shell; null: the shell of this machine.
    std::function<CommandResult(const std::string& command)> run{};
    /// The other process of this product that has reserved the printer; null: none.
    std::function<std::optional<InterfaceHolder>(const std::string& key)> reservation{};
    /// May be null in tests whose checks do not use them.
    FirmwareArchive* archive = nullptr;
    UpdateHistory* history = nullptr;
};

/// For one examination, on one thread that may block.
class Doctor {
  public:
    /// Examines nothing yet.
    explicit Doctor(DoctorOptions options);

    /// Runs every check in its fixed order. Checks of the machine yield one entry (one per interrupted update), checks
    /// of printers one per printer, or a single "unknown" without any printer.
    std::vector<Check> examine(const std::vector<ExaminedPrinter>& printers);

    // Checks of the machine.
    Check udevRule() const;
    Check stateFolder() const;
    Check loginService() const;
    Check ippUsb(const std::vector<ExaminedPrinter>& printers) const;
    std::vector<Check> interruptedUpdates(const std::vector<ExaminedPrinter>& printers) const;
    /// Problems of the firmware files that concern every model.
    Check archiveFolder() const;

    // Checks of one printer.
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
