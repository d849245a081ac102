// The command update: chooses the printers, shows their progress, and ends the run with an exit status.
// Called by main(); everything runs on the main queue.
#include "Classes/Outlets.h"
#include "Classes/StatusCodeNames.h"
#include "cli/Commands.h"
#include "cli/ExitStatus.h"
#include "cli/Options.h"
#include "cli/Program.h"
#include "cli/Questions.h"
#include "cli/UpdateAnswers.h"
#include "cli/UpdateDisplay.h"
#include "platform/foundation/Format.h"
#include "session/PrinterInfo.h"
#include "session/Session.h"
#include "update/Update.h"
#include "update/UpdateServices.h"
#include "update/UpdateTexts.h"
#include "update/UpdateVerdict.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace zul::cli {

namespace {

using std::chrono::seconds;

// How long a run that ends waits for replies to commands already sent.
constexpr auto kPatienceAtEnd = seconds(12); // two reply time-outs
constexpr auto kPatienceAtInterrupt = seconds(2);

std::string sentenceOf(const Update& update) {
    const UpdateVerdict& verdict = update.verdict;
    switch (verdict.result) {
    case UpdateResult::succeeded:
        // A printer that was in its loader at the start could not report its version.
        return formatted("updated%s to %s, %d color tables written",
                         update.state.previousVersion ? " from " + *update.state.previousVersion : "",
                         textOrNull(update.state.currentVersion), update.state.tablesWritten);
    case UpdateResult::upToDate:
        return "up to date: " + verdict.reason;
    default:
        break;
    }
    std::string text = verdict.isUntouched() ? "not updated" : "the update is not complete";
    if (verdict.result == UpdateResult::badFiles && verdict.isUntouched()) text += ", nothing was sent";
    text += ": " + verdict.reason;
    if (!update.advice.empty()) text += ". " + update.advice;
    return text;
}

class UpdateRun final : public SessionObserver {
  public:
    explicit UpdateRun(Program& program)
        : _program(program), _display(program.output), _questions(program.session.mainQueue),
          _answers(program.options, program.output, _display, _questions) {}

    void begin() {
        if (!hasAnswers() || !choosePrinters() || !isArchiveFit()) return;
        const Options& options = _program.options;
        UpdateSettings settings;
        if (options.stallTimeout > 0) settings.stallAfter = seconds(options.stallTimeout);
        // Unlike the window, a script must end: the printer may never come back.
        settings.giveUpAfter = seconds(options.giveUp);
        supervisor().setSettings(settings);
        _program.session.setObserver(this);
        // Connected before the first update begins, because its alerts may come at once.
        _program.alerts.handler = [this](AlertDescription alert) { route(std::move(alert)); };
        _program.onInterrupt([this](Program::Interrupt interrupt) { interrupted(interrupt); });
        const auto equal = options.reinstall ? UpdateSupervisor::Equal::install : UpdateSupervisor::Equal::skip;
        for (const auto& printer : _printers) supervisor().begin(printer, equal);
    }

    // ---- SessionObserver --------------------------------------------------------------------------------------------

    void updateDidChange(const std::string& key) override {
        // Changes of printers that were not chosen, and those after the result, are not shown.
        if (!isOurs(key) || _isEnding) return;
        const Update& update = supervisor().updates().at(key);
        if (!update.isOpen()) return;
        const auto now = supervisor().now();
        // While a question is on the terminal, progress would overwrite it.
        if (!_questions.isAsking()) _display.show(update, now);
        if (update.advice.empty()) {
            _advice.erase(key);
        } else if (std::exchange(_advice[key], update.advice) != update.advice) {
            _display.report(key,
                            update.name + ": " + describeState(update.state, now, update.usual) + ". " + update.advice +
                                " Still watching.",
                            "stalled");
        }
    }

    void updateDidEnd(const std::string& key) override {
        if (!isOurs(key)) return;
        const Update& update = supervisor().updates().at(key);
        _display.breakLine();
        _display.forget(key);
        // Queued after the engine's own report, so that the result is the last line.
        _program.session.mainQueue.async([this, update] {
            showResult(update);
            endIfOver();
        });
    }

    void noteDidArise(const std::string& text) override {
        _display.breakLine();
        _program.output.note(text);
    }

    void unusablePrinterDidArrive(const std::string& message) override { _display.report("", message, "unusable"); }

  private:
    UpdateSupervisor& supervisor() { return _program.session.supervisor; }
    bool isOurs(const std::string& key) const { return _keys.contains(key); }

    // Without a person at the terminal, the answers must be among the options.
    bool hasAnswers() {
        if (_answers.isInteractive()) return true;
        const auto& options = _program.options;
        std::string missing;
        if (!options.agree) missing = "--agree";
        if (!options.yes) missing += missing.empty() ? "--yes" : " and --yes";
        if (missing.empty()) return true;
        return refuse("this is not a terminal, so update needs its answers on the command line; missing: " + missing,
                      kWrongUsage);
    }

    bool refuse(const std::string& message, int status) {
        _program.output.problem(message + ".", status);
        _program.quit(status);
        return false;
    }

    bool choosePrinters() {
        const auto& names = _program.options.arguments;
        int status = kNoPrinter;
        if (_program.options.all) {
            if (!names.empty()) return refuse("name printers or give --all, not both", kWrongUsage);
            for (const auto& printer : _program.session.printers()) choose(printer);
            if (_printers.empty()) _program.reportNoPrinter(status);
        } else if (names.size() <= 1) {
            choose(_program.findOnly(names, status));
        } else {
            for (const std::string& name : names) {
                const auto printer = _program.find(name, status);
                if (!printer) {
                    _printers.clear();
                    break;
                }
                choose(printer);
            }
        }
        if (_printers.empty()) _program.quit(status);
        return !_printers.empty();
    }

