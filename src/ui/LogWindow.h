// The log as it grows, with a level filter, a search and a way to copy. GUI thread; lines may be logged on any.
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

class LogWindow final : public QDialog {
    Q_OBJECT

  public:
    /// A window of its own: a sheet shadows the main window and all that belongs to it, and the log is what one reads
    /// while a question is shown.
    explicit LogWindow(MainQueue& mainQueue);
    ~LogWindow() override;

  protected:
    void showEvent(QShowEvent* event) override;

  private:
    struct Line {
        int level;
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
    int _levelOfLast = 0; // a line without a tag belongs to the one before
    QComboBox* _levels = nullptr;
    QLineEdit* _search = nullptr;
    QPlainTextEdit* _view = nullptr;
};

} // namespace zul::ui
