// What the operator can do, and when. Actions go to the selected printer, which is the highlighted row.
#include "platform/foundation/LocalizedFormat.h"
#include "session/PrinterFacts.h"
#include "ui/AlertPresenter.h"
#include "ui/DetailsPane.h"
#include "ui/LogWindow.h"
#include "ui/MainWindow.h"
#include "ui/Texts.h"
#include "ui/WindowApplication.h"
#include "ui_MainWindow.h"

#include <QDateTime>
#include <QFileDialog>
#include <QMenu>
#include <QSaveFile>
#include <QShortcut>
#include <QToolButton>
#include <nlohmann/json.hpp>

namespace zul::ui {

namespace {

// A report is two files; either may be named.
QString baseOf(QString file) {
    for (const char* suffix : {".txt", ".json"}) {
        if (!file.endsWith(suffix)) continue;
        file.chop(static_cast<qsizetype>(qstrlen(suffix)));
        break;
    }
    return file;
}

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
    connect(_ui->actionReport, &QAction::triggered, this, &MainWindow::askForReport);
    connect(_ui->actionLog, &QAction::triggered, this, &MainWindow::showLog);
    connect(_ui->actionAbout, &QAction::triggered, this, &MainWindow::showAbout);
    connect(_ui->actionQuit, &QAction::triggered, this, [this] { quitAsked(); });
    connect(&_alerts, &AlertPresenter::quitAsked, _ui->actionQuit, &QAction::trigger);
    // Its button opens the menu: there is nothing else that it could do.
    auto* const counters = qobject_cast<QToolButton*>(_ui->toolbar->widgetForAction(_ui->menuCounters->menuAction()));
    if (counters != nullptr) counters->setPopupMode(QToolButton::InstantPopup);
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
        tell(localized("The firmware files in use are samples for virtual printers."),
             localized("Start the program with --firmware-archive and the folder with the vendor's files.") + " " +
                 localized("Nothing was sent."));
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
    AlertDescription question;
    question.messageText =
        localizedFormat("%s is already installed. Install it again?", textOrNull(printer->newFirmwareVersion()));
    question.informativeText = localizedFormat("%s has this firmware and its color tables.", nameOf(*printer));
    question.buttons = {Bundle::localized("Cancel"), Bundle::localized("Install Again")};
    question.escapeButton = 0;
    question.iconName = printer->image().value_or("");
    question.printerName = nameOf(*printer);
    question.completion = [this, key = printer->keyUSBdevice()](int answer) {
        const auto attached = _session.printerWithKey(key); // it may have left and come back meanwhile
        if (answer == kAlertSecondButton && attached) _supervisor.begin(attached, UpdateSupervisor::Equal::install);
    };
    _alerts.beginAlert(std::move(question));
}

void MainWindow::askBeforeSecondImage(const Session::Printer& printer) {
    AlertDescription question;
    question.messageText = localizedFormat("Start the update of %s again?", nameOf(*printer));
    question.informativeText = adviceFor(_supervisor.updates().at(printer->keyUSBdevice()).state) + "\n\n" +
                               Bundle::localized("To start again now sends the firmware once more, which may damage a "
                                                 "printer that is still at work.");
    question.buttons = {Bundle::localized("Cancel"), Bundle::localized("Start Again")};
    question.escapeButton = 0;
    question.style = AlertStyle::critical;
    question.iconName = printer->image().value_or("");
    question.completion = [this, key = printer->keyUSBdevice()](int answer) {
        const auto attached = _session.printerWithKey(key); // it may have left and come back meanwhile
        if (answer == kAlertSecondButton && attached && _supervisor.mayGetSecondImage(key)) {
            _supervisor.begin(attached, UpdateSupervisor::Equal::install);
        }
    };
    _alerts.beginAlert(std::move(question));
}

void MainWindow::resetCounter(char letter) {
    const auto printer = selection();
    if (!printer) return;
    AlertDescription question;
    question.messageText = localizedFormat("Reset counter %c of %s?", letter, nameOf(*printer));
    question.informativeText = Bundle::localized("The counter is set to 0. Its old value cannot be brought back.");
    question.buttons = {Bundle::localized("Cancel"), Bundle::localized("Reset Counter")};
    question.escapeButton = 0;
    question.iconName = printer->image().value_or("");
    question.completion = [this, printer, letter](int answer) {
        // An update may have begun while the question stood.
        const bool isFree = _supervisor.reasonAgainstActions(printer->keyUSBdevice()).empty();
        if (answer != kAlertSecondButton || !isFree) return;
        whileReserved(printer, "counter reset", [printer, letter] { printer->resetCounter(letter); });
    };
    _alerts.beginAlert(std::move(question));
}

void MainWindow::whileReserved(const Session::Printer& printer, const std::string& activity,
                               const std::function<void()>& action) {
    if (const auto holder = _session.whileReserved(printer, activity, action)) showHolder(*printer, *holder);
}

void MainWindow::showHolder(TBUSBPrinterZUL& printer, const InterfaceHolder& holder) {
    tell(qtext(nameOf(printer) + ": " + describeHolder(holder) + "."),
         qtext(adviceForHolder(holder) + " " + Bundle::localized(operatorText("Then try again."))));
}

void MainWindow::tell(const QString& title, const QString& message) {
    AlertDescription alert;
    alert.messageText = title.toStdString();
    alert.informativeText = message.toStdString();
    alert.buttons = {Bundle::localized("OK")};
    alert.escapeButton = 0;
    _alerts.beginAlert(std::move(alert));
}

// A press on any row ends at the selected one: the menu says whose it is, and goes when that changes.
void MainWindow::openContextMenu(const QPoint& place) {
    const auto printer = selection();
    if (!printer) return;
    auto* const menu = new QMenu(this);
    menu->setObjectName("contextMenu");
    menu->setAttribute(Qt::WA_DeleteOnClose);
    menu->setToolTipsVisible(true);
    menu->addAction(qtext(nameOf(*printer)))->setEnabled(false);
    menu->addSeparator();
    menu->addActions(_ui->menuPrinter->actions());
    menu->addSeparator();
    menu->addActions({_ui->actionReport, _ui->actionLog, _ui->actionAbout, _ui->actionQuit});
    connect(&_controller, &PrinterArrayController::selectionChanged, menu, &QMenu::close);
    menu->popup(_ui->table->viewport()->mapToGlobal(place));
}

// ---- report ---------------------------------------------------------------------------------------------------------

void MainWindow::askForReport() {
    const QString name = "zul-printers-" + QDateTime::currentDateTime().toString("yyyyMMdd-HHmm");
    auto* const dialog = new QFileDialog(this, localized("Save Report"), QDir::homePath());
    dialog->setObjectName("saveReport");
    dialog->setAcceptMode(QFileDialog::AcceptSave);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setDefaultSuffix("txt"); // so that the dialog asks before it replaces one
    dialog->selectFile(name);
    connect(dialog, &QFileDialog::fileSelected, this, &MainWindow::saveReportAs);
    connect(new QShortcut(QKeySequence("Ctrl+Q"), dialog), &QShortcut::activated, _ui->actionQuit, &QAction::trigger);
    dialog->open();
}

// The dialog has asked about the file that was named. When that one is new, the other of the two is somebody else's.
void MainWindow::saveReportAs(const QString& file) {
    QStringList others;
    for (const char* suffix : {".txt", ".json"}) {
        const QString other = baseOf(file) + suffix;
        if (other != file && QFile::exists(other)) others << other;
    }
    if (others.isEmpty() || QFile::exists(file)) {
        writeReport(file);
        return;
    }
    AlertDescription question;
    question.messageText = localizedFormat("%s exists already.", others.join(", ").toStdString());
    question.informativeText = Bundle::localized("What it holds would be lost.");
    question.buttons = {Bundle::localized("Cancel"), Bundle::localized("Replace")};
    question.escapeButton = 0;
    question.completion = [this, file](int answer) {
        if (answer == kAlertSecondButton) writeReport(file);
    };
    _alerts.beginAlert(std::move(question));
}

void MainWindow::writeReport(const QString& file) {
    const QString problem = saveReport(file);
    if (problem.isEmpty()) {
        _ui->statusbar->showMessage(localized("The report is saved."), 10000);
    } else {
        tell(localized("The report could not be saved."), problem);
    }
}

QString MainWindow::saveReport(const QString& file) {
    nlohmann::json all = nlohmann::json::array();
    QString text = qtext(localizedFormat("%s %s", _application.processName(),
                                         _session.defaults.stringForKey("prefDisplayVersionString").value_or(""))) +
                   "\n" + QDateTime::currentDateTime().toString(Qt::ISODate) + "\n";
    for (const auto& printer : _session.printers()) {
        all.push_back(factsOf(*printer));
        text += "\n" + qtext(nameOf(*printer)) + "\n";
        for (const auto& [label, value] : detailsOf(*printer)) text += "  " + label + ": " + value + "\n";
    }
    const QString base = baseOf(file);
    const std::pair<QString, QByteArray> files[] = {
        {base + ".txt", text.toUtf8()},
        {base + ".json",
         QByteArray::fromStdString(all.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n")}};
    for (const auto& [path, contents] : files) {
        QSaveFile saved(path);
        if (!saved.open(QIODevice::WriteOnly) || saved.write(contents) != contents.size() || !saved.commit()) {
            return path + ": " + saved.errorString() + ". " + localized("Choose a folder that can be written to.");
        }
    }
    return {};
}

// ---- other windows --------------------------------------------------------------------------------------------------

void MainWindow::showLog() {
    _log->show();
    _log->raise();
    _log->activateWindow();
}

void MainWindow::showAbout() {
    AlertDescription about;
    about.messageText = _application.processName();
    about.informativeText =
        localizedFormat("Version %s\n\nKeeps ZUL photo printers up to date: firmware and color tables.",
                        _session.defaults.stringForKey("prefDisplayVersionString").value_or(""));
    about.buttons = {Bundle::localized("OK")};
    about.escapeButton = 0;
    about.iconName = "zul-printer-utility";
    _alerts.beginAlert(std::move(about));
}

} // namespace zul::ui
