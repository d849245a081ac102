// The update of one printer, from the operator's side: what its alerts are answered, and what it came to. The engine
// does the update; this only starts it, answers and judges by facts. Main queue.
#pragma once

#include "cli/ExitStatus.h"
#include "cli/Program.h"
#include "cli/Questions.h"
#include "cli/UpdateDisplay.h"

#include <optional>
#include <string>

namespace zul::cli {

class UpdateJob {
  public:
    /// over is called on the main queue after the job has ended.
    UpdateJob(Program& program, UpdateDisplay& display, Questions& questions, Program::Printer printer, Block over);

    void begin();
    /// An alert of this printer.
    void handleAlert(AlertDescription alert);
    /// Looks at the monitor: at every change and every second.
    void check();
    /// The user ended the run.
    void interrupt() { end(kInterrupted, "interrupted; the printer is left as it is"); }

    const std::string& key() const { return _key; }
    const std::string& name() const { return _name; }
    bool isOver() const { return _exitStatus.has_value(); }
    int exitStatus() const { return _exitStatus.value_or(kFailed); }
    bool isDelicate() const;

  private:
    enum class AlertKind;
    static AlertKind kindOf(const AlertDescription& alert);
    bool isInteractive() const;
    void showAlert(const AlertDescription& alert);
    void agree(AlertDescription alert);
    void confirm(AlertDescription alert);
    void retryOrEnd(AlertDescription alert, int status);
    void acknowledge(const AlertDescription& alert, int status);
    void answered();
    void press(const AlertDescription& alert, std::size_t button);
    void end(int status, const std::string& message);
    void judge();

    Program& _program;
    UpdateDisplay& _display;
    Questions& _questions;
    const Block _over;
    const Program::Printer _printer; // the object of the beginning; successors are known by the key only
    const std::string _key;
    const std::string _name;
    std::optional<int> _exitStatus;
    std::string _explanation; // what the last alert said, where it decides the result
    bool _adviceGiven = false;
    bool _isAsking = false;
    bool _isJudging = false;
};

} // namespace zul::cli
