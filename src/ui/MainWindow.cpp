#include "ui/MainWindow.h"

#include "platform/foundation/LocalizedFormat.h"
#include "platform/foundation/UserDefaults.h"
#include "session/PrinterFacts.h"
#include "ui/AlertPresenter.h"
#include "ui/LogWindow.h"
#include "ui/MenuMirror.h"
#include "ui/Pictures.h"
#include "ui/Texts.h"
#include "ui/WindowApplication.h"
#include "ui_MainWindow.h"

#include <QCloseEvent>
#include <QHeaderView>
#include <QLabel>
#include <QScreen>
#include <QShortcut>
#include <algorithm>

namespace zul::ui {

namespace {

constexpr int kRowHeight = 56;
constexpr int kPictureSize = 44;
constexpr int kEmptyPictureSize = 128;
constexpr int kLeastHeight = 90;   // a row, or a few facts, with what is around them
constexpr int kDesktopMargin = 40; // what a desktop may need at the sides of a window
// What the window remembers, in the user defaults.
constexpr const char* kColumnsKey = "windowColumns";
constexpr const char* kGeometryKey = "windowGeometry";
constexpr const char* kSplitterKey = "windowSplitter";

QByteArray rememberedState(const UserDefaults& defaults, const char* key) {
    return QByteArray::fromBase64(QByteArray::fromStdString(defaults.stringForKey(key).value_or("")));
}

std::unique_ptr<Ui::MainWindow> setUp(QMainWindow* window) {
    auto form = std::make_unique<Ui::MainWindow>();
    form->setupUi(window);
    return form;
}

} // namespace

MainWindow::MainWindow(Session& session, AlertPresenter& alerts, WindowApplication& application)
    : _session(session), _alerts(alerts), _application(application), _ui(setUp(this)), _menu(menuOf(*_ui->menubar)),
      _model(session.mainQueue), _table(std::make_unique<PrinterTable>(*_ui->table, _model)),
      _controller(*_table, _model), _supervisor(session.supervisor) {
    setWindowIcon(applicationIcon());
    _log = std::make_unique<LogWindow>(_session.mainQueue); // collects from now on: the session has not started yet
    connect(new QShortcut(QKeySequence("Ctrl+Q"), _log.get()), &QShortcut::activated, _ui->actionQuit,
            &QAction::trigger);
    setUpTable();
    _count = new QLabel(this);
    _version = new QLabel(this);
    _ui->statusbar->addWidget(_count);
    _ui->statusbar->addPermanentWidget(_version);
    _ui->notice->hide();
    connectActions();
    connect(&_controller, &PrinterArrayController::contentChanged, this, &MainWindow::showContent);
    connect(&_controller, &PrinterArrayController::selectionChanged, this, &MainWindow::showSelection);
    connect(&_model, &PrinterTableModel::printerChanged, this, [this](int row) {
        if (_model.printer(row) == selection()) showSelection();
    });
    _model.setStatusText([this](TBUSBPrinterZUL& printer) { return qtext(statusLine(_supervisor, printer)); });
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
    layOutColumns();
    layOutWindow();
    _alerts.setWindow(this, _session.mainQueue);
    _ui->updates->follow(_supervisor);
    connect(_ui->updates, &UpdatePanel::roomChanged, this, &MainWindow::noteSizes);
    // Later: once they are laid out.
    connect(_ui->updates, &UpdatePanel::roomChanged, this, &MainWindow::makeRoomForUpdates, Qt::QueuedConnection);
    connect(_ui->splitter, &QSplitter::splitterMoved, this, [this] { _isSplitByHand = !_ui->updates->isHidden(); });
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
    _ui->table->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(_ui->table, &QWidget::customContextMenuRequested, this, &MainWindow::openContextMenu);
    QHeaderView& header = *_ui->table->horizontalHeader();
    header.setSectionsMovable(true);
    header.setStretchLastSection(true);
    header.setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    header.setAccessibleName(localized(operatorText("Columns")));
}

// As it was left; at first as large as its texts need in the operator's language and letters.
void MainWindow::layOutWindow() {
    for (QWidget* widget : std::initializer_list<QWidget*>{_ui->pages, _ui->details}) {
        widget->setMinimumHeight(kLeastHeight);
    }
    if (!restoreGeometry(rememberedState(_session.defaults, kGeometryKey))) {
        const int widest = screen()->availableGeometry().width() - kDesktopMargin;
        resize(std::min(std::max(width(), _ui->toolbar->sizeHint().width()), widest), height());
    }
    if (!_ui->splitter->restoreState(rememberedState(_session.defaults, kSplitterKey))) {
        _ui->splitter->setSizes({220, 220, 240});
    }
}

// Once the titles are there in the operator's language.
void MainWindow::layOutColumns() {
    QHeaderView& header = *_ui->table->horizontalHeader();
    if (header.restoreState(rememberedState(_session.defaults, kColumnsKey))) return;
    constexpr std::array<int, PrinterTableModel::columns> kWidths = {60, 100, 105, 150, 105, 135, 160, 120, 130};
    for (int column = 0; column < PrinterTableModel::columns; ++column) {
        header.resizeSection(column,
                             std::max(kWidths[static_cast<std::size_t>(column)], header.sectionSizeHint(column)));
    }
}

void MainWindow::rememberLayout() {
    giveRoomBack();
    const auto remember = [this](const char* key, const QByteArray& state) {
        _session.defaults.setString(key, state.toBase64().toStdString());
    };
    remember(kGeometryKey, saveGeometry());
    remember(kColumnsKey, _ui->table->horizontalHeader()->saveState());
    remember(kSplitterKey, _ui->splitter->saveState());
}

// ---- texts and pictures ---------------------------------------------------------------------------------------------

void MainWindow::setTitle(const std::string& title) {
    setWindowTitle(qtext(title));
}

// The controller localises menus, columns and the title; the form's other texts are looked up here.
void MainWindow::localizeWidgets() {
    applyMenu(*_menu, *_ui->menubar);
    _ui->emptyText->setText(localized(_ui->emptyText->text().toUtf8()));
    // First here: a screen reader keeps the name that a tool bar had when it was asked for it.
    _ui->toolbar->setWindowTitle(localized(operatorText("Tools")));
    _ui->toolbar->setAccessibleName(localized(operatorText("Tools")));
    for (QWidget* widget : std::initializer_list<QWidget*>{_ui->table, _ui->details}) {
        widget->setAccessibleName(localized(widget->accessibleName().toUtf8()));
    }
    // Its name is its text.
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
    const int rows = _model.rowCount();
    _ui->pages->setCurrentWidget(rows == 0 ? _ui->emptyPage : _ui->tablePage);
    _ui->details->setVisible(rows > 0);
    _count->setText(
        qtext(localizedPluralFormat("%d printer attached", "%d printers attached", static_cast<unsigned long>(rows))));
    showNotices();
}

void MainWindow::showSelection() {
    _ui->details->show(selection());
    showActions();
}

// A printer that is seen and cannot be used must not look like one that is missing.
void MainWindow::showNotices() {
    QStringList notices;
    if (const std::string problem = _session.defaults.lastError(); !problem.empty()) notices << asSentence(problem);
    const auto unusable = _session.unusablePrinters();
    for (const std::string& message : unusable) notices << asSentence(message);
    // Whoever is told of a printer that cannot be used must not read beside it that there is none.
    const bool isNone = unusable.empty();
    _ui->emptyText->setVisible(isNone);
    _count->setVisible(isNone || _model.rowCount() > 0);
    if (_session.areSamplesWithheld() && _model.rowCount() > 0) {
        notices << localized("The firmware files in use are samples for virtual printers.") + " " +
                       localized("Start the program with --firmware-archive and the folder with the vendor's files.");
    }
    notices.removeDuplicates();
    _ui->notice->setText(notices.join("\n\n"));
    _ui->notice->setVisible(!notices.isEmpty());
}

// Before the updates take their place: what the operator had made of the window. While the details are hidden, as no
// printer is there, their size is not known, and there is room enough.
void MainWindow::noteSizes() {
    if (_isSplitByHand || !_sizesBefore.isEmpty() || _ui->updates->isHidden() || _ui->details->isHidden()) return;
    _sizesBefore = _ui->splitter->sizes();
}

// As much as all updates need, as far as the table and the details can do without; all of it is given back when they
// have gone. Who has moved the splitter knows better.
void MainWindow::makeRoomForUpdates() {
    QList<int> sizes = _ui->splitter->sizes();
    const qsizetype panel = _ui->splitter->indexOf(_ui->updates);
    if (_ui->updates->isHidden()) {
        giveRoomBack();
        return;
    }
    const int lacking = _ui->updates->wantedHeight() - sizes[panel];
    if (_isSplitByHand || _sizesBefore.isEmpty() || lacking <= 0) return;
    int spare = 0;
    for (qsizetype i = 0; i < sizes.size(); ++i) {
        if (i != panel) spare += std::max(sizes[i] - kLeastHeight, 0);
    }
    const int given = std::min(lacking, spare);
    for (qsizetype i = 0; i < sizes.size() && spare > 0; ++i) {
        if (i == panel) continue;
        if (_ui->splitter->widget(static_cast<int>(i))->isHidden()) {
            sizes[i] = _sizesBefore.value(i);
        } else {
            sizes[i] -= (given * std::max(sizes[i] - kLeastHeight, 0) + spare - 1) / spare;
        }
    }
    sizes[panel] += given;
    _ui->splitter->setSizes(sizes);
}

void MainWindow::giveRoomBack() {
    if (!_sizesBefore.isEmpty() && !_isSplitByHand) _ui->splitter->setSizes(_sizesBefore);
    _sizesBefore.clear();
    _isSplitByHand = false;
}

// ---- updates --------------------------------------------------------------------------------------------------------

void MainWindow::updateDidChange(const std::string& /*key*/) {
    updatesChanged();
}

void MainWindow::updateDidEnd(const std::string& /*key*/) {
    _model.refreshAll(); // what was interrupted may be complete now
    updatesChanged();
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
    // An empty table in the middle of an update must not look like a printer to be connected.
    _ui->emptyText->setText(isUnderWay ? localized("A printer is restarting. Leave it switched on and connected.")
                                       : localized("Connect a ZUL printer by USB and switch it on."));
    showActions();
}

// ---- the end --------------------------------------------------------------------------------------------------------

// The close box is a person's request. The window stays until it is clear that the program ends.
void MainWindow::closeEvent(QCloseEvent* event) {
    event->ignore();
    if (_session.controller->applicationShouldTerminateAfterLastWindowClosed(&_application)) quitAsked();
}

void MainWindow::quitAsked() {
    if (!_supervisor.isAnyBetweenCommands()) {
        _application.endNow();
        return;
    }
    if (std::exchange(_isAskingToQuit, true)) return;
    AlertDescription question;
    question.messageText = Bundle::localized("A printer is being updated. Quit all the same?");
    question.informativeText = Bundle::localized("Its update stops where it is, and the printer may be unusable until "
                                                 "the update is repeated.");
    question.buttons = {Bundle::localized("Keep Updating"), Bundle::localized("Quit")};
    question.escapeButton = 0;
    question.style = AlertStyle::critical;
    question.isModal = true; // before any sheet: the person waits for it
    question.completion = [this](int answer) {
        _isAskingToQuit = false;
        if (answer == kAlertSecondButton) _application.endNow();
    };
    _alerts.beginAlert(std::move(question));
}

void MainWindow::endAsked() {
    if (!_supervisor.isAnyBetweenCommands()) {
        _application.endNow();
        return;
    }
    _isEndAsked = true;
    _ui->statusbar->showMessage(localized("The program ends as soon as the printers in an update can be left."));
    _supervisor.requestStop();
}

} // namespace zul::ui
