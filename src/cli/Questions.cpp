// Shows one alert after the other on the terminal and reads the answers on a thread of its own.
// Everything else runs on the main queue; called by UpdateAnswers and the update command.
#include "cli/Questions.h"

#include "Classes/Outlets.h"
#include "platform/foundation/PrintableText.h"

#include <cctype>
#include <cstddef>
#include <iostream>
#include <string>
#include <thread>
#include <utility>

namespace zul::cli {

namespace {

constexpr std::size_t kContinueButton = 1; // of an alert with the "I Agree" box

std::string lowerCase(std::string text) {
    for (char& character : text) character = static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
    return text;
}

// The button named by line: by number or whole title, the default for an empty line; the button count if none matches.
std::size_t buttonNamed(const AlertDescription& alert, const std::string& line) {
    // Return presses the default button, as in the window.
    if (line.empty()) return 0;
    for (std::size_t index = 0; index < alert.buttons.size(); ++index) {
        if (line == std::to_string(index + 1) || lowerCase(line) == lowerCase(alert.buttons[index])) return index;
    }
    return alert.buttons.size();
}

} // namespace

void Questions::show(const AlertDescription& alert) {
    std::cout << '\n';
    if (!alert.printerName.empty()) std::cout << '<' << printableInLine(alert.printerName) << ">\n";
    std::cout << printable(alert.messageText) << '\n';
    if (!alert.informativeText.empty()) std::cout << printable(alert.informativeText) << '\n';
    std::cout << std::flush;
}

void Questions::ask(AlertDescription alert) {
    _waiting.push_back(std::move(alert));
    if (_waiting.size() == 1) showFirst();
    // Not at once: the caller must not get its answer inside this call.
    if (_isOver) {
        _mainQueue.async([this] { close(); });
    } else {
        readLines();
    }
}

void Questions::showFirst() {
    const AlertDescription& alert = _waiting.front();
    show(alert);
    if (alert.accessory)
        std::cout << "  [" << (alert.accessory->state == 1 ? 'x' : ' ') << "] " << alert.accessory->title
                  << "  (type \"agree\" to tick it)\n";
    for (std::size_t index = 0; index < alert.buttons.size(); ++index) {
        std::cout << "  " << index + 1 << ") " << printable(alert.buttons[index]) << (index == 0 ? "  (Return)" : "")
                  << '\n';
    }
    std::cout << "> " << std::flush;
}

// One thread reads until the process ends: the main queue must never block in a read.
void Questions::readLines() {
    if (_isReading) return;
    _isReading = true;
    std::thread([this] {
        for (std::string line; std::getline(std::cin, line);) {
            _mainQueue.async([this, line] { handleLine(line); });
        }
        _mainQueue.async([this] { close(); });
    }).detach();
}

void Questions::close() {
    _isOver = true;
    while (!_waiting.empty()) answer(_waiting.front().harmlessButton);
}

bool Questions::isContinueBlocked(std::size_t button) const {
    const auto& box = _waiting.front().accessory;
    return button == kContinueButton && box && box->state != 1;
}

void Questions::handleLine(const std::string& line) {
    if (_waiting.empty()) return; // typed before any question
    const AlertDescription& alert = _waiting.front();
    if (alert.accessory && (lowerCase(line) == "agree" || lowerCase(line) == lowerCase(alert.accessory->title))) {
        alert.accessory->state = 1 - alert.accessory->state;
        if (alert.accessory->action) alert.accessory->action(*alert.accessory);
        showFirst();
        return;
    }
    const std::size_t button = buttonNamed(alert, line);
    if (button >= alert.buttons.size()) {
        std::cout << "Type the number of a button.\n> " << std::flush;
        return;
    }
    if (isContinueBlocked(button)) {
        std::cout << "Tick \"" << alert.accessory->title << "\" first: type \"agree\".\n> " << std::flush;
        return;
    }
    answer(button);
}

void Questions::answer(std::size_t button) {
    // Taken out first, because the completion may ask the next question.
    const AlertDescription alert = std::move(_waiting.front());
    _waiting.pop_front();
    if (alert.completion) alert.completion(kAlertFirstButton + static_cast<int>(button));
    if (!_waiting.empty()) showFirst();
}

} // namespace zul::cli
