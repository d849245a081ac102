// Each check of the diagnosis, with and without its problem.
#include "archive/FirmwareArchive.h"
#include "platform/foundation/Bundle.h"
#include "session/Doctor.h"
#include "unit/session/LoginLab.h"
#include "unit/session/UsbTree.h"
#include "update/UpdateHistory.h"
#include "update/UpdateVerdict.h"

#include <algorithm>
#include <doctest/doctest.h>
#include <set>

using namespace zul;
using namespace zul::test;

namespace {

namespace fs = std::filesystem;

constexpr const char* kRule = "70-zul-printer-utility.rules";
constexpr const char* kDevices = "# a remark\nSUBSYSTEM==\"usb\", ATTR{idVendor}==\"2a71\", MODE=\"0664\"\n"
                                 "SUBSYSTEM==\"usb\", ATTR{idVendor}==\"2b84\", MODE=\"0664\"\n";
constexpr const char* kDriverOfOne = "SUBSYSTEM==\"usbmisc\", KERNEL==\"lp[0-9]*\", ATTRS{idVendor}==\"2a71\"\n";
constexpr const char* kDriverOfOther = "SUBSYSTEM==\"usbmisc\", KERNEL==\"lp[0-9]*\", ATTRS{idVendor}==\"2b84\"\n";
const std::string kWholeRule = std::string(kDevices) + kDriverOfOne + kDriverOfOther;

// A machine without problems, for a test to change.
struct Machine {
    Machine() {
        fs::create_directories(tree.folder / "etc");
        fs::create_directories(tree.folder / "lib");
        fs::create_directories(tree.folder / "state");
        options.folders = tree.folders();
        options.ruleFolders = {tree.folder / "etc", tree.folder / "lib"};
        options.stateFolder = tree.folder / "state";
        options.mayUse = [this](const std::string& file) { return !forbidden.contains(file); };
        options.run = [this](const std::string& command) {
            return command.find("lpstat -v") != std::string::npos ? devices : states;
        };
        printer.key = "2A71000301240000";
        printer.name = "VK14 000001 (1-2.4)";
        printer.location = "1-2.4";
        printer.model = "VK14";
        printer.serial = "000001";
        printer.node = options.folders.dev + "/bus/usb/001/012";
        printer.product = 3;
        printer.status = "Idle";
        printer.isReady = printer.isUsable = true;
    }
    Doctor doctor() const { return Doctor(options); }
    fs::path addRule(const char* folder, const std::string& contents = kWholeRule) const {
        return tree.folder.write(std::string(folder) + "/" + kRule, contents);
    }

    UsbTree tree;
    std::set<std::string> forbidden;
    CommandResult devices{.status = 127}, states{};
    DoctorOptions options;
    ExaminedPrinter printer;
};

} // namespace

TEST_CASE("a udev rule that covers all printers is ok, wherever it is installed") {
    Machine machine;
    const fs::path rule = machine.addRule("lib");
    CHECK(machine.doctor().udevRule().state == CheckState::ok);
    CHECK(machine.doctor().udevRule().text == "the udev rule is " + rule.string());
}

TEST_CASE("a missing udev rule is a problem except for root, and the remedy installs it") {
    Machine machine;
    const Check check = machine.doctor().udevRule();
    CHECK(check.state == CheckState::problem);
    CHECK(check.remedy == "sudo install -m 644 packaging/70-zul-printer-utility.rules /etc/udev/rules.d/ && sudo "
                          "udevadm control --reload");
    machine.options.isRoot = true;
    CHECK(machine.doctor().udevRule().state == CheckState::warning);
}

TEST_CASE("a udev rule hidden by another file of its name is a problem, and the remedy removes that file") {
    Machine machine;
    const fs::path good = machine.addRule("lib");
    const fs::path bad = machine.addRule("etc", "# ATTR{idVendor}==\"2a71\" ATTR{idVendor}==\"2b84\"\n");
    Check check = machine.doctor().udevRule();
    CHECK(check.state == CheckState::problem);
    CHECK(check.text.find(good.string() + " is hidden by " + bad.string()) != std::string::npos);
    CHECK(check.remedy == "sudo rm " + bad.string() + " && sudo udevadm control --reload");
    fs::remove(bad);
    fs::create_symlink("/dev/null", bad); // the way in which administrators disable a rule
    check = machine.doctor().udevRule();
    CHECK(check.state == CheckState::problem);
    CHECK(check.text.find("is hidden by") != std::string::npos);
}

