// The window's actions, when each of them is enabled, and the questions before them; and how the program ends. An
// action applies to the selected printer, which is the highlighted row. GUI thread; called by menus, tool bar and
// shortcuts.
#include "Classes/Outlets.h"
#include "Classes/PrinterTypes.h"
#include "Classes/TBUSBPrinter.h"
#include "Classes/TBUSBPrinterZUL.h"
#include "platform/foundation/Bundle.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/LocalizedFormat.h"
#include "platform/usb/PrinterReservations.h"
#include "session/PrinterInfo.h"
#include "ui/AlertPresenter.h"
#include "ui/LogWindow.h"
#include "ui/MainWindow.h"
#include "ui/PrinterArrayController.h"
#include "ui/Questions.h"
#include "ui/ReportSaver.h"
#include "ui/Texts.h"
#include "ui/WindowApplication.h"
#include "ui_MainWindow.h"
#include "update/UpdateTexts.h"

#include <QCloseEvent>
#include <QMenu>
#include <QToolButton>
#include <functional>
#include <utility>

namespace zul::ui {

namespace {

constexpr int kMessageTime = 10000; // ms in the status bar

} // namespace

void MainWindow::connectActions() {
    const auto onPrinter = [this](QAction* action, auto handler) {
        connect(action, &QAction::triggered, this, [this, handler](bool isChecked) {
            if (const auto printer = selection()) handler(*printer, isChecked);
            showActions(); // a check mark shows the printer's state, not the click
        });
    };
    onPrinter(_ui->actionRefresh, [](TBUSBPrinterZUL& printer, bool) { printer.updateInfo(); });
    onPrinter(_ui->actionHotPlug, [this](TBUSBPrinterZUL&, bool) {
        whileReserved(selection(), "reset", [printer = selection()] { printer->hotPlug(); });
    });
    onPrinter(_ui->actionSerial, [this](TBUSBPrinterZUL&, bool isOn) {
        whileReserved(selection(), "setting", [printer = selection(), isOn] { printer->setUsbISerial(isOn); });
    });
    onPrinter(_ui->actionClaim, [this](TBUSBPrinterZUL&, bool isOn) {
        if (const auto holder = _session.setClaimed(selection(), isOn)) showHolder(*selection(), *holder);
    });
    connect(_ui->actionUpdate, &QAction::triggered, this, &MainWindow::updateFirmware);
    connect(_ui->actionCounterA, &QAction::triggered, this, [this] { resetCounter('A'); });
    connect(_ui->actionCounterB, &QAction::triggered, this, [this] { resetCounter('B'); });
    connect(_ui->actionCounterM, &QAction::triggered, this, [this] { resetCounter('M'); });
    connect(_ui->actionReport, &QAction::triggered, _report.get(), &ReportSaver::askForFile);
    connect(_ui->actionLog, &QAction::triggered, this, &MainWindow::showLog);
    connect(_ui->actionAbout, &QAction::triggered, this, &MainWindow::showAbout);
    connect(_ui->actionQuit, &QAction::triggered, this, [this] { quitAsked(); });
    connect(&_alerts, &AlertPresenter::quitAsked, _ui->actionQuit, &QAction::trigger);
    // A click on the button opens its menu: there is no counter that it could reset by itself.
    auto* const counters = qobject_cast<QToolButton*>(_ui->toolbar->widgetForAction(_ui->menuCounters->menuAction()));
    if (counters != nullptr) counters->setPopupMode(QToolButton::InstantPopup);
}

void MainWindow::connectReport() {
    connect(_report.get(), &ReportSaver::quitAsked, _ui->actionQuit, &QAction::trigger);
    connect(_report.get(), &ReportSaver::saved, this,
            [this] { _ui->statusbar->showMessage(localized("The report is saved."), kMessageTime); });
}

void MainWindow::showActions() {
    const auto printer = selection();
    const std::string key = printer ? printer->keyUSBdevice() : "";
    const auto show = [&](QAction* action, const std::string& reason) {
        action->setEnabled(printer != nullptr && reason.empty());
        action->setToolTip(reason.empty() ? action->statusTip() : qtext(reason));
    };
    show(_ui->actionUpdate, _supervisor.reasonAgainst(key));
    const std::string reason = _supervisor.reasonAgainstActions(key);
    for (QAction* action : {_ui->actionRefresh, _ui->actionHotPlug, _ui->actionClaim, _ui->actionCounterA,
                            _ui->actionCounterB, _ui->actionCounterM, _ui->actionSerial}) {
        show(action, reason);
    }
    _ui->menuCounters->setEnabled(_ui->actionCounterA->isEnabled());
    _ui->actionReport->setEnabled(_model.rowCount() > 0);
    if (_ui->actionSerial->isEnabled() && !printer->hasISerialSupport()) {
        _ui->actionSerial->setEnabled(false);
        _ui->actionSerial->setToolTip(localized("This model has no such setting."));
    }
    _ui->actionSerial->setChecked(printer && printer->hasISerialSupport() && printer->usbISerial());
    _ui->actionClaim->setChecked(printer && printer->ownership() == Ownership::thisProgram);
}

// ---- update and counters --------------------------------------------------------------------------------------------

void MainWindow::updateFirmware() {
    const auto printer = selection();
    if (!printer || !_supervisor.reasonAgainst(printer->keyUSBdevice()).empty()) return;
    if (_session.areSamplesWithheld()) {
        _alerts.beginAlert(messageAlert(samplesInUse().toStdString(),
                                        useVendorFiles().toStdString() + " " + Bundle::localized("Nothing was sent.")));
        return;
    }
    if (_supervisor.mayGetSecondImage(printer->keyUSBdevice())) {
        askBeforeSecondImage(printer);
    } else if (_supervisor.isUpToDate(*printer) && printer->archiveProblems().empty()) {
        askBeforeEqualVersion(printer);
    } else {
        _supervisor.begin(printer, UpdateSupervisor::Equal::install);
    }
}

void MainWindow::askBeforeEqualVersion(const Session::Printer& printer) {
    AlertDescription question = questionAlert(
        {.title =
             localizedFormat("%s is already installed. Install it again?", textOrNull(printer->newFirmwareVersion())),
         .message = localizedFormat("%s has this firmware and its color tables.", displayNameOf(*printer)),
         .decline = Bundle::localized("Cancel"),
         .accept = Bundle::localized("Install Again")},
        [this, key = printer->keyUSBdevice()] {
            const auto attached = _session.printerWithKey(key); // another object if it was attached again meanwhile
            if (attached) _supervisor.begin(attached, UpdateSupervisor::Equal::install);
        });
    question.iconName = printer->image().value_or("");
    question.printerName = displayNameOf(*printer);
    _alerts.beginAlert(std::move(question));
}

void MainWindow::askBeforeSecondImage(const Session::Printer& printer) {
    AlertDescription question =
        questionAlert({.title = localizedFormat("Start the update of %s again?", displayNameOf(*printer)),
                       .message = adviceFor(_supervisor.updates().at(printer->keyUSBdevice()).state) + "\n\n" +
                                  Bundle::localized("Starting again now sends the firmware a second time, which may "
                                                    "damage a printer that is still working."),
                       .decline = Bundle::localized("Cancel"),
                       .accept = Bundle::localized("Start Again")},
                      [this, key = printer->keyUSBdevice()] {
                          const auto attached =
                              _session.printerWithKey(key); // another object if it was attached again meanwhile
                          // The update may have continued or ended while the question was shown.
                          if (!attached || !_supervisor.mayGetSecondImage(key)) return;
                          _supervisor.begin(attached, UpdateSupervisor::Equal::install);
                      });
    question.style = AlertStyle::critical;
    question.iconName = printer->image().value_or("");
    _alerts.beginAlert(std::move(question));
}

void MainWindow::resetCounter(char letter) {
    const auto printer = selection();
    if (!printer) return;
    AlertDescription question =
        questionAlert({.title = localizedFormat("Reset counter %c of %s?", letter, displayNameOf(*printer)),
                       .message = Bundle::localized("The counter is set to 0. The old value cannot be restored."),
                       .decline = Bundle::localized("Cancel"),
                       .accept = Bundle::localized("Reset Counter")},
                      [this, printer, letter] {
                          // An update may have begun while the question was shown.
                          if (!_supervisor.reasonAgainstActions(printer->keyUSBdevice()).empty()) return;
                          whileReserved(printer, "counter reset", [printer, letter] { printer->resetCounter(letter); });
                      });
    question.iconName = printer->image().value_or("");
    _alerts.beginAlert(std::move(question));
}

void MainWindow::whileReserved(const Session::Printer& printer, const std::string& activity,
                               const std::function<void()>& action) {
    if (const auto holder = _session.whileReserved(printer, activity, action)) showHolder(*printer, *holder);
}

void MainWindow::showHolder(TBUSBPrinterZUL& printer, const InterfaceHolder& holder) {
    _alerts.beginAlert(
        messageAlert(displayNameOf(printer) + ": " + describeHolder(holder) + ".",
                     adviceForHolder(holder) + " " + Bundle::localized(operatorText("Then try again."))));
}

// Wherever the operator clicks, the menu applies to the selected printer. Its first item names that printer, and it
// closes when another one is selected.
void MainWindow::openContextMenu(const QPoint& place) {
    const auto printer = selection();
    if (!printer) return;
    auto* const menu = new QMenu(this);
    menu->setObjectName("contextMenu");
    menu->setAttribute(Qt::WA_DeleteOnClose);
    menu->setToolTipsVisible(true);
    menu->addAction(qtext(displayNameOf(*printer)))->setEnabled(false);
    menu->addSeparator();
    menu->addActions(_ui->menuPrinter->actions());
    menu->addSeparator();
    menu->addActions({_ui->actionReport, _ui->actionLog, _ui->actionAbout, _ui->actionQuit});
    connect(&_controller, &PrinterArrayController::selectionChanged, menu, &QMenu::close);
    menu->popup(_ui->table->viewport()->mapToGlobal(place));
}

// ---- other windows --------------------------------------------------------------------------------------------------

void MainWindow::showLog() {
    _log->show();
    _log->raise();
    _log->activateWindow();
}

void MainWindow::showAbout() {
    AlertDescription about =
        messageAlert(_application.processName(),
                     localizedFormat("Version %s\n\nKeeps ZUL photo printers up to date: firmware and color tables.",
                                     _session.defaults.stringForKey("prefDisplayVersionString").value_or("")));
    about.iconName = "zul-printer-utility";
    _alerts.beginAlert(std::move(about));
}

// ---- the end --------------------------------------------------------------------------------------------------------

// Closing the window is the operator's request to end the program. The window stays open until that is decided.
void MainWindow::closeEvent(QCloseEvent* event) {
    // The toolkit would hide the window at once.
    event->ignore();
    if (_session.controller->applicationShouldTerminateAfterLastWindowClosed(&_application)) quitAsked();
}

void MainWindow::quitAsked() {
    if (!_supervisor.isAnyBetweenCommands()) {
        _application.endNow();
        return;
    }
    if (std::exchange(_isAskingToQuit, true)) return;
    AlertDescription question =
        questionAlert({.title = Bundle::localized("A printer is being updated. Quit anyway?"),
                       .message = Bundle::localized("The update stops now, and the printer may be unusable until "
                                                    "the update is repeated."),
                       .decline = Bundle::localized("Keep Updating"),
                       .accept = Bundle::localized("Quit")},
                      [this] { _application.endNow(); });
    question.style = AlertStyle::critical;
    question.isModal = true; // before any sheet, because the operator waits for it
    question.completion = [this, answered = question.completion](int answer) {
        _isAskingToQuit = false;
        answered(answer);
    };
    _alerts.beginAlert(std::move(question));
}

void MainWindow::endAsked() {
    if (!_supervisor.isAnyBetweenCommands()) {
        _application.endNow();
        return;
    }
    _isEndAsked = true;
    _ui->statusbar->showMessage(localized("The program ends as soon as the updates can be interrupted safely."));
    _supervisor.requestStop();
}

} // namespace zul::ui
