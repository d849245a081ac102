// Answers the alerts of an update on the command line: from the options, by a person at the terminal, or with the
// button that starts nothing. Main queue.
#pragma once

#include "Classes/Outlets.h"
#include "cli/Options.h"
#include "cli/Output.h"
#include "cli/Questions.h"
#include "cli/UpdateDisplay.h"

#include <cstddef>

namespace zul::cli {

class UpdateAnswers {
  public:
    /// All of these must outlive it.
    UpdateAnswers(const Options& options, const Output& output, UpdateDisplay& display, Questions& questions)
        : _options(options), _output(output), _display(display), _questions(questions) {}

    /// Answers an alert of a printer whose update was requested.
    void answer(AlertDescription alert);
    /// Declines an alert of another printer without showing it.
    static void decline(const AlertDescription& alert);
    /// True if a person reads the terminal and can answer.
    bool isInteractive() const;

  private:
    void agree(AlertDescription alert);
    void confirm(AlertDescription alert);
    void ask(AlertDescription alert);
    void show(const AlertDescription& alert);
    void showAndPress(const AlertDescription& alert, std::size_t button);

    const Options& _options;
    const Output& _output;
    UpdateDisplay& _display;
    Questions& _questions;
};

} // namespace zul::cli
