// What the alerts of an update are answered on the command line: by the options, by a person at the terminal, or by the
// button that starts nothing. Main queue.
#pragma once

#include "cli/Options.h"
#include "cli/Output.h"
#include "cli/Questions.h"
#include "cli/UpdateDisplay.h"

namespace zul::cli {

class UpdateAnswers {
  public:
    UpdateAnswers(const Options& options, const Output& output, UpdateDisplay& display, Questions& questions)
        : _options(options), _output(output), _display(display), _questions(questions) {}

    /// An alert of a printer whose update was asked for.
    void answer(AlertDescription alert);
    /// An alert of another printer: it is left as it is, and nothing is shown.
    static void decline(const AlertDescription& alert);
    /// A person reads the terminal and can answer.
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
