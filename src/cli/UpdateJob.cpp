#include "cli/UpdateJob.h"

#include "Classes/StatusTexts.h"
#include "Classes/UpdateWords.h"
#include "platform/foundation/Format.h"

#include <nlohmann/json.hpp>
#include <unistd.h>
#include <utility>

namespace zul::cli {

namespace {

using std::chrono::seconds;

constexpr std::size_t kFirst = 0;
constexpr std::size_t kSecond = 1;

bool startsWith(const std::string& text, const char* start) {
    return text.rfind(start, 0) == 0;
}

// Nobody watches the printer any more when the program ends: what would go on by itself has to be started again.
std::string adviceAfterGivingUp(const UpdateState& state) {
    if (state.isWaitingUntilReady()) {
        return "The printer reports: " + textForStatus(state.rawStatus) +
               ". Leave it switched on, put that right and start the update again.";
    }
    if (state.isStuck() || !state.isDelicate()) return adviceForStall(state);
    return "Leave the printer switched on and check the USB cable. If it stays away or does not answer, switch it off "
           "and on. Then start the update again.";
}

} // namespace

// Told apart by their titles: the command line shows them in English.
enum class UpdateJob::AlertKind {
    agreement,
    loaderFound,
    confirmation,
    corruption,
    damagedFile,
    notNeeded,
    notReady,
    busy,
    error,
    report,
    other
};

UpdateJob::AlertKind UpdateJob::kindOf(const AlertDescription& alert) {
    const std::string& title = alert.messageText;
    if (title == "Attention:") return alert.accessory ? AlertKind::agreement : AlertKind::loaderFound;
    if (startsWith(title, "-- Warning --")) return AlertKind::confirmation;
    if (startsWith(title, "-- File corruption --")) return AlertKind::corruption;
    if (title == "There was a problem with the firmware file!") return AlertKind::damagedFile;
    if (title == "Firmware update not needed") return AlertKind::notNeeded;
    if (title == "Printer Not Ready") return AlertKind::notReady;
    if (title == "Printer Busy") return AlertKind::busy;
    if (title == "Printer Error") return AlertKind::error;
    if (title == "Firmware update was successful!" || title == "There was a problem with the firmware update!") {
        return AlertKind::report;
    }
    return AlertKind::other;
}

UpdateJob::UpdateJob(Program& program, UpdateDisplay& display, Questions& questions, Program::Printer printer,
                     Block over)
    : _program(program), _display(display), _questions(questions), _over(std::move(over)), _printer(std::move(printer)),
      _key(_printer->keyUSBdevice()), _name(nameOf(*_printer)) {}

void UpdateJob::begin() {
    _printer->verifyFirmwareArchive(); // for the list of files; the engine judges it again by itself
    const auto tables = _printer->colorTableNames();
    _program.monitor.beginUpdate(_key, _printer->firmwareVersion(), _printer->newFirmwareVersion(),
                                 static_cast<std::int64_t>(tables.size()));
    check();
    _printer->updateFirmware();
}

bool UpdateJob::isInteractive() const {
    return !_program.output.isJson() && ::isatty(STDIN_FILENO) == 1;
}

bool UpdateJob::isDelicate() const {
    const auto state = _program.monitor.state(_key);
    return !isOver() && state && state->isDelicate();
}

// ---- alerts ---------------------------------------------------------------------------------------------------------

void UpdateJob::showAlert(const AlertDescription& alert) {
    _display.breakLine();
    if (_program.output.isJson()) {
        _program.output.object({{"event", "alert"},
                                {"printer", _key},
                                {"title", alert.messageText},
                                {"message", alert.informativeText},
                                {"buttons", alert.buttons}});
    } else {
        Questions::show(alert);
    }
}

void UpdateJob::press(const AlertDescription& alert, std::size_t button) {
    if (!_program.output.isJson()) _program.output.line("  -> " + alert.buttons.at(button));
    if (alert.completion) alert.completion(kAlertFirstButton + static_cast<int>(button));
}

void UpdateJob::handleAlert(AlertDescription alert) {
    if (alert.layout) {
        // The terminal asks for the tick itself; the layout has nothing to adjust here.
        alert.layout = nullptr;
    }
    switch (kindOf(alert)) {
    case AlertKind::agreement:
        agree(std::move(alert));
        return;
    case AlertKind::confirmation:
    case AlertKind::loaderFound:
        confirm(std::move(alert));
        return;
    case AlertKind::notReady:
        retryOrEnd(std::move(alert), kNotReady);
        return;
    case AlertKind::busy:
        retryOrEnd(std::move(alert), kBusy);
        return;
    case AlertKind::error:
        retryOrEnd(std::move(alert), kFailed);
        return;
    case AlertKind::corruption:
    case AlertKind::damagedFile:
        acknowledge(alert, kCorruption);
        return;
    case AlertKind::notNeeded:
        acknowledge(alert, _program.options.notNeededOk ? kDone : kNotNeeded);
        return;
    case AlertKind::report:
        showAlert(alert);
        press(alert, kFirst); // the result is judged from the facts, not from this report
        return;
    case AlertKind::other:
        acknowledge(alert, kFailed);
        return;
    }
}

void UpdateJob::agree(AlertDescription alert) {
    if (!_program.options.agree) {
        _display.breakLine();
        _isAsking = true;
        _questions.ask(std::move(alert), [this](std::size_t button) {
            answered();
            if (button == kFirst) end(kFailed, "not updated: not agreed");
        });
        return;
    }
    showAlert(alert);
    alert.accessory->state = 1;
    if (alert.accessory->action) alert.accessory->action(*alert.accessory);
    if (!_program.output.isJson()) _program.output.line("  [x] " + alert.accessory->title);
    press(alert, kSecond);
}

void UpdateJob::confirm(AlertDescription alert) {
    if (!_program.options.yes) {
        _display.breakLine();
        _isAsking = true;
        _questions.ask(std::move(alert), [this](std::size_t button) {
            answered();
            if (button == kFirst) end(kFailed, "not updated: cancelled");
        });
        return;
    }
    showAlert(alert);
    press(alert, kSecond);
}

// A person may mend the cause and proceed; a script gets the exit status.
void UpdateJob::retryOrEnd(AlertDescription alert, int status) {
    _explanation = alert.informativeText;
    if (isInteractive()) {
        _display.breakLine();
        _isAsking = true;
        _questions.ask(std::move(alert), [this, status](std::size_t button) {
            answered();
            if (button == kSecond) end(status, "not updated: " + _explanation);
        });
        return;
    }
    showAlert(alert);
    press(alert, kSecond);
    end(status, "not updated: " + _explanation);
}

// What a person thinks about is no silence of the printer.
void UpdateJob::answered() {
    _isAsking = false;
    _program.monitor.touch(_key);
}

void UpdateJob::acknowledge(const AlertDescription& alert, int status) {
    showAlert(alert);
    press(alert, kFirst);
    std::string message = "not updated: " + alert.informativeText;
    const auto state = _program.monitor.state(_key);
    const bool isInLoader = _printer->printerStatus() == textForStatus(kLoaderStatus);
    if (isInLoader || (state && state->phase >= UpdatePhase::loaderGone)) {
        message += " The printer is in firmware update mode: leave it switched on, mend the files and start the update "
                   "again.";
    }
    end(status, message);
}

// ---- the course of it -----------------------------------------------------------------------------------------------

void UpdateJob::check() {
    const auto state = _program.monitor.state(_key);
    if (isOver() || !state || _isAsking) return;
    if (state->isFinished) {
        // Behind the engine's own report, which is on its way to the main queue and stands before the result.
        if (!std::exchange(_isJudging, true)) _program.mainQueue.async([this] { judge(); });
        return;
    }
    if (state->isArchiveRefused) {
        end(kCorruption, "the update is not complete: " + adviceForStall(*state));
        return;
    }
    if (state->phase == UpdatePhase::checking && !state->isAttached) {
        end(kFailed, "not updated: the printer left before its update began. Nothing was changed in it; start again");
        return;
    }
    const auto now = _program.clock.now();
    if (!_questions.isAsking()) _display.show(_name, *state, now); // another printer's question stands on the terminal
    const auto silence = now - state->lastSign;
    if (silence < seconds(1) && !state->isStuck()) _adviceGiven = false; // it is heard of again
    if ((silence >= seconds(_program.options.stallTimeout) || state->isStuck()) && !_adviceGiven) {
        _adviceGiven = true;
        _display.tell(_key,
                      _name + ": " + describeState(*state, now) + ". " + adviceForStall(*state) + " Still watching.",
                      "stalled");
    }
    if (now - state->lastProgress >= seconds(_program.options.giveUp)) {
        end(kNotBack, describeState(*state, now) + ". " + adviceAfterGivingUp(*state));
    }
}

void UpdateJob::judge() {
    const auto state = _program.monitor.state(_key);
    if (isOver() || !state) return;
    if (state->hasSucceeded()) {
        end(kDone, formatted("updated from %s to %s, %d color tables written", textOrNull(state->previousVersion),
                             textOrNull(state->currentVersion), state->tablesWritten));
    } else {
        end(kFailed, "the update is not complete: " + reasonOfFailure(*state) + ". Start it again");
    }
}

void UpdateJob::end(int status, const std::string& message) {
    if (isOver()) return;
    _exitStatus = status;
    const auto state = _program.monitor.state(_key);
    const auto elapsed = state ? _program.clock.now() - state->begun : Clock::Duration{};
    const double spent = std::chrono::duration<double>(elapsed).count();
    _display.breakLine();
    _display.forget(_key);
    if (_program.output.isJson()) {
        nlohmann::json result = {
            {"event", "result"}, {"printer", _key}, {"exit", status}, {"message", message}, {"elapsed", spent}};
        if (state && state->currentVersion) result["version"] = *state->currentVersion;
        if (state) result["tablesWritten"] = state->tablesWritten;
        _program.output.object(result);
    } else {
        _program.output.line(formatted("%s: %s (%.1f s)", _name, message, spent));
    }
    _program.monitor.endUpdate(_key);
    _program.mainQueue.async(_over); // never from within an answer: the questions are still at work
}

} // namespace zul::cli
