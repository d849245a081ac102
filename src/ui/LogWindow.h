// The window with the log: new lines as they come, a level filter, a search and a copy button. GUI thread; lines may be
// logged on any thread.
#pragma once

#include "platform/dispatch/Queue.h"

#include <QDialog>
#include <QString>
#include <cstdint>
#include <deque>

class QComboBox;
class QLineEdit;
class QPlainTextEdit;

namespace zul::ui {

/// From the least to the most important, in the order of the window's choices.
enum class LogLevel { debug2, debug, information, warning, error };

class LogWindow final : public QDialog {
    Q_OBJECT

  public:
    /// Collects lines from now on, also while it is not shown. It has no parent: a sheet on the main window blocks all
    /// windows that belong to it, and the log must be readable while a question is shown.
    explicit LogWindow(MainQueue& mainQueue);
    /// Ends the observation; texts that are posted already are dropped.
    ~LogWindow() override;

  protected:
    void showEvent(QShowEvent* event) override;

  private:
    struct Line {
        LogLevel level;
        QString text;
    };
    void makeWidgets();
    void addText(const QString& text);
    bool isShown(const Line& line) const;
    void showAll();
    void showEnd();
    void copyAll();

    std::uint32_t _observer = 0;
    std::deque<Line> _lines;
    LogLevel _levelOfLast = LogLevel::debug2; // a line without a tag continues the line before it
    QComboBox* _levels = nullptr;
    QLineEdit* _search = nullptr;
    QPlainTextEdit* _view = nullptr;
};

} // namespace zul::ui
