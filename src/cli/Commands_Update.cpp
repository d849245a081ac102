// update: which printers, one job each, and the end of the run when all jobs are over.
#include "cli/Commands.h"

#include "archive/ArchiveTexts.h"
#include "cli/UpdateJob.h"
#include "platform/foundation/Format.h"

#include <algorithm>
#include <iostream>
#include <unistd.h>
#include <utility>

namespace zul::cli {

namespace {

// How long a run that ends waits for the answers that are under way.
constexpr auto kPatienceAtEnd = std::chrono::seconds(12); // two answers that do not come
constexpr auto kPatienceAtInterrupt = std::chrono::seconds(2);

class UpdateRun {
  public:
    explicit UpdateRun(Program& program) : _program(program), _display(program.output), _questions(program.mainQueue) {}

    void begin() {
        if (!hasAnswers() || !choosePrinters() || !isArchiveFit()) return;
        _program.alerts.handler = [this](AlertDescription alert) { route(std::move(alert)); };
        _program.updateChanged = [this](const std::string& key) { changed(key); };
        _program.unusableFound = [this](const std::string& message) { _display.tell("", message, "unusable"); };
        _program.onInterrupt([this](Program::Interrupt interrupt) { interrupted(interrupt); });
        for (const auto& job : _jobs) job->begin();
        tick();
    }

  private:
    // Without anybody to ask, the answers must stand on the command line.
    bool hasAnswers() {
        const auto& options = _program.options;
        if (!options.json && ::isatty(STDIN_FILENO) == 1) return true;
        std::string missing;
        if (!options.agree) missing = "--agree";
        if (!options.yes) missing += missing.empty() ? "--yes" : " and --yes";
        if (missing.empty()) return true;
        return refuse("nobody can be asked here, so update needs its answers on the command line; missing: " + missing,
                      kWrongUsage);
    }

    bool refuse(const std::string& message, int status) {
        _program.output.problem(message + ".", status);
        _program.quit(status);
        return false;
    }

    bool choosePrinters() {
        const auto& names = _program.options.arguments;
        std::vector<Program::Printer> chosen;
        if (_program.options.all) {
            chosen = _program.printers();
            if (!names.empty()) return refuse("name printers or give --all, not both", kWrongUsage);
            if (chosen.empty()) {
                _program.tellNoPrinter(kNoPrinter);
                _program.quit(kNoPrinter);
                return false;
            }
        } else if (names.size() <= 1) {
            int status = kNoPrinter;
            const auto printer = _program.findOnly(names, status);
            if (!printer) {
                _program.quit(status);
                return false;
            }
            chosen.push_back(printer);
        } else {
            for (const std::string& name : names) {
                int status = kNoPrinter;
                const auto printer = _program.find(name, status);
                if (!printer) {
                    _program.quit(status);
                    return false;
                }
                // Named twice is meant once: a second update of the same printer would spoil the first.
                if (std::ranges::count(chosen, printer) == 0) chosen.push_back(printer);
            }
        }
        for (const auto& printer : chosen) {
            _jobs.push_back(
                std::make_unique<UpdateJob>(_program, _display, _questions, printer, [this] { endIfOver(); }));
        }
        _printers = chosen;
        return true;
    }

    // Before the first question: an update that cannot end well is not begun.
    bool isArchiveFit() {
        if (_program.areSamplesWithheld()) {
            return refuse("the firmware files in use are samples for virtual printers. Name the folder with the "
                          "vendor's files: zulctl --firmware-archive DIR update. Nothing was sent",
                          kFailed);
        }
        std::vector<std::string> lines; // a file that several printers need is named once
        for (const auto& printer : _printers) {
            for (const ArchiveProblem& problem : printer->archiveProblems()) {
                const std::string line = "\n  " + describeProblem(problem);
                if (std::ranges::count(lines, line) == 0) lines.push_back(line);
            }
        }
        if (lines.empty()) return true;
        std::string text = "not updated, nothing was sent:";
        for (const std::string& line : lines) text += line;
        _program.output.problem(text, kCorruption);
        _program.quit(kCorruption);
        return false;
    }

    void route(AlertDescription alert) {
        for (const auto& job : _jobs) {
            if (job->key() != alert.printerKey || job->isOver()) continue;
            job->handleAlert(std::move(alert));
            return;
        }
        // Of a printer that nobody asked to be updated, or whose update has ended: left as it is. The first button
        // starts nothing, except where there is a "Cancel".
        const auto cancel = std::ranges::find(alert.buttons, "Cancel");
        const auto button = cancel == alert.buttons.end() ? 0 : cancel - alert.buttons.begin();
        if (alert.completion) alert.completion(kAlertFirstButton + static_cast<int>(button));
    }

    void changed(const std::string& key) {
        for (const auto& job : _jobs) {
            if (job->key() == key) job->check();
        }
    }

    void tick() {
        for (const auto& job : _jobs) job->check();
        if (_isEnding) return;
        _program.clock.callAt(_program.clock.now() + std::chrono::seconds(1),
                              [this] { _program.mainQueue.async([this] { tick(); }); });
    }

    void endIfOver() {
        if (_isEnding || !std::ranges::all_of(_jobs, [](const auto& job) { return job->isOver(); })) return;
        _isEnding = true;
        const auto failed = std::ranges::find_if(_jobs, [](const auto& job) { return job->exitStatus() != kDone; });
        const int status = failed == _jobs.end() ? static_cast<int>(kDone) : (*failed)->exitStatus();
        const bool isStuck = std::ranges::any_of(
            _jobs, [](const auto& job) { return job->exitStatus() == kInterrupted || job->exitStatus() == kNotBack; });
        // A printer that was updated may still be asked for its facts: let it come to rest, then leave it alone.
        if (isStuck) letGoOfPrinters(status);
        _program.afterQueues(_program.printers(), [this, status] { _program.quit(status); });
    }

    // A wait without end is given up behind its question's answer: an answer that nobody reads would be taken for that
    // of the next run's first question. A printer that does not answer at all is not waited for any longer than that.
    void letGoOfPrinters(int status) {
        for (const auto& printer : _program.printers()) printer->prepareForRelease();
        const auto patience = status == kInterrupted ? kPatienceAtInterrupt : kPatienceAtEnd;
        _program.clock.callAt(_program.clock.now() + patience, [this, status] { _program.quit(status); });
    }

    // Only a person can be asked once more; a system that shuts down takes no answer.
    void interrupted(Program::Interrupt interrupt) {
        const bool isDelicate = std::ranges::any_of(_jobs, [](const auto& job) { return job->isDelicate(); });
        if (interrupt == Program::Interrupt::byUser && isDelicate && !std::exchange(_isWarned, true)) {
            _display.breakLine();
            _program.output.note("a printer is in the middle of its update and may be unusable until the update is "
                                 "repeated. Interrupt once more to end all the same.");
            return;
        }
        for (const auto& job : _jobs) job->interrupt(); // the last one ends the run
    }

    Program& _program;
    UpdateDisplay _display;
    Questions _questions;
    std::vector<Program::Printer> _printers;
    std::vector<std::unique_ptr<UpdateJob>> _jobs;
    bool _isWarned = false;
    bool _isEnding = false;
};

} // namespace

void runUpdate(Program& program) {
    static std::unique_ptr<UpdateRun> run; // as long as the program runs
    run = std::make_unique<UpdateRun>(program);
    run->begin();
}

} // namespace zul::cli
