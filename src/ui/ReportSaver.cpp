// The file dialog of the report, and the question before a file is replaced that the dialog did not ask about. GUI
// thread; the window's action "Save Report" starts it.
#include "ui/ReportSaver.h"

#include "platform/foundation/Bundle.h"
#include "platform/foundation/LocalizedFormat.h"
#include "session/Session.h"
#include "ui/AlertPresenter.h"
#include "ui/Questions.h"
#include "ui/Report.h"
#include "ui/Texts.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QShortcut>
#include <QStringList>
#include <string>
#include <utility>

namespace zul::ui {

ReportSaver::ReportSaver(QWidget& window, Session& session, AlertPresenter& alerts, std::string programName)
    : _window(window), _session(session), _alerts(alerts), _programName(std::move(programName)) {}

void ReportSaver::askForFile() {
    const QString name = "zul-printers-" + QDateTime::currentDateTime().toString("yyyyMMdd-HHmm");
    auto* const dialog = new QFileDialog(&_window, localized("Save Report"), QDir::homePath());
    dialog->setObjectName("saveReport");
    dialog->setAcceptMode(QFileDialog::AcceptSave);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setDefaultSuffix("txt"); // with a suffix the dialog asks before it replaces an existing text file
    dialog->selectFile(name);
    connect(dialog, &QFileDialog::fileSelected, this, &ReportSaver::saveNamed);
    connect(new QShortcut(QKeySequence("Ctrl+Q"), dialog), &QShortcut::activated, this, &ReportSaver::quitAsked);
    dialog->open();
}

// The dialog has asked about the named file only. If that file is new, an existing other one does not belong to an
// earlier report of this name.
void ReportSaver::saveNamed(const QString& file) {
    const ReportFiles files = reportFiles(file);
    QStringList others;
    for (const QString& other : {files.text, files.json}) {
        if (other != file && QFile::exists(other)) others << other;
    }
    if (others.isEmpty() || QFile::exists(file)) {
        saveAndReport(file);
        return;
    }
    _alerts.beginAlert(questionAlert({.title = localizedFormat("%s exists already.", others.join(", ").toStdString()),
                                      .message = Bundle::localized("Its contents would be lost."),
                                      .decline = Bundle::localized("Cancel"),
                                      .accept = Bundle::localized("Replace")},
                                     [this, file] { saveAndReport(file); }));
}

void ReportSaver::saveAndReport(const QString& file) {
    const QString problem = save(file);
    if (problem.isEmpty()) {
        Q_EMIT saved();
    } else {
        _alerts.beginAlert(messageAlert(Bundle::localized("The report could not be saved."), problem.toStdString()));
    }
}

QString ReportSaver::save(const QString& file) {
    const QString heading =
        qtext(localizedFormat("%s %s", _programName,
                              _session.defaults.stringForKey("prefDisplayVersionString").value_or(""))) +
        "\n" + QDateTime::currentDateTime().toString(Qt::ISODate);
    return writeReport(_session.printers(), heading, reportFiles(file));
}

} // namespace zul::ui
