#include "window/Stage.h"

#include "platform/dispatch/Queue.h"
#include "ui/Catalogue.h"
#include "ui/DetailsPane.h"
#include "virtual_printer/VirtualBus.h"
#include "window/Display.h"

#include <QAbstractButton>
#include <QAccessible>
#include <QApplication>
#include <QCheckBox>
#include <QDir>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QRegularExpression>
#include <QScreen>
#include <QTableView>
#include <QTest>
#include <algorithm>
#include <doctest/doctest.h>

// Incremented to make gettext read the language again at the next text.
extern "C" int _nl_msg_cat_cntr;

namespace zul::test {

namespace {

// The text as it is seen: without the invisible places where a long path may break.
QString readable(QString text) {
    return text.remove(QChar(0x200B));
}

// Without the mark of an access key; some languages put the key in brackets after the text.
QString withoutMark(QString text) {
    static const QRegularExpression key("\\(&?[A-Z]\\)$");
    return text.remove(key).remove('&');
}

QString accessibleNameOf(const QWidget* widget) {
    QAccessibleInterface* const accessible = QAccessible::queryAccessibleInterface(const_cast<QWidget*>(widget));
    return accessible == nullptr ? QString() : withoutMark(accessible->text(QAccessible::Name));
}

bool isOperated(const QWidget* widget) {
    return widget->focusPolicy() != Qt::NoFocus && widget->isEnabled();
}

constexpr int kSessionQueues = 1; // the one that writes the history, as long as the session exists

} // namespace

std::string quick(const std::string& model, const std::string& settings) {
    return model + ",restart=150,program=150,speed=100000000" + (settings.empty() ? "" : "," + settings);
}

void useLanguage(const std::string& language) {
    qputenv("LANGUAGE", language.c_str());
    ++_nl_msg_cat_cntr;
    ui::useCatalogues(ZUL_LOCALE_FOLDER);
    ui::translateToolkit();
    if (language == "en") Bundle::setTranslator(nullptr);
}

void useColors(bool isDark) {
    QPalette palette;
    const QColor window = isDark ? QColor(0x20, 0x20, 0x20) : QColor(0xf0, 0xf0, 0xf0);
    const QColor base = isDark ? QColor(0x18, 0x18, 0x18) : QColor(0xff, 0xff, 0xff);
    const QColor text = isDark ? QColor(0xee, 0xee, 0xee) : QColor(0x10, 0x10, 0x10);
    const QColor dim = isDark ? QColor(0x90, 0x90, 0x90) : QColor(0x70, 0x70, 0x70);
    palette =
        QPalette(text, window, window.lighter(130), window.darker(150), window.darker(120), text, text, base, window);
    palette.setColor(QPalette::AlternateBase, isDark ? QColor(0x26, 0x26, 0x26) : QColor(0xf6, 0xf6, 0xf6));
    palette.setColor(QPalette::Highlight, isDark ? QColor(0x2a, 0x6a, 0xb0) : QColor(0x30, 0x70, 0xc0));
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::ToolTipText, text);
    palette.setColor(QPalette::PlaceholderText, dim);
    for (const auto role : {QPalette::Text, QPalette::WindowText, QPalette::ButtonText}) {
        palette.setColor(QPalette::Disabled, role, dim);
    }
    QApplication::setPalette(palette);
}

// ---- set-up and end -------------------------------------------------------------------------------------------------

Stage::Stage(const StageOptions& options, Started) {
    useLanguage(options.language);
    useColors(options.isDark);
    qputenv("XDG_CONFIG_HOME", (_folder / "config").c_str());
    qputenv("XDG_STATE_HOME", (_folder / "state").c_str()); // so that no stage reads the history of another one
    SessionOptions session;
    session.virtualPrinters = options.printers;
    session.admittedProducts = options.admittedProducts;
    session.firmwareArchive = options.firmwareArchive;
    session.journalFile = journalFile();
    // Without embedded printers the session would use the real bus, so one is attached and detached at once.
    const bool isEmpty = options.printers.empty();
    if (isEmpty) session.virtualPrinters = {quick("VK14")};
    if (options.speed > 1) _clock = std::make_unique<QuickClock>(options.speed);
    _program = std::make_unique<ui::WindowProgram>(
        session, [hasEnded = _hasEnded] { *hasEnded = true; }, _clock.get());
    const auto problem = _program->start();
    REQUIRE_MESSAGE(!problem, (problem ? problem->message : ""));
    window().move(20, 20);
    if (isEmpty) bus().unplug(0);
}