TEST_CASE("a udev rule for one vendor only is a problem, and the remedy installs the whole one") {
    Machine machine;
    machine.addRule("etc", "ATTR{idVendor}==\"2a71\"\n");
    const Check check = machine.doctor().udevRule();
    CHECK(check.state == CheckState::problem);
    CHECK(check.text.find("does not cover all printers") != std::string::npos);
    CHECK(check.remedy.starts_with("sudo install"));
}

TEST_CASE("a udev rule that leaves out the nodes of the kernel's printer driver does not cover all printers") {
    Machine machine;
    for (const std::string& rest : {std::string(), std::string(kDriverOfOne), std::string(kDriverOfOther)}) {
        CAPTURE(rest);
        machine.addRule("etc", kDevices + rest);
        const Check check = machine.doctor().udevRule();
        CHECK(check.state == CheckState::problem);
        CHECK(check.text.find("does not cover all printers") != std::string::npos);
        CHECK(check.remedy.starts_with("sudo install"));
    }
    machine.addRule("etc", std::string(kDriverOfOne) + kDriverOfOther); // and without the others it is incomplete, too
    CHECK(machine.doctor().udevRule().state == CheckState::problem);
}

TEST_CASE("the udev rule of the program covers all printers") {
    Machine machine;
    fs::copy_file(ZUL_UDEV_RULE_FILE, machine.tree.folder / "etc" / kRule);
    CHECK(machine.doctor().udevRule().state == CheckState::ok);
}

TEST_CASE("the right to the node of the kernel's printer driver is checked while the driver has one") {
    Machine machine;
    const std::string node = machine.tree.addDriverNode("1-2.4:1.0", "lp3");
    machine.printer.driverNodes = {node};
    CHECK(machine.doctor().nodeRights(machine.printer).state == CheckState::ok);
    machine.forbidden.insert(node);
    const Check check = machine.doctor().nodeRights(machine.printer);
    CHECK(check.state == CheckState::problem);
    CHECK(check.text.starts_with("VK14 000001 (1-2.4): no right to open " + node));
    CHECK(check.remedy == "sudo usermod -aG lp \"$USER\"");
    fs::remove(node); // this program holds the printer now
    CHECK(machine.doctor().nodeRights(machine.printer).state == CheckState::ok);
}

TEST_CASE("the right to a printer's node is checked") {
    Machine machine;
    CHECK(machine.doctor().nodeRights(machine.printer).state == CheckState::ok);
    machine.forbidden.insert(machine.printer.node);
    const Check check = machine.doctor().nodeRights(machine.printer);
    CHECK(check.state == CheckState::problem);
    CHECK(check.printer == machine.printer.key);
    CHECK(check.text == "VK14 000001 (1-2.4): no right to open " + machine.printer.node);
    CHECK(check.remedy == "sudo usermod -aG lp \"$USER\"");
}

TEST_CASE("a process of this product that has reserved a printer is its holder") {
    Machine machine;
    CHECK(machine.doctor().holder(machine.printer).state == CheckState::ok);
    machine.options.reservation = [&](const std::string& key) -> std::optional<InterfaceHolder> {
        if (key != machine.printer.key) return std::nullopt;
        return InterfaceHolder{.kind = InterfaceHolder::Kind::ownProgram,
                               .program = "zulctl",
                               .pid = 77,
                               .activity = "update",
                               .phase = "writing"};
    };
    const Check check = machine.doctor().holder(machine.printer);
    CHECK(check.state == CheckState::problem);
    CHECK(check.text == "VK14 000001 (1-2.4): zulctl uses the printer (process 77): update, writing the firmware");
    CHECK(check.remedy.ends_with("ps -fp 77"));
    machine.options.reservation = nullptr;
    machine.printer.isHeldElsewhere = true; // and no process visible to this user has its node open
    CHECK(machine.doctor().holder(machine.printer).remedy.ends_with("sudo fuser -v " + machine.printer.node));
}

