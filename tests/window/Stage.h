// The window on a real display with embedded printers, and the operator of a test, who finds widgets by their
// accessible names. GUI thread.
#pragma once

#include "platform/dispatch/Queue.h"
#include "support/QuickClock.h"
#include "support/TemporaryFolder.h"
#include "ui/WindowProgram.h"

#include <QApplication>
#include <QPoint>
#include <QString>
#include <QStringList>
#include <QWidget>
#include <Qt>
#include <chrono>
#include <cstdlib>
#include <doctest/doctest.h>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class QMessageBox;

namespace zul::test {

/// A printer that restarts and flashes as fast as the machine can; more settings may follow.
std::string quick(const std::string& model, const std::string& settings = {});

inline constexpr std::chrono::milliseconds kLongestWait{20'000}; // generous, for machines under load

struct StageOptions {
    std::vector<std::string> printers;
    std::set<std::uint16_t> admittedProducts = {};
    std::string firmwareArchive = {}; // empty: the sample archive
    std::string language = "en";
    bool isDark = false;
    int speed = 1; // how many times as fast as the machine's the clock runs
};

/// An alert as it is shown on the screen.
struct ShownAlert {
    QMessageBox* box = nullptr;
    QString title;
    QString message;
    QStringList buttons; // from left to right
    QString defaultButton;
    QString checkBox;        // its title; empty when there is none
    bool isModal = false;    // it blocks the whole application
    bool hasPicture = false; // a printer's picture; not the toolkit's own sign
};

class Stage {
  public:
    /// Starts the program and waits until its window is active.
    explicit Stage(StageOptions options);
    /// Waits until all queues have ended; the test fails if they do not.
    ~Stage();

    ui::WindowProgram& program() { return *_program; }
    ui::MainWindow& window() { return _program->window(); }
    UpdateSupervisor& supervisor() { return _program->session().supervisor; }
    VirtualBus& bus() { return *_program->session().virtualBus(); }
    /// How many queues of printers still run, including printers that are detached.
    int printerQueues() const;
    std::vector<Session::Printer> printers() { return _program->session().printers(); }
    /// True once the program has ended its loop.
    bool hasEnded() const { return *_hasEnded; }
    const TemporaryFolder& folder() const { return _folder; }
    /// What the embedded printers received, one JSON object per line.
    std::filesystem::path journalFile() const { return _folder / "journal"; }

    /// Runs the event loop until condition is true; fails with "what" if that takes too long.
    void waitFor(const std::string& what, const std::function<bool()>& condition);
    /// Waits until the device info of every printer is complete and no query is pending.
    void waitForDeviceInfo();
    /// Lets all queued blocks run; fails if that takes too long, for example because a queue waits for its printer to
    /// become ready.
    void settle();
    /// The same without a failure: false if it has taken too long.
    [[nodiscard]] bool hasSettled();
    /// For tests that wait for something that cannot happen.
    void setLongestWait(std::chrono::milliseconds longestWait) { _longestWait = longestWait; }

    // ---- the operator's eyes ----------------------------------------------------------------------------------------
    /// The visible widget with this accessible name; null if there is none.
    QWidget* find(const QString& accessibleName) const;
    /// The same of this class; fails if there is none.
    template <class Widget> Widget& findA(const QString& accessibleName) const {
        for (QWidget* widget : QApplication::allWidgets()) {
            auto* const found = qobject_cast<Widget*>(widget);
            if (found != nullptr && found->isVisible() && found->accessibleName() == accessibleName) return *found;
        }
        FAIL("no visible widget has the accessible name " << accessibleName.toStdString());
        std::abort();
    }
    /// Class and object names of the visible controls that have no accessible name.
    QStringList namelessControls() const;
    QString cell(int row, int column);
    QString accessibleCell(int row, int column);
    int rows();
    /// The details of the selected printer as a screen reader reads them: label and value in turn, a line each.
    QString detailsText() const;
    int highlightedRow();
    std::optional<ShownAlert> alert() const;
    /// How many alerts are shown at the same time.
    int shownAlerts() const;
    ShownAlert waitForAlert(const QString& title);
    /// Everything that the window shows, joined.
    QString visibleText() const;
    /// Saves a picture of the screen for people to look at, once toolkit and window manager have drawn all that they
    /// were asked for.
    void screenshot(const QString& name);

    // ---- the operator's hands ---------------------------------------------------------------------------------------
    void click(const QString& accessibleName);
    void clickRow(int row);
    /// A key for whatever has the focus.
    void press(Qt::Key key, Qt::KeyboardModifiers modifiers = Qt::NoModifier);
    /// Tabs until the widget with this name has the focus.
    void tabTo(const QString& accessibleName);
    /// Clicks the button in the alert that is shown, and waits until the alert has gone.
    void answer(const QString& button);
    void triggerMenu(const QString& menu, const QString& item);

  private:
    struct Started {};
    Stage(const StageOptions& options, Started);
    bool isTrueInTime(const std::function<bool()>& condition) const;
    void waitForButtons(QMessageBox& box);

    std::chrono::milliseconds _longestWait = kLongestWait;
    const int _threadsBefore = SerialQueue::liveThreads(); // of queues that others have left
    TemporaryFolder _folder;
    std::unique_ptr<QuickClock> _clock; // null: the machine's own
    // Shared with the program, which is not destroyed if its queues do not end.
    const std::shared_ptr<bool> _hasEnded = std::make_shared<bool>(false);
    std::unique_ptr<ui::WindowProgram> _program;
};

/// Sets the language of all texts from now on ("en": as in the code).
void useLanguage(const std::string& language);
/// Sets the colors of a dark or a light desktop.
void useColors(bool isDark);

} // namespace zul::test