// From here on the queues run. The other constructor has finished, so a failing wait calls the destructor, which ends
// them.
Stage::Stage(StageOptions options) : Stage(options, Started()) {
    waitFor("the window in front", [this] {
        window().activateWindow();
        return window().isActiveWindow();
    });
}

// The queues still use the engine, so they must end before it is destroyed.
Stage::~Stage() {
    Session& session = _program->session();
    for (const auto& printer : printers()) printer->prepareForRelease();
    session.endBus();
    const bool isAtRest = isTrueInTime([&] {
        for (const auto& printer : printers()) printer->prepareForRelease();
        session.controller->prepareForTermination();
        _program->alerts().dismissAll(); // they hold printers; another one may have been raised just now
        return printerQueues() <= 0;
    });
    CHECK_MESSAGE(isAtRest, "queues that still run: " << printerQueues());
    if (isAtRest) {
        session.mainQueue.runPending(); // its blocks hold parts of the program
    } else {
        // As at the end of the program: objects that a queue still uses are not destroyed, and its results are ignored.
        session.mainQueue.close();
        window().hide();
        static_cast<void>(_program.release());
        static_cast<void>(_clock.release());
    }
    _program.reset();
    // The next stage takes the number of threads at its start as given, and the session's queue takes a moment to end.
    if (isAtRest) CHECK(isTrueInTime([&] { return SerialQueue::liveThreads() <= _threadsBefore; }));
    useColors(false);
    useLanguage("en");
}

int Stage::printerQueues() const {
    return SerialQueue::liveThreads() - _threadsBefore - kSessionQueues;
}

// ---- waiting --------------------------------------------------------------------------------------------------------

bool Stage::isTrueInTime(const std::function<bool()>& condition) const {
    return QTest::qWaitFor(condition, static_cast<int>(_longestWait.count()));
}

void Stage::waitFor(const std::string& what, const std::function<bool()>& condition) {
    REQUIRE_MESSAGE(isTrueInTime(condition), "waited for: " << what << "; shown: " << visibleText().toStdString());
}

void Stage::waitForDeviceInfo() {
    waitFor("the printers' device info", [this] {
        const auto all = printers();
        return !all.empty() && std::ranges::all_of(all, [](const auto& printer) {
            return printer->firmwareVersion() && printer->lifetimeCounter() && printer->printerStatus();
        });
    });
    settle();
}

void Stage::settle() {
    REQUIRE_MESSAGE(hasSettled(), "waited for the queues; shown: " << visibleText().toStdString());
}

bool Stage::hasSettled() {
    // Shared with the blocks, which may run after the wait has failed.
    const auto isDone = std::make_shared<bool>(false);
    Session& session = _program->session();
    session.afterQueues(session.printers(), [&session, isDone] {
        session.afterQueues(session.printers(),
                            [&session, isDone] { session.mainQueue.async([isDone] { *isDone = true; }); });
    });
    const bool isInTime = isTrueInTime([&] { return *isDone; });
    QApplication::processEvents();
    return isInTime;
}

// ---- eyes -----------------------------------------------------------------------------------------------------------

QWidget* Stage::find(const QString& accessibleName) const {
    for (QWidget* widget : QApplication::allWidgets()) {
        if (widget->isVisible() && accessibleNameOf(widget) == accessibleName && isOperated(widget)) return widget;
    }
    for (QWidget* widget : QApplication::allWidgets()) {
        if (widget->isVisible() && accessibleNameOf(widget) == accessibleName) return widget;
    }
    return nullptr;
}

QStringList Stage::namelessControls() const {
    QStringList found;
    for (QWidget* widget : QApplication::allWidgets()) {
        if (!widget->isVisible() || !isOperated(widget) || widget->isWindow()) continue;
        if (widget->inherits("QScrollBar") || widget->inherits("QHeaderView") || widget->inherits("QLabel")) continue;
        if (accessibleNameOf(widget).isEmpty())
            found << widget->metaObject()->className() + QString(" ") + widget->objectName();
    }
    return found;
}