TEST_CASE("a process that has a printer's node open is its holder if the session could not use the printer") {
    Machine machine;
    machine.tree.addProcess(812, "spooler", machine.printer.node);
    CHECK(machine.doctor().holder(machine.printer).state == CheckState::ok); // an open node alone does not prevent use
    machine.printer.isHeldElsewhere = true;
    const Check check = machine.doctor().holder(machine.printer);
    CHECK(check.state == CheckState::problem);
    CHECK(check.text.find("(spooler, process 812)") != std::string::npos);
}

TEST_CASE("an active print queue for the printer is a warning with the command that stops it") {
    Machine machine;
    CHECK(machine.doctor().printQueue(machine.printer).text == "VK14 000001 (1-2.4): there is no print service");
    machine.devices = {.status = 0,
                       .output = "device for office: ipp://printer.local/VK14?\n"
                                 "device for far: usb://ZUL/VK18?serial=000002\n"};
    CHECK(machine.doctor().printQueue(machine.printer).state == CheckState::ok);
    machine.devices.output += "device for photos: usb://ZUL/VK14?serial=000009\n";
    machine.states.output = "printer photos is idle.  enabled since Sun\n";
    const Check check = machine.doctor().printQueue(machine.printer);
    CHECK(check.state == CheckState::warning);
    CHECK(check.remedy == "cupsdisable photos");
    machine.states.output = "printer photos disabled since Sun -\n\tPaused\n";
    CHECK(machine.doctor().printQueue(machine.printer).state == CheckState::ok);
    machine.devices.output = "device for other: usb://Other/Name?serial=000001\n";
    CHECK(machine.doctor().printQueue(machine.printer).state == CheckState::warning); // identified by serial number
}

TEST_CASE("a print service that is not running is not a problem") {
    Machine machine;
    machine.devices = {.status = 1};
    CHECK(machine.doctor().printQueue(machine.printer).state == CheckState::ok);
}

TEST_CASE("the kernel's printer driver on a printer is a warning") {
    Machine machine;
    CHECK(machine.doctor().usblp(machine.printer).state == CheckState::ok);
    machine.printer.drivers = {"usbfs", "usblp"};
    CHECK(machine.doctor().usblp(machine.printer).state == CheckState::warning);
    CHECK(machine.doctor().usblp(machine.printer).remedy == "sudo modprobe -r usblp");
}

TEST_CASE("ipp-usb is a warning while it runs, and a problem once it holds a printer") {
    Machine machine;
    machine.tree.addProcess(1, "init");
    CHECK(machine.doctor().ippUsb({machine.printer}).state == CheckState::ok);
    machine.tree.addProcess(400, "ipp-usb");
    Check check = machine.doctor().ippUsb({machine.printer});
    CHECK(check.state == CheckState::warning);
    CHECK(check.remedy == "sudo systemctl stop ipp-usb");
    machine.tree.addProcess(400, "ipp-usb", machine.printer.node);
    check = machine.doctor().ippUsb({machine.printer});
    CHECK(check.state == CheckState::problem);
    CHECK(check.text == "ipp-usb has claimed VK14 000001 (1-2.4) (process 400)");
    CHECK(check.printer == machine.printer.key);
}

TEST_CASE("missing or damaged firmware files are a problem with the archive's own remedy") {
    Machine machine;
    fs::copy(ZUL_SAMPLE_ARCHIVE, machine.tree.folder / "archive");
    const Bundle bundle = Bundle::mainBundle((machine.tree.folder / "archive").string());
    const auto withArchive = [&](const auto& look) {
        FirmwareArchive archive(bundle);
        machine.options.archive = &archive;
        return look(machine.doctor());
    };
    const auto ofPrinter = [&](const Doctor& doctor) { return doctor.archive(machine.printer); };
    const auto ofFolder = [](const Doctor& doctor) { return doctor.archiveFolder(); };
    CHECK(withArchive(ofPrinter).state == CheckState::ok);
    CHECK(withArchive(ofFolder).state == CheckState::ok);
    std::ofstream(machine.tree.folder / "archive/VK14 01.61.fw", std::ios::app) << "X";
    Check check = withArchive(ofPrinter);
    CHECK(check.state == CheckState::problem);
    CHECK(check.text.find("VK14 01.61.fw") != std::string::npos);
    CHECK(check.remedy.find("zulctl archive verify") != std::string::npos);
    CHECK(withArchive(ofFolder).state == CheckState::ok); // this concerns only one model
    fs::remove(machine.tree.folder / "archive/digests.json");
    check = withArchive(ofFolder);
    CHECK(check.state == CheckState::problem);
    CHECK(check.remedy.find("zulctl archive digest") != std::string::npos);
    fs::remove_all(machine.tree.folder / "archive");
    CHECK(withArchive(ofFolder).state == CheckState::problem);
    CHECK(withArchive(ofPrinter).state == CheckState::problem);
}

