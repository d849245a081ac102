// Questions on the terminal: one at a time, in the order asked. Reading never blocks the main queue. Main queue.
#pragma once

#include "Classes/Outlets.h"
#include "platform/dispatch/Queue.h"

#include <cstddef>
#include <deque>
#include <string>

namespace zul::cli {

class Questions {
  public:
    /// Reads nothing until the first question. The queue must never be destroyed: the thread that reads uses it until
    /// the process ends.
    explicit Questions(MainQueue& mainQueue) : _mainQueue(mainQueue) {}

    /// Shows the alert (title, message, buttons in order; the first is the default) and calls its completion with the
    /// chosen button.
    void ask(AlertDescription alert);
    /// Prints an alert that needs no answer, headed by the name of its printer.
    static void show(const AlertDescription& alert);
    /// While it is true, nothing else should be written to the terminal.
    bool isAsking() const { return !_waiting.empty(); }
    /// The terminal is gone: every question, pending or later, gets the answer that starts nothing.
    void close();

  private:
    void showFirst();
    void readLines();
    void handleLine(const std::string& line);
    void answer(std::size_t button);
    bool isContinueBlocked(std::size_t button) const;

    MainQueue& _mainQueue;
    std::deque<AlertDescription> _waiting;
    bool _isReading = false;
    bool _isOver = false; // no further answer can be read
};

} // namespace zul::cli