namespace {
QTableView& tableIn(QWidget& window) {
    return *window.findChild<QTableView*>("table");
}
} // namespace

QString Stage::cell(int row, int column) {
    const auto& model = *tableIn(window()).model();
    return model.data(model.index(row, column)).toString();
}

QString Stage::accessibleCell(int row, int column) {
    const auto& model = *tableIn(window()).model();
    return model.data(model.index(row, column), Qt::AccessibleTextRole).toString();
}

int Stage::rows() {
    return tableIn(window()).model()->rowCount();
}

QString Stage::detailsText() const {
    const auto& model = *_program->window().findChild<ui::DetailsPane*>("details")->model();
    QString text;
    for (int row = 0; row < model.rowCount(); ++row) {
        for (int column = 0; column < model.columnCount(); ++column) {
            text += model.data(model.index(row, column), Qt::AccessibleTextRole).toString() + "\n";
        }
    }
    return text;
}

int Stage::highlightedRow() {
    const auto rows = tableIn(window()).selectionModel()->selectedRows();
    return rows.isEmpty() ? -1 : rows.first().row();
}

std::optional<ShownAlert> Stage::alert() const {
    ShownAlert shown;
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        auto* const box = qobject_cast<QMessageBox*>(widget);
        if (box == nullptr || !box->isVisible()) continue;
        if (shown.box == nullptr || box->windowModality() == Qt::ApplicationModal) shown.box = box;
    }
    if (shown.box == nullptr) return std::nullopt;
    shown.title = readable(shown.box->text());
    shown.message = readable(shown.box->informativeText());
    auto buttons = shown.box->buttons();
    std::ranges::sort(buttons, {}, [](const QAbstractButton* button) { return button->x(); });
    for (const QAbstractButton* button : buttons) {
        shown.buttons << withoutMark(button->text());
        if (static_cast<const QPushButton*>(button)->isDefault()) shown.defaultButton = withoutMark(button->text());
    }
    if (shown.box->checkBox() != nullptr) shown.checkBox = withoutMark(shown.box->checkBox()->text());
    shown.isModal = shown.box->windowModality() == Qt::ApplicationModal;
    shown.hasPicture = shown.box->icon() == QMessageBox::NoIcon && !shown.box->iconPixmap().isNull();
    return shown;
}

int Stage::shownAlerts() const {
    return static_cast<int>(std::ranges::count_if(QApplication::topLevelWidgets(), [](const QWidget* widget) {
        return widget->isVisible() && widget->inherits("QMessageBox");
    }));
}

ShownAlert Stage::waitForAlert(const QString& title) {
    waitFor("the alert \"" + title.toStdString() + "\"", [&] {
        const auto shown = alert();
        return shown && shown->title == title;
    });
    ShownAlert shown = *alert();
    // Keys go to the window that the desktop has made the active one.
    shown.box->activateWindow();
    waitFor("the alert in front", [&] { return shown.box->isActiveWindow(); });
    waitForButtons(*shown.box);
    // The toolkit may have read position and frame before the window manager made the frame, and gets no event
    // afterwards.
    waitFor("the alert on the screen", [&] { return isWholeOnScreen(*shown.box); });
    for (const QLabel* label : shown.box->findChildren<QLabel*>()) {
        if (label->text().isEmpty()) continue;
        CHECK_MESSAGE(shown.box->rect().contains(QRect(label->mapTo(shown.box, QPoint()), label->size())),
                      "beyond its alert: " << label->text().toStdString());
        CHECK_MESSAGE(label->width() >= label->minimumSizeHint().width(), "cut off: " << label->text().toStdString());
        if (!label->wordWrap()) continue;
        const int longest = label->fontMetrics()
                                .boundingRect(QRect(0, 0, label->width(), 10000), Qt::TextWordWrap, label->text())
                                .width();
        CHECK_MESSAGE(longest <= label->width(), "cut off: " << label->text().toStdString());
        CHECK_MESSAGE(label->height() >= label->heightForWidth(label->width()),
                      "cut off: " << label->text().toStdString());
    }
    return shown;
}

// A click before the layout would miss the button.
void Stage::waitForButtons(QMessageBox& box) {
    waitFor("the buttons", [&] {
        return std::ranges::all_of(box.buttons(), [&](const QAbstractButton* button) {
            return button->width() >= button->minimumSizeHint().width() && button->x() >= 0 &&
                   box.rect().contains(button->mapTo(&box, button->rect().center()));
        });
    });
}