TEST_CASE("a printer in its loader is a problem that an update fixes") {
    Machine machine;
    CHECK(machine.doctor().loader(machine.printer).state == CheckState::ok);
    machine.printer.isInLoader = true;
    machine.printer.isReady = false;
    CHECK(machine.doctor().loader(machine.printer).state == CheckState::problem);
    CHECK(machine.doctor().loader(machine.printer).remedy == "zulctl update 000001");
    CHECK(machine.doctor().ready(machine.printer).state == CheckState::unknown); // reported only once
    machine.printer.serial.clear();
    CHECK(machine.doctor().loader(machine.printer).remedy == "zulctl update 2A71000301240000");
    machine.printer.isHeldElsewhere = true;
    CHECK(machine.doctor().loader(machine.printer).state == CheckState::unknown);
    machine.printer.isHeldElsewhere = machine.printer.isUsable = false;
    CHECK(machine.doctor().loader(machine.printer).state == CheckState::unknown);
}

TEST_CASE("the command that updates a printer names the firmware files of this run") {
    Machine machine;
    machine.printer.isInLoader = true;
    machine.options.firmwareArchive = "/srv/firmware";
    CHECK(machine.doctor().loader(machine.printer).remedy == "zulctl --firmware-archive /srv/firmware update 000001");
    machine.options.firmwareArchive = "/srv/the vendor's files";
    machine.printer.serial = "A 1";
    CHECK(machine.doctor().loader(machine.printer).remedy ==
          "zulctl --firmware-archive '/srv/the vendor'\\''s files' update 'A 1'");
    UpdateHistory history({.folder = machine.options.stateFolder});
    machine.options.history = &history;
    ChildProcess writer({ZUL_HISTORY_WRITER, machine.options.stateFolder.string()});
    writer("cut-off one writing");
    writer.kill();
    const ExaminedPrinter attached{.key = "one"};
    REQUIRE(machine.doctor().interruptedUpdates({attached}).size() == 1);
    CHECK(machine.doctor().interruptedUpdates({attached}).front().remedy ==
          "zulctl --firmware-archive '/srv/the vendor'\\''s files' update one");
}

TEST_CASE("commands quote names with blanks, and execute no part of a name") {
    Machine machine;
    const fs::path folder = machine.tree.folder / "a b;true";
    fs::create_directories(folder);
    const std::string quoted = "'" + folder.string() + "'";
    machine.options.stateFolder = folder;
    machine.forbidden.insert(folder.string());
    CHECK(machine.doctor().stateFolder().remedy == "sudo chown -R \"$USER\" " + quoted);
    machine.options.stateFolder = machine.tree.folder.write("a file", "");
    const std::string file = machine.options.stateFolder.string();
    CHECK(machine.doctor().stateFolder().remedy == "mv '" + file + "' '" + file + ".old'");
    machine.options.stateFolder.clear();
    CHECK(machine.doctor().stateFolder().remedy == "export HOME=\"$(getent passwd \"$(id -un)\" | cut -d: -f6)\"");
    machine.addRule("lib");
    machine.options.ruleFolders = {folder, machine.tree.folder / "lib"};
    std::ofstream(folder / kRule) << "# switched off\n";
    CHECK(machine.doctor().udevRule().remedy ==
          "sudo rm '" + (folder / kRule).string() + "' && sudo udevadm control --reload");
    machine.devices = {.status = 0, .output = "device for photos&: usb://ZUL/VK14?serial=000001\n"};
    CHECK(machine.doctor().printQueue(machine.printer).remedy == "cupsdisable 'photos&'");
}

