#include "ui/LogWindow.h"

#include "holven_log/HOLVEN_Log.h"
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

namespace zul::ui {

namespace {

constexpr std::size_t kMostLines = 20000;

struct LevelFact {
    const char* tag;
    const char* title;
    int weight; // what is shown from here on
};
// In the order of the choices: each shows itself and everything that weighs more.
constexpr std::array<LevelFact, 5> kLevels = {{
    {"D2", operatorText("Everything"), 0},
    {"D", operatorText("Debug and above"), 1},
    {"I", operatorText("Information and above"), 2},
    {"W", operatorText("Warnings and errors"), 3},
    {"E", operatorText("Errors only"), 4},
}};

int levelOf(const QString& line, int otherwise) {
    for (const LevelFact& level : kLevels) {
        if (line.startsWith(QString(level.tag) + ' ')) return level.weight;
    }
    return otherwise;
}

} // namespace

LogWindow::LogWindow(MainQueue& mainQueue) {
    setWindowIcon(applicationIcon());
    setWindowTitle(localized(operatorText("Log")));
    setAccessibleName(windowTitle());
    makeWidgets();
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
    for (const LevelFact& level : kLevels) _levels->addItem(localized(level.title));
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
        // The view follows its cursor sideways, too: at the end of a long line it would hide where lines begin.
        if (isFirst) _view->moveCursor(QTextCursor::Start);
    }
}

// What was logged before it was opened has not been laid out until now.
void LogWindow::showEvent(QShowEvent* event) {
    QDialog::showEvent(event);
    if (!event->spontaneous()) QTimer::singleShot(0, this, &LogWindow::showEnd);
}

void LogWindow::showEnd() {
    _view->verticalScrollBar()->setValue(_view->verticalScrollBar()->maximum());
}

bool LogWindow::isShown(const Line& line) const {
    return line.level >= kLevels[static_cast<std::size_t>(_levels->currentIndex())].weight &&
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
