// Chooses the button for each kind of alert.
// Called by the update command on the main queue.
#include "cli/UpdateAnswers.h"

#include "Classes/AlertKind.h"
#include "Classes/Outlets.h"

#include <cstddef>
#include <nlohmann/json.hpp>
#include <unistd.h>
#include <utility>

namespace zul::cli {

namespace {

constexpr std::size_t kFirst = 0;
constexpr std::size_t kSecond = 1;

} // namespace

bool UpdateAnswers::isInteractive() const {
    return !_output.isJson() && ::isatty(STDIN_FILENO) == 1;
}

void UpdateAnswers::decline(const AlertDescription& alert) {
    if (alert.completion) alert.completion(kAlertFirstButton + static_cast<int>(alert.harmlessButton));
}

void UpdateAnswers::answer(AlertDescription alert) {
    alert.layout = nullptr; // the terminal asks for the tick itself, so no button state must be adjusted
    switch (alert.kind) {
    case AlertKind::agreement:
        agree(std::move(alert));
        return;
    // Both lead to a command that cannot be undone, so both need --yes.
    case AlertKind::confirmation:
    case AlertKind::loaderFound:
        confirm(std::move(alert));
        return;
    case AlertKind::notReady:
    case AlertKind::busy:
    case AlertKind::printerError:
        // A person may fix the cause and proceed; a script gets the exit status.
        if (isInteractive()) {
            ask(std::move(alert));
        } else {
            showAndPress(alert, alert.harmlessButton);
        }
        return;
    default:
        // All other kinds have one button.
        showAndPress(alert, kFirst);
        return;
    }
}

void UpdateAnswers::agree(AlertDescription alert) {
    if (!_options.agree) {
        ask(std::move(alert));
        return;
    }
    show(alert);
    alert.accessory->state = 1;
    if (alert.accessory->action) alert.accessory->action(*alert.accessory);
    if (!_output.isJson()) _output.line("  [x] " + alert.accessory->title);
    showAndPress(alert, kSecond);
}

void UpdateAnswers::confirm(AlertDescription alert) {
    if (_options.yes) {
        showAndPress(alert, kSecond);
    } else {
        ask(std::move(alert));
    }
}

void UpdateAnswers::ask(AlertDescription alert) {
    _display.breakLine();
    _questions.ask(std::move(alert));
}

void UpdateAnswers::show(const AlertDescription& alert) {
    _display.breakLine();
    if (_output.isJson()) {
        _output.object({{"event", "alert"},
                        {"printer", alert.printerKey},
                        {"title", alert.messageText},
                        {"message", alert.informativeText},
                        {"buttons", alert.buttons}});
    } else {
        Questions::show(alert);
    }
}

void UpdateAnswers::showAndPress(const AlertDescription& alert, std::size_t button) {
    if (alert.kind != AlertKind::agreement) show(alert); // the agreement was shown before its box was ticked
    if (!_output.isJson()) _output.line("  -> " + alert.buttons.at(button));
    if (alert.completion) alert.completion(kAlertFirstButton + static_cast<int>(button));
}

} // namespace zul::cli
