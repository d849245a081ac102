// Builds the main window and keeps what it shows up to date. GUI thread, which is the main queue's: called by
// WindowProgram and by the session, which reports changes of updates and of printers that cannot be used.
#include "ui/MainWindow.h"

#include "Classes/TBPrinters.h"
#include "Classes/TBUSBPrinterZUL.h"
#include "platform/foundation/Bundle.h"
#include "platform/foundation/LocalizedFormat.h"
#include "session/PrinterInfo.h"
#include "session/Session.h"
#include "ui/AlertPresenter.h"
#include "ui/LogWindow.h"
#include "ui/MenuMirror.h"
#include "ui/PaneRoom.h"
#include "ui/Pictures.h"
#include "ui/PrinterTable.h"
#include "ui/Questions.h"
#include "ui/ReportSaver.h"
#include "ui/StateDelegate.h"
#include "ui/Texts.h"
#include "ui/WindowApplication.h"
#include "ui/WindowLayout.h"
#include "ui_MainWindow.h"
#include "update/PrinterNeed.h"

#include <QCloseEvent>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QShortcut>
#include <initializer_list>
#include <memory>
#include <string>
#include <utility>

namespace zul::ui {

namespace {

constexpr int kRowHeight = 56;
constexpr int kPictureSize = 44;
constexpr int kEmptyPictureSize = 128;

std::unique_ptr<Ui::MainWindow> setUp(QMainWindow* window) {
    auto form = std::make_unique<Ui::MainWindow>();
    form->setupUi(window);
    return form;
}

} // namespace

MainWindow::MainWindow(Session& session, AlertPresenter& alerts, WindowApplication& application)
    : _session(session), _alerts(alerts), _application(application), _ui(setUp(this)), _menu(menuOf(*_ui->menubar)),
      _model(session.mainQueue), _table(std::make_unique<PrinterTable>(*_ui->table, _model)),
      _controller(*_table, _model), _supervisor(session.supervisor),
      _panes(std::make_unique<PaneRoom>(*_ui->splitter, *_ui->updates, *_ui->details)),
      _layout(std::make_unique<WindowLayout>(*this, *_ui->table->horizontalHeader(), *_panes, session.defaults)),
      _report(std::make_unique<ReportSaver>(*this, session, alerts, application.processName())),
      _log(std::make_unique<LogWindow>(session.mainQueue)) { // collects the lines of the session's start, too
    setWindowIcon(applicationIcon());
    connect(new QShortcut(QKeySequence("Ctrl+Q"), _log.get()), &QShortcut::activated, _ui->actionQuit,
            &QAction::trigger);
    setUpTable();
    _count = new QLabel(this);
    _version = new QLabel(this);
    _ui->statusbar->addWidget(_count);
    _ui->statusbar->addPermanentWidget(_version);
    _ui->notice->hide();
    QFont heading = _ui->summary->font();
    heading.setBold(true);
    _ui->summary->setFont(heading);
    connectActions();
    connectReport();
    connect(&_controller, &PrinterArrayController::contentChanged, this, &MainWindow::showContent);
    connect(&_controller, &PrinterArrayController::selectionChanged, this, &MainWindow::showSelection);
    connect(&_model, &PrinterTableModel::dataChanged, this, &MainWindow::showSummary);
    connect(&_model, &PrinterTableModel::printerChanged, this, [this](int row) {
        if (_model.printer(row) == selection()) showSelection();
    });
    _model.setStatusText([this](TBUSBPrinterZUL& printer) { return qtext(statusLine(_supervisor, printer)); });
    _model.setNeedOfAwaited([this](const std::string& key) { return needOfAwaited(_supervisor, key); });
    _model.setNeed([this](TBUSBPrinterZUL& printer) { return needOf(_supervisor, printer); });
    _session.setObserver(this);
}

MainWindow::~MainWindow() {
    _session.setObserver(nullptr);
}

TBPrinters::Outlets MainWindow::outlets() {
    return {.tableview = _table.get(), .window = this, .controller = &_controller, .mainMenu = _menu};
}

void MainWindow::begin() {
    localizeWidgets();
    // After the texts are translated, whose lengths decide the widths.
    _layout->restore(_ui->toolbar->sizeHint().width());
    _alerts.setWindow(this, _session.mainQueue);
    _ui->updates->follow(_supervisor);
    _controller.bindTo(_session.mainQueue, _session.controller);
    _version->setText(qtext(_session.defaults.stringForKey("prefDisplayVersionString")));
    showIcons();
    showContent();
    showSelection();
    showNotices();
    show();
}

void MainWindow::setUpTable() {
    _ui->table->setIconSize(QSize(kPictureSize, kPictureSize));
    _ui->table->verticalHeader()->setDefaultSectionSize(kRowHeight);
    _ui->table->setItemDelegateForColumn(PrinterTableModel::state, new StateDelegate(_ui->table));
    _ui->table->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(_ui->table, &QWidget::customContextMenuRequested, this, &MainWindow::openContextMenu);
    QHeaderView& header = *_ui->table->horizontalHeader();
    header.setSectionsMovable(true);
    header.setStretchLastSection(true);
    header.setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    header.setAccessibleName(localized(operatorText("Columns")));
    header.setContextMenuPolicy(Qt::CustomContextMenu);
    connect(&header, &QWidget::customContextMenuRequested, this, &MainWindow::openColumnMenu);
}

// The columns to show. The state is always there.
void MainWindow::openColumnMenu(const QPoint& place) {
    QHeaderView& header = *_ui->table->horizontalHeader();
    auto* const menu = new QMenu(this);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    menu->setObjectName("columnMenu");
    for (int column = PrinterTableModel::state + 1; column < PrinterTableModel::columns; ++column) {
        QAction* const action = menu->addAction(_model.title(column));
        action->setCheckable(true);
        action->setChecked(!header.isSectionHidden(column));
        connect(action, &QAction::toggled, &header,
                [&header, column](bool isShown) { header.setSectionHidden(column, !isShown); });
    }
    menu->popup(header.mapToGlobal(place));
}

void MainWindow::rememberLayout() {
    _layout->remember();
}

// ---- texts and pictures ---------------------------------------------------------------------------------------------

void MainWindow::setTitle(const std::string& title) {
    setWindowTitle(qtext(title));
}

// The engine's controller translates menus, columns and the title; the form's other texts are translated here.
void MainWindow::localizeWidgets() {
    applyMenu(*_menu, *_ui->menubar);
    _ui->emptyText->setText(localized(_ui->emptyText->text().toUtf8()));
    // The tool bar has no name before this: a screen reader keeps the first name that it reads from a tool bar.
    _ui->toolbar->setWindowTitle(localized(operatorText("Tools")));
    _ui->toolbar->setAccessibleName(localized(operatorText("Tools")));
    for (QWidget* widget : std::initializer_list<QWidget*>{_ui->table, _ui->details}) {
        widget->setAccessibleName(localized(widget->accessibleName().toUtf8()));
    }
    // The accessible name of a label is its text.
    _ui->notice->setAccessibleDescription(localized(_ui->notice->accessibleDescription().toUtf8()));
    _ui->menuCounters->menuAction()->setToolTip(localized(operatorText("Set a counter of the selected printer to 0")));
    for (QMenu* menu : _ui->menubar->findChildren<QMenu*>()) menu->setToolTipsVisible(true);
}

void MainWindow::showIcons() {
    const std::pair<QAction*, const char*> icons[] = {{_ui->menuCounters->menuAction(), "action-counter"},
                                                      {_ui->actionAbout, "action-about"},
                                                      {_ui->actionUpdate, "action-update"},
                                                      {_ui->actionRefresh, "action-refresh"},
                                                      {_ui->actionHotPlug, "action-hotplug"},
                                                      {_ui->actionSerial, "action-serial"},
                                                      {_ui->actionReport, "action-report"},
                                                      {_ui->actionLog, "action-log"},
                                                      {_ui->actionClaim, "action-claim"},
                                                      {_ui->actionQuit, "action-quit"}};
    for (const auto& [action, name] : icons) action->setIcon(pictureNamed(name, palette()));
    _model.setPalette(palette());
    _ui->emptyPicture->setPixmap(pictureNamed("ZUL_VK_Series", palette())
                                     .pixmap(QSize(kEmptyPictureSize, kEmptyPictureSize), devicePixelRatioF()));
}

bool MainWindow::event(QEvent* event) {
    const bool isHandled = QMainWindow::event(event);
    if (changesLook(*event)) showIcons();
    return isHandled;
}

// ---- what is shown --------------------------------------------------------------------------------------------------

void MainWindow::showContent() {
    const int rows = _model.attachedCount();
    const bool isEmpty = _model.rowCount() == 0;
    _ui->pages->setCurrentWidget(isEmpty ? _ui->emptyPage : _ui->tablePage);
    _ui->details->setVisible(rows > 0);
    _count->setText(
        qtext(localizedPluralFormat("%d printer attached", "%d printers attached", static_cast<unsigned long>(rows))));
    showSummary();
    showNotices();
}

void MainWindow::showSummary() {
    const QString text = qtext(summaryOfNeeds(_model.needs()));
    if (_ui->summary->text() != text) _ui->summary->setText(text);
}

void MainWindow::showSelection() {
    _ui->details->showPrinter(selection());
    showActions();
}

// A printer that is attached and cannot be used must not look like a missing one.
void MainWindow::showNotices() {
    QStringList notices;
    if (const std::string problem = _session.defaults.lastError(); !problem.empty()) notices << asSentence(problem);
    const auto unusable = _session.unusablePrinters();
    for (const std::string& message : unusable) notices << asSentence(message);
    // With such a notice the window must not say at the same time that no printer is attached.
    const bool areAllUsable = unusable.empty();
    _ui->emptyText->setVisible(areAllUsable);
    const bool isRestarting = _model.attachedCount() == 0 && _model.rowCount() > 0;
    _count->setVisible(!isRestarting && (areAllUsable || _model.rowCount() > 0));
    if (_session.areSamplesWithheld() && _model.rowCount() > 0) {
        notices << samplesInUse() + " " + useVendorFiles();
    }
    notices.removeDuplicates();
    _ui->notice->setText(notices.join("\n\n"));
    _ui->notice->setVisible(!notices.isEmpty());
}

// ---- updates --------------------------------------------------------------------------------------------------------

void MainWindow::updateDidChange(const std::string& key) {
    _model.refreshState(key);
    forgetAway();
    updatesChanged();
}

// A printer that was given up, or whose update was dismissed, does not keep its row.
void MainWindow::forgetAway() {
    const int rows = _model.rowCount();
    _table->changeQuietly([this] { _model.forgetAway(); });
    if (_model.rowCount() != rows) showContent();
}

void MainWindow::updateDidEnd(const std::string& /*key*/) {
    _model.refreshAll(); // an interrupted update may be complete now
    forgetAway();
    updatesChanged();
    // The system has asked for the end while this update could not be interrupted.
    if (_isEndAsked && !_supervisor.isAnyBetweenCommands()) _application.endNow();
}

void MainWindow::conditionsMayHaveChanged() {
    _model.refreshAll();
}

void MainWindow::noteDidArise(const std::string& text) {
    _ui->statusbar->showMessage(asSentence(text));
}

void MainWindow::unusablePrinterDidArrive(const std::string& /*message*/) {
    showNotices();
}

void MainWindow::unusablePrintersDidChange() {
    showNotices();
}

void MainWindow::interruptedDidChange() {
    _model.refreshAll();
}

void MainWindow::updatesChanged() {
    const bool isUnderWay = _supervisor.isAnyUnderWay();
    _ui->updates->showUpdates();
    _taskbar.show(isUnderWay, _supervisor.progress());
    // While a printer restarts, an empty table must not ask the operator to connect one.
    _ui->emptyText->setText(isUnderWay ? localized("A printer is restarting. Leave it switched on and connected.")
                                       : localized("Connect a ZUL printer by USB and switch it on."));
    showActions();
}

} // namespace zul::ui
