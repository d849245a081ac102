// Collects the lines of the log and shows those that match the level and the search. GUI thread; the log facility calls
// the observer on the thread that logs, which posts the text to the main queue.
#include "ui/LogWindow.h"

#include "holven_log/HOLVEN_Log.h"
#include "platform/dispatch/Queue.h"
#include "platform/foundation/Bundle.h"
#include "ui/Pictures.h"
#include "ui/Texts.h"

#include <QApplication>
#include <QClipboard>
#include <QComboBox>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPointer>
#include <QPushButton>
#include <QScrollBar>
#include <QShowEvent>
#include <QTimer>
#include <QVBoxLayout>
#include <array>
#include <cstddef>

namespace zul::ui {

namespace {

// Without a limit a program that runs for weeks would fill the memory.
constexpr std::size_t kMostLines = 20000;

struct LevelRow {
    LogLevel level;
    const char* tag;   // at the beginning of a logged line
    const char* title; // of the choice that shows this level and all more important ones
};
constexpr std::array<LevelRow, 5> kLevels = {{
    {LogLevel::debug2, "D2", operatorText("Everything")},
    {LogLevel::debug, "D", operatorText("Debug and above")},
    {LogLevel::information, "I", operatorText("Information and above")},
    {LogLevel::warning, "W", operatorText("Warnings and errors")},
    {LogLevel::error, "E", operatorText("Errors only")},
}};

// The level of the line's tag; levelWithoutTag for a line without one.
LogLevel levelOf(const QString& line, LogLevel levelWithoutTag) {
    for (const LevelRow& row : kLevels) {
        if (line.startsWith(QString(row.tag) + ' ')) return row.level;
    }
    return levelWithoutTag;
}

} // namespace

LogWindow::LogWindow(MainQueue& mainQueue) {
    setWindowIcon(applicationIcon());
    setWindowTitle(localized(operatorText("Log")));
    setAccessibleName(windowTitle());
    makeWidgets();
    // Off by default, because a program without a log window needs no notices.
    HOLVEN_Log::setShouldNotifyForLogUpdates(true);
    _observer = HOLVEN_Log::addObserver([&mainQueue, window = QPointer(this)](const LogNotification& notification) {
        const auto added = notification.userInfo.find(HOLVEN_LogFileAddedString);
        if (notification.name != HOLVEN_LogFileDidUpdate || added == notification.userInfo.end()) return;
        mainQueue.async([window, text = qtext(added->second)] {
            if (window) window->addText(text);
        });
    });
}

LogWindow::~LogWindow() {
    HOLVEN_Log::removeObserver(_observer);
}

void LogWindow::makeWidgets() {
    _levels = new QComboBox(this);
    for (const LevelRow& row : kLevels) _levels->addItem(localized(row.title));
    _levels->setAccessibleName(localized(operatorText("Level")));
    _search = new QLineEdit(this);
    _search->setPlaceholderText(localized(operatorText("Search")));
    _search->setAccessibleName(localized(operatorText("Search the log")));
    _search->setClearButtonEnabled(true);
    auto* const copy = new QPushButton(localized(operatorText("Copy")), this);
    copy->setAccessibleName(localized(operatorText("Copy the shown lines")));
    copy->setAutoDefault(false);
    _view = new QPlainTextEdit(this);
    _view->setReadOnly(true);
    _view->setLineWrapMode(QPlainTextEdit::NoWrap);
    _view->setMaximumBlockCount(static_cast<int>(kMostLines));
    _view->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    _view->setAccessibleName(localized(operatorText("Lines of the log")));
    _view->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);

    auto* const controls = new QHBoxLayout;
    controls->addWidget(_levels);
    controls->addWidget(_search, 1);
    controls->addWidget(copy);
    auto* const all = new QVBoxLayout(this);
    all->addLayout(controls);
    all->addWidget(_view, 1);
    resize(760, 420);
    connect(_levels, &QComboBox::currentIndexChanged, this, &LogWindow::showAll);
    connect(_search, &QLineEdit::textChanged, this, &LogWindow::showAll);
    connect(copy, &QPushButton::clicked, this, &LogWindow::copyAll);
}

void LogWindow::addText(const QString& text) {
    for (const QString& line : text.split('\n', Qt::SkipEmptyParts)) {
        _levelOfLast = levelOf(line, _levelOfLast);
        _lines.push_back({_levelOfLast, line});
        if (_lines.size() > kMostLines) _lines.pop_front();
        if (!isShown(_lines.back())) continue;
        const bool isFirst = _view->document()->isEmpty();
        _view->appendPlainText(line);
        // The view scrolls sideways to its cursor: after a long first line it would hide the beginning of all lines.
        if (isFirst) _view->moveCursor(QTextCursor::Start);
    }
}

// Later, because lines that were logged before the window is shown are laid out only now.
void LogWindow::showEvent(QShowEvent* event) {
    QDialog::showEvent(event);
    if (!event->spontaneous()) QTimer::singleShot(0, this, &LogWindow::showEnd);
}

void LogWindow::showEnd() {
    _view->verticalScrollBar()->setValue(_view->verticalScrollBar()->maximum());
}

bool LogWindow::isShown(const Line& line) const {
    return line.level >= kLevels[static_cast<std::size_t>(_levels->currentIndex())].level &&
           line.text.contains(_search->text(), Qt::CaseInsensitive);
}

void LogWindow::showAll() {
    QStringList shown;
    for (const Line& line : _lines) {
        if (isShown(line)) shown << line.text;
    }
    _view->setPlainText(shown.join('\n'));
    showEnd();
}

void LogWindow::copyAll() {
    QApplication::clipboard()->setText(_view->toPlainText());
}

} // namespace zul::ui
