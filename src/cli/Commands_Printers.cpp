// The commands that query, set or reset printers. Called by main() on the main queue.
// Transfers block, so they run on the printer's own command queue.
#include "cli/Commands.h"

#include "protocol/StatusTexts.h"

#include "Classes/StatusCodeNames.h"
#include "cli/ExitStatus.h"
#include "cli/Program.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/PrintableText.h"
#include "session/FailureTexts.h"
#include "session/PrinterFacts.h"

#include <nlohmann/json.hpp>

namespace zul::cli {

namespace {

using nlohmann::json;

void reportBusy(Program& program, const Program::Printer& printer, const InterfaceHolder& holder) {
    program.output.problem(displayNameOf(*printer) + ": " + describeHolder(holder) + ". " + adviceForHolder(holder) +
                               " Then try again.",
                           kBusy);
    program.quit(kBusy);
}

// The code is for scripts and for the log, the text for people.
void reportFailure(Program& program, const std::string& text, IOReturn code) {
    logText("%s (%s)\n", text, strForIOReturn(code));
    program.output.problem(text, kFailed, strForIOReturn(code));
    program.quit(kFailed);
}

void reportOpenFailure(Program& program, const Program::Printer& printer, IOReturn code) {
    if (code == kIOReturnExclusiveAccess) {
        reportBusy(program, printer,
                   program.session.supervisor.holder(printer->keyUSBdevice()).value_or(InterfaceHolder{}));
        return;
    }
    reportFailure(program, openFailureText(*printer, code), code);
}

// Takes the printer's lock, so that no other process changes the printer at the same time. The lock is kept until this
// process ends. Returns false after reporting the process that holds it.
bool reserve(Program& program, const Program::Printer& printer, const std::string& activity) {
    static std::optional<PrinterLock> lock;
    auto result = program.session.locks.tryLock(printer->keyUSBdevice(), activity);
    if (!result.problem.empty()) program.output.note(result.problem);
    lock = std::move(result.lock);
    if (result.isRefused()) reportBusy(program, printer, *result.holder);
    return !result.isRefused();
}

// Opens the interface, runs work on the printer's queue, closes the interface, then runs done on the main queue.
void withOpenPrinter(Program& program, const Program::Printer& printer, std::function<void()> work, Block done) {
    printer->openInterface([&program, printer, work = std::move(work), done = std::move(done)](IOReturn code) {
        if (code == kIOReturnSuccess) work();
        printer->closeInterface([&program, printer, code, done](IOReturn) {
            program.session.mainQueue.async([&program, printer, code, done] {
                if (code == kIOReturnSuccess) {
                    done();
                } else {
                    reportOpenFailure(program, printer, code);
                }
            });
        });
    });
}

void showStatus(Program& program, const Program::Printer& printer, const std::optional<std::string>& rawStatus) {
    if (!rawStatus) {
        program.output.problem(displayNameOf(*printer) + " does not answer. Switch it off and on, then try again.",
                               kNotBack);
        program.quit(kNotBack);
        return;
    }
    const std::string text = TBUSBPrinterZUL::stringForVKStatusString(rawStatus);
    if (program.output.isJson()) {
        program.output.document({{"key", printer->keyUSBdevice()}, {"code", *rawStatus}, {"status", text}});
    } else {
        program.output.line(*rawStatus + "  " + text);
    }
    program.quit(kDone);
}

} // namespace

void runList(Program& program) {
    program.noteUnusable();
    const auto printers = program.session.printers();
    json list = json::array();
    std::vector<std::vector<std::string>> rows = {
        {"#", "KEY", "MODEL", "MANUFACTURER", "SERIAL", "STATUS", "INSTALLED", "OFFERED", "LOCATION"}};
    for (const auto& printer : printers) {
        json facts = summaryOf(*printer);
        facts.update(conditionOf(program.session.supervisor, *printer));
        list.push_back(facts);
        std::vector<std::string> row = {std::to_string(rows.size())};
        for (const char* key : {"key", "model", "manufacturer", "printerSerialNumber"})
            row.push_back(oneLineText(facts[key]));
        const std::string status = printableInLine(statusLine(program.session.supervisor, *printer));
        row.push_back(status.empty() ? "-" : status);
        row.push_back(oneLineText(facts["firmwareInstalled"]));
        row.push_back(offeredFirmware(*printer));
        row.push_back(oneLineText(facts["location"]));
        rows.push_back(row);
    }
    if (program.output.isJson()) {
        program.output.document(list);
    } else if (printers.empty()) {
        program.output.line(program.session.unusablePrinters().empty()
                                ? "No printer is attached. Connect a ZUL printer by USB and switch it on."
                                : "No attached printer can be used.");
    } else {
        program.output.table(rows);
    }
    // Attached printers that cannot be used are a failure for a script; no printer at all is a valid answer.
    program.quit(printers.empty() && program.session.hasUnusable() ? kFailed : kDone);
}

void runInfo(Program& program) {
    int status = kDone;
    const auto printer = program.findOnly(program.options.arguments, status);
    if (!printer) {
        program.quit(status);
        return;
    }
    // Explains why so little is known about this printer.
    if (const std::string text = missingRightText(*printer); !text.empty()) program.output.note(text);
    json facts = factsOf(*printer);
    facts.update(conditionOf(program.session.supervisor, *printer));
    if (program.output.isJson()) {
        program.output.document(facts);
        program.quit(kDone);
        return;
    }
    std::vector<std::vector<std::string>> rows;
    for (const auto& [key, value] : facts.items()) {
        if (key == "deviceInfo") continue;
        rows.push_back({key, key == "firmwareOffered" ? offeredFirmware(*printer) : oneLineText(value)});
    }
    for (const auto& [key, value] : facts["deviceInfo"].items()) rows.push_back({key, oneLineText(value)});
    program.output.table(rows);
    program.quit(kDone);
}

void runStatus(Program& program) {
    int status = kDone;
    const auto printer = program.findOnly(program.options.arguments, status);
    if (!printer) {
        program.quit(status);
        return;
    }
    const auto answer = std::make_shared<std::optional<std::string>>();
    withOpenPrinter(
        program, printer,
        [printer, answer] {
            printer->getPrinterStatus([answer](const OptionalText& rawStatus) { *answer = rawStatus; });
        },
        [&program, printer, answer] { showStatus(program, printer, *answer); });
}

void runResetCounter(Program& program) {
    int status = kDone;
    const auto printer = program.find(program.options.arguments.at(1), status);
    if (!printer) {
        program.quit(status);
        return;
    }
    if (printer->printerStatus() == textForStatus(kLoaderStatus)) {
        program.output.problem(displayNameOf(*printer) + " is not ready: " + textForStatus(kLoaderStatus) + ".",
                               kNotReady);
        program.quit(kNotReady);
        return;
    }
    if (!reserve(program, printer, "counter reset")) return;
    const char letter = program.options.arguments.at(0).front();
    withOpenPrinter(
        program, printer, [printer, letter] { printer->resetCounter(letter); },
        [&program, printer, letter] {
            const IOReturn code = printer->writeStatus();
            if (code != kIOReturnSuccess) {
                reportFailure(program, commandFailureText(displayNameOf(*printer), code), code);
                return;
            }
            if (program.output.isJson()) {
                program.output.document({{"key", printer->keyUSBdevice()}, {"counterReset", std::string(1, letter)}});
            } else {
                program.output.line(formatted("Counter %c of %s is reset.", letter, displayNameOf(*printer)));
            }
            program.quit(kDone);
        });
}

void runUSBSerial(Program& program) {
    int status = kDone;
    const auto printer = program.find(program.options.arguments.at(1), status);
    if (!printer) {
        program.quit(status);
        return;
    }
    if (!printer->hasISerialSupport()) {
        program.output.problem(displayNameOf(*printer) + " has no such setting.", kFailed);
        program.quit(kFailed);
        return;
    }
    if (!reserve(program, printer, "setting")) return;
    const bool enabled = program.options.arguments.at(0) == "on";
    withOpenPrinter(
        program, printer, [printer, enabled] { printer->setUSB_ISerial(enabled); },
        [&program, printer, enabled] {
            if (printer->usbISerial() != enabled) {
                program.output.problem("the printer did not accept the setting.", kFailed);
                program.quit(kFailed);
                return;
            }
            if (program.output.isJson()) {
                program.output.document(
                    {{"key", printer->keyUSBdevice()}, {"usbSerialNumberSetting", printer->usbISerialString()}});
            } else {
                program.output.line("USB serial number: " + printer->usbISerialString());
            }
            if (enabled != printer->serialNumberUSB().has_value()) {
                program.output.note("Please power-cycle the printer now to complete the process!");
            }
            printer->deleteExistingPrinterQueues();
            program.quit(kDone);
        });
}

void runReset(Program& program) {
    int status = kDone;
    const auto printer = program.find(program.options.arguments.at(0), status);
    if (!printer) {
        program.quit(status);
        return;
    }
    if (!reserve(program, printer, "reset")) return;
    const std::string command = program.options.command;
    const auto code = std::make_shared<IOReturn>(kIOReturnSuccess);
    const auto work = [printer, command, code] {
        printer->assertOnCommandQueue();
        if (command == "soft-reset") *code = printer->resetUSBPrinter();
        if (command == "reset") *code = printer->resetUSBDevice();
        if (command == "reenumerate") *code = printer->reEnumerateUSBDevice();
    };
    withOpenPrinter(program, printer, work, [&program, printer, command, code] {
        const IOReturn result = *code;
        if (result != kIOReturnSuccess) {
            reportFailure(program, resetFailureText(displayNameOf(*printer), command, result), result);
            return;
        }
        if (program.output.isJson()) {
            program.output.document({{"key", printer->keyUSBdevice()}, {"done", command}});
        } else {
            program.output.line(displayNameOf(*printer) + ": " + command + " done.");
        }
        program.quit(kDone);
    });
}

} // namespace zul::cli