TEST_CASE("an interrupted update is a problem until it is completed, and a running one is not") {
    Machine machine;
    const ExaminedPrinter attached{.key = "one"};
    UpdateHistory history({.folder = machine.options.stateFolder});
    machine.options.history = &history;
    REQUIRE(machine.doctor().interruptedUpdates({attached}).size() == 1);
    CHECK(machine.doctor().interruptedUpdates({attached}).front().state == CheckState::ok);
    ChildProcess writer({ZUL_HISTORY_WRITER, machine.options.stateFolder.string()});
    writer("cut-off one writing");
    writer("cut-off two color tables");
    writer("cut-off three checking"); // no command was sent
    CHECK(machine.doctor().interruptedUpdates({attached}).front().state == CheckState::ok);
    writer.kill();
    const auto checks = machine.doctor().interruptedUpdates({attached});
    REQUIRE(checks.size() == 2);
    CHECK(checks[1].state == CheckState::problem);
    CHECK(checks[1].printer == "one");
    CHECK(checks[1].remedy == "zulctl update one");
    CHECK_FALSE(checks[1].text.find("not attached") != std::string::npos);
    CHECK(history.dismiss(history.records({.printer = "one"}).records.at(0).id).empty());
    const auto left = machine.doctor().interruptedUpdates({attached});
    REQUIRE(left.size() == 1);
    CHECK(left[0].text.find("The printer is not attached: attach it and start its update again.") != std::string::npos);
    CHECK(left[0].remedy == "zulctl history --printer two --dismiss");
}

TEST_CASE("an update that failed after a command was sent is a problem until a later one succeeds") {
    Machine machine;
    const ExaminedPrinter attached{.key = "one"};
    UpdateHistory history({.folder = machine.options.stateFolder});
    machine.options.history = &history;
    const auto update = [&](const char* phase, const RecordedVerdict& verdict) {
        const auto begun = history.begin({.begun = 1000, .key = "one", .place = "1-1", .model = "VK14"});
        REQUIRE(history.addPhase(begun.id, {.name = phase, .begun = 1000}).empty());
        REQUIRE(history.complete(begun.id, verdict).empty());
        return machine.doctor().interruptedUpdates({attached}).front();
    };
    CHECK(update("entering loader", {.verdict = nameOfResult(UpdateResult::commandRefused)}).state == CheckState::ok);
    CHECK(update("checking", {.verdict = nameOfResult(UpdateResult::declined)}).state == CheckState::ok);
    const Check failed = update("color tables", {.verdict = nameOfResult(UpdateResult::tablesMissing)});
    CHECK(failed.state == CheckState::problem);
    CHECK(failed.text.starts_with("the update of VK14 one at 1-1, begun on "));
    CHECK(failed.text.ends_with(" is not complete"));
    CHECK(failed.remedy == "zulctl update one");
    // Later updates without any change do not hide it.
    CHECK(update("checking", {.verdict = nameOfResult(UpdateResult::declined)}).state == CheckState::problem);
    CHECK(update("entering loader", {.verdict = nameOfResult(UpdateResult::commandRefused)}).state ==
          CheckState::problem);
    CHECK(history.dismiss(history.lastFailures().records.at(0).id).empty());
    CHECK(machine.doctor().interruptedUpdates({attached}).front().state == CheckState::ok);
    CHECK(update("color tables", {.verdict = nameOfResult(UpdateResult::tablesMissing)}).state == CheckState::problem);
    CHECK(update("done", {.verdict = nameOfResult(UpdateResult::succeeded), .isSuccess = true}).state ==
          CheckState::ok);
}

TEST_CASE("a history that cannot be read is a problem") {
    Machine machine;
    fs::create_directories(machine.options.stateFolder / "history.sqlite");
    UpdateHistory history({.folder = machine.options.stateFolder});
    machine.options.history = &history;
    CHECK(machine.doctor().interruptedUpdates({}).front().state == CheckState::problem);
    CHECK(machine.doctor().interruptedUpdates({}).front().text.find("cannot be read") != std::string::npos);
}