QString Stage::visibleText() const {
    QStringList texts;
    for (QWidget* widget : QApplication::allWidgets()) {
        if (!widget->isVisible()) continue;
        if (const auto* label = qobject_cast<QLabel*>(widget)) texts << label->text();
        if (const auto* button = qobject_cast<QAbstractButton*>(widget)) texts << withoutMark(button->text());
        if (const auto* bar = qobject_cast<QProgressBar*>(widget)) texts << bar->text();
        if (qobject_cast<ui::DetailsPane*>(widget) != nullptr) texts << detailsText();
    }
    return texts.join('\n');
}

void Stage::screenshot(const QString& name) {
    QApplication::processEvents(); // layouts are done, and answered alerts are removed
    REQUIRE(catchUpWithManager(_longestWait));
    QApplication::processEvents(); // paints
    QDir().mkpath(ZUL_SCREENSHOTS);
    const QString suffix = qApp->devicePixelRatio() > 1 ? "@2x" : "";
    const QPixmap screen = QGuiApplication::primaryScreen()->grabWindow(0);
    CHECK(screen.save(QString(ZUL_SCREENSHOTS "/") + name + suffix + ".png"));
}

// ---- hands ----------------------------------------------------------------------------------------------------------

void Stage::click(const QString& accessibleName) {
    waitFor(accessibleName.toStdString() + " can be clicked", [&] {
        const QWidget* widget = find(accessibleName);
        return widget != nullptr && widget->isEnabled();
    });
    QWidget* const widget = find(accessibleName);
    // A check box answers to a click on its box, at its left end.
    const QPoint place = qobject_cast<QCheckBox*>(widget) ? QPoint(10, widget->height() / 2) : widget->rect().center();
    QTest::mouseClick(widget, Qt::LeftButton, Qt::NoModifier, place);
    QApplication::processEvents();
}

void Stage::clickRow(int row) {
    QTableView& table = tableIn(window());
    QTest::mouseClick(table.viewport(), Qt::LeftButton, Qt::NoModifier,
                      table.visualRect(table.model()->index(row, 1)).center());
    QApplication::processEvents();
}

void Stage::press(Qt::Key key, Qt::KeyboardModifiers modifiers) {
    const auto shown = alert();
    const QWidget* const front = shown ? static_cast<QWidget*>(shown->box) : &window();
    waitFor("the focus", [&] { return QApplication::focusWidget() && QApplication::activeWindow() == front; });
    QWidget* const focus = QApplication::focusWidget();
    QTest::keyClick(focus, key, modifiers);
    QApplication::processEvents();
}

void Stage::tabTo(const QString& accessibleName) {
    for (int i = 0; i < 50; ++i) {
        if (QApplication::focusWidget() != nullptr && accessibleNameOf(QApplication::focusWidget()) == accessibleName)
            return;
        press(Qt::Key_Tab);
    }
    FAIL("the keyboard does not reach " << accessibleName.toStdString());
}

void Stage::answer(const QString& button) {
    const auto shown = alert();
    REQUIRE(shown);
    waitForButtons(*shown->box);
    for (QAbstractButton* one : shown->box->buttons()) {
        if (withoutMark(one->text()) != button) continue;
        REQUIRE(one->isEnabled());
        const QPointer box(shown->box);
        QTest::mouseClick(one, Qt::LeftButton);
        waitFor("the alert to close", [&] { return !box || !box->isVisible(); });
        return;
    }
    FAIL("the alert has no button " << button.toStdString());
}

void Stage::triggerMenu(const QString& menu, const QString& item) {
    for (QAction* top : window().menuBar()->actions()) {
        if (withoutMark(top->text()) != menu) continue;
        QList<QAction*> actions = top->menu()->actions();
        for (qsizetype i = 0; i < actions.size(); ++i) {
            if (actions[i]->menu() != nullptr) actions << actions[i]->menu()->actions();
            if (withoutMark(actions[i]->text()) != item) continue;
            REQUIRE(actions[i]->isEnabled());
            actions[i]->trigger();
            QApplication::processEvents();
            return;
        }
    }
    FAIL("no menu item " << menu.toStdString() << " / " << item.toStdString());
}

} // namespace zul::test
