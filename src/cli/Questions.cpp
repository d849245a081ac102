#include "cli/Questions.h"

#include "cli/Output.h"

#include <algorithm>
#include <cctype>
#include <iostream>
#include <thread>

namespace zul::cli {

namespace {

constexpr std::size_t kContinueButton = 1; // of an alert with an "I Agree" box

std::string lowerCase(std::string text) {
    for (char& character : text) character = static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
    return text;
}

// The button that a line names: by number, by its whole title, or empty for the default; the count when none.
std::size_t buttonNamed(const AlertDescription& alert, const std::string& line) {
    if (line.empty()) return 0;
    for (std::size_t index = 0; index < alert.buttons.size(); ++index) {
        if (line == std::to_string(index + 1) || lowerCase(line) == lowerCase(alert.buttons[index])) return index;
    }
    return alert.buttons.size();
}

// "Cancel" where there is one, else the default, which never starts anything either.
std::size_t harmlessButton(const AlertDescription& alert) {
    const auto cancel = std::find(alert.buttons.begin(), alert.buttons.end(), "Cancel");
    return cancel == alert.buttons.end() ? 0 : static_cast<std::size_t>(cancel - alert.buttons.begin());
}

} // namespace

void Questions::show(const AlertDescription& alert) {
    std::cout << '\n';
    if (!alert.printerName.empty()) std::cout << '<' << printableInLine(alert.printerName) << ">\n";
    std::cout << printable(alert.messageText) << '\n';
    if (!alert.informativeText.empty()) std::cout << printable(alert.informativeText) << '\n';
    std::cout << std::flush;
}

void Questions::ask(AlertDescription alert, std::function<void(std::size_t)> answered) {
    _waiting.push_back({std::move(alert), std::move(answered)});
    if (_waiting.size() == 1) showFirst();
    if (_isOver) {
        _mainQueue.async([this] { leaveAll(); });
    } else {
        readLines();
    }
}

void Questions::showFirst() {
    const AlertDescription& alert = _waiting.front().alert;
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

// One thread reads for the rest of the run: the main queue must stay free for the printers.
void Questions::readLines() {
    if (_isReading) return;
    _isReading = true;
    std::thread([this] {
        for (std::string line; std::getline(std::cin, line);) {
            _mainQueue.async([this, line] { handleLine(line); });
        }
        _mainQueue.async([this] { leaveAll(); });
    }).detach();
}

// The terminal is gone: every question, now and later, gets the answer that starts nothing.
void Questions::leaveAll() {
    _isOver = true;
    while (!_waiting.empty()) answer(harmlessButton(_waiting.front().alert));
}

bool Questions::isContinueBlocked(std::size_t button) const {
    const auto& box = _waiting.front().alert.accessory;
    return button == kContinueButton && box && box->state != 1;
}

void Questions::handleLine(const std::string& line) {
    if (_waiting.empty()) return; // typed ahead of any question
    const AlertDescription& alert = _waiting.front().alert;
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
    const Question question = std::move(_waiting.front());
    _waiting.pop_front();
    if (question.answered) question.answered(button);
    if (question.alert.completion) question.alert.completion(kAlertFirstButton + static_cast<int>(button));
    if (!_waiting.empty()) showFirst();
}

} // namespace zul::cli