TEST_CASE("a printer that is not ready is shown with its status, and the remedy for an unresponsive one is a power "
          "cycle") {
    Machine machine;
    CHECK(machine.doctor().ready(machine.printer).state == CheckState::ok);
    machine.printer.isReady = false;
    machine.printer.status = "Cover Open";
    Check check = machine.doctor().ready(machine.printer);
    CHECK(check.state == CheckState::problem);
    CHECK(check.text == "VK14 000001 (1-2.4): Cover Open");
    CHECK(check.remedy.ends_with("zulctl status 2A71000301240000"));
    machine.printer.status.reset();
    check = machine.doctor().ready(machine.printer);
    CHECK(check.state == CheckState::problem);
    CHECK(check.text.ends_with("it does not answer"));
    CHECK(check.remedy.starts_with("Switch it off and on"));
    machine.printer.isHeldElsewhere = true;
    CHECK(machine.doctor().ready(machine.printer).state == CheckState::unknown);
}

TEST_CASE("a state folder is ok if it can be written or created, and otherwise a problem") {
    Machine machine;
    CHECK(machine.doctor().stateFolder().state == CheckState::ok);
    machine.options.stateFolder = machine.tree.folder / "state/not/there/yet";
    CHECK(machine.doctor().stateFolder().state == CheckState::ok);
    machine.forbidden.insert((machine.tree.folder / "state").string());
    CHECK(machine.doctor().stateFolder().state == CheckState::problem);
    CHECK(machine.doctor().stateFolder().remedy ==
          "sudo chown -R \"$USER\" " + (machine.tree.folder / "state").string());
    machine.forbidden = {machine.tree.folder.write("state/history.sqlite", "").string()};
    machine.options.stateFolder = machine.tree.folder / "state";
    CHECK(machine.doctor().stateFolder().state == CheckState::problem);
    machine.options.stateFolder = machine.tree.folder / "state/history.sqlite"; // a file in place of a folder
    CHECK(machine.doctor().stateFolder().state == CheckState::problem);
    machine.options.stateFolder.clear();
    CHECK(machine.doctor().stateFolder().state == CheckState::problem);
}

TEST_CASE("a missing login service is a warning") {
    Machine machine;
    const PrivateBus bus;
    machine.options.login = {.busAddress = bus.address(), .longestWait = std::chrono::seconds(60)};
    CHECK(machine.doctor().loginService().state == CheckState::warning);
    CHECK(machine.doctor().loginService().remedy == "sudo systemctl start dbus systemd-logind");
    const FakeLoginService service(bus.address());
    CHECK(machine.doctor().loginService().state == CheckState::ok);
}

TEST_CASE("the list is fixed: every check is included, with printers, without any and with embedded ones") {
    const std::vector<std::string> names = {"udev-rule",    "node-rights",      "holder", "print-queue",        "usblp",
                                            "ipp-usb",      "firmware-archive", "loader", "interrupted-update", "ready",
                                            "state-folder", "login-service"};
    Machine machine;
    machine.options.login.busAddress = "unix:path=" + (machine.tree.folder / "none").string();
    const auto namesOf = [&](const std::vector<ExaminedPrinter>& printers) {
        std::vector<std::string> found;
        for (const Check& check : machine.doctor().examine(printers)) found.push_back(check.name);
        return found;
    };
    CHECK(namesOf({}) == names);
    CHECK(namesOf({machine.printer}) == names);
    CHECK(namesOf({machine.printer, machine.printer}).size() == names.size() + 7);
    machine.options.areEmbedded = true;
    machine.printer.node.clear();
    for (const Check& check : machine.doctor().examine({machine.printer})) {
        CAPTURE(check.name);
        const bool isAboutUsb =
            std::set<std::string>{"udev-rule", "node-rights", "print-queue", "usblp", "ipp-usb"}.contains(check.name);
        CHECK((check.state == CheckState::unknown) ==
              (isAboutUsb || check.name == "firmware-archive" || check.name == "interrupted-update"));
    }
}