    // Naming a printer twice selects it once. A device with two printer interfaces is one printer: a second update of
    // it at the same time would spoil the first.
    void choose(const Program::Printer& printer) {
        if (printer && _keys.insert(printer->keyUSBdevice()).second) _printers.push_back(printer);
    }

    // Checked before the first question: do not begin an update that cannot succeed.
    bool isArchiveFit() {
        if (!_program.session.areSamplesWithheld()) return true;
        return refuse("the firmware files in use are samples for virtual printers. Name the folder with the vendor's "
                      "files: zulctl --firmware-archive DIR update. Nothing was sent",
                      kFailed);
    }

    // Declines alerts of printers whose update was not requested.
    void route(AlertDescription alert) {
        if (isOurs(alert.printerKey)) {
            _answers.answer(std::move(alert));
        } else {
            UpdateAnswers::decline(alert);
        }
    }

    int statusOf(const Update& update) const {
        const int status = exitStatusOf(update.verdict.result);
        return status == kNotNeeded && _program.options.notNeededOk ? static_cast<int>(kDone) : status;
    }

    void showResult(const Update& update) {
        // Ends with a command that the user can copy.
        const double spent = std::chrono::duration<double>(update.endedAt - update.state.begun).count();
        const std::string sentence = sentenceOf(update);
        if (!_program.output.isJson()) {
            _program.output.line(formatted("%s: %s (%.1f s)", update.name, sentence, spent));
            return;
        }
        nlohmann::json result = {{"event", "result"},
                                 {"printer", update.state.key},
                                 {"exit", statusOf(update)},
                                 {"result", nameOfResult(update.verdict.result)},
                                 {"message", sentence},
                                 {"elapsed", spent},
                                 {"tablesWritten", update.state.tablesWritten}};
        if (update.state.currentVersion) result["version"] = *update.state.currentVersion;
        if (update.verdict.refused) result["code"] = strForIOReturn(update.verdict.refused->code);
        if (update.verdict.holder) {
            result["holder"] = jsonOf(*update.verdict.holder);
        }
        if (update.verdict.isCorrected) result["corrected"] = true;
        _program.output.object(result);
    }

    // The status of the first printer that failed, in list order.
    int exitStatus() {
        for (const auto& printer : _printers) {
            const Update& update = supervisor().updates().at(printer->keyUSBdevice());
            // Ended by the interrupt, then reopened because its printer continued.
            const int status = _isInterrupted && update.isOpen() ? static_cast<int>(kInterrupted) : statusOf(update);
            if (status != kDone) return status;
        }
        return kDone;
    }

    void endIfOver() {
        const auto& updates = supervisor().updates();
        const bool isOver =
            std::ranges::all_of(_keys, [&](const std::string& key) { return !updates.at(key).isOpen(); });
        if (_isEnding || !isOver) return;
        _isEnding = true;
        const bool isStuck =
            std::ranges::any_of(_keys, [&](const std::string& key) { return !updates.at(key).verdict.isSuccess(); });
        // An updated printer may still be answering queries: wait for them, then release it. Until then a verdict may
        // be corrected.
        if (isStuck || _isInterrupted) releasePrinters();
        _program.session.afterQueues(_program.session.printers(), [this] { _program.quit(exitStatus()); });
    }

    // Ends waits that have no limit, but only after the reply that is under way: an unread reply would be taken for the
    // reply to the first query of the next run. The patience limits the wait for a printer that does not reply at all.
    void releasePrinters() {
        for (const auto& printer : _program.session.printers()) printer->prepareForRelease();
        const auto patience = _isInterrupted ? kPatienceAtInterrupt : kPatienceAtEnd;
        _program.session.clock.callAt(_program.session.clock.now() + patience, [this] {
            _program.session.mainQueue.async([this] { _program.quit(exitStatus()); });
        });
    }

    // Only a person can be asked to confirm. A closed terminal does not stop the update.
    void interrupted(Program::Interrupt interrupt) {
        if (interrupt == Program::Interrupt::terminalClosed) {
            _questions.close();
            _display.close();
            return;
        }
        const bool isBetweenCommands = supervisor().isAnyBetweenCommands();
        if (interrupt == Program::Interrupt::byUser && isBetweenCommands && !std::exchange(_isWarned, true)) {
            _display.breakLine();
            _program.output.note("a printer is in the middle of its update and may be unusable until the update is "
                                 "repeated. Interrupt once more to end as soon as it can be left.");
            return;
        }
        _isInterrupted = true;
        if (isBetweenCommands) {
            _display.breakLine();
            _program.output.note("ending when the printers can be left, at most 60 seconds from now.");
        }
        supervisor().requestStop();
    }

    Program& _program;
    UpdateDisplay _display;
    Questions _questions;
    UpdateAnswers _answers;
    std::vector<Program::Printer> _printers; // in the order of the list or of the command line
    std::set<std::string> _keys;
    std::map<std::string, std::string> _advice; // by key: the last advice shown
    bool _isWarned = false;
    bool _isInterrupted = false;
    bool _isEnding = false;
};

} // namespace

void runUpdate(Program& program) {
    static UpdateRun* run = nullptr; // kept until the process ends: queued blocks use it
    run = new UpdateRun(program);
    run->begin();
}

} // namespace zul::cli
