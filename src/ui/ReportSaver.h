// Saves the report on all attached printers where the operator wants it. GUI thread, which is the main queue's;
// MainWindow owns it.
#pragma once

#include "session/Session.h"
#include "ui/Report.h"

#include <QObject>
#include <QString>
#include <QWidget>
#include <string>

namespace zul::ui {

class AlertPresenter;

class ReportSaver final : public QObject {
    Q_OBJECT

  public:
    /// window: the parent of the file dialog. programName: for the heading of the report. All must outlive the saver.
    ReportSaver(QWidget& window, Session& session, AlertPresenter& alerts, std::string programName);

    /// Opens the file dialog and returns; the report is saved when the operator has chosen a file.
    void askForFile();
    /// Writes the report on the printers that are attached now, replacing existing files without a question. file: with
    /// or without suffix. Returns what went wrong and what to do; empty if it is saved.
    QString save(const QString& file);

  Q_SIGNALS:
    /// The operator's report is saved.
    void saved();
    /// The operator pressed the keys that end the program in the file dialog.
    void quitAsked();

  private:
    void saveNamed(const QString& file);
    void saveAndReport(const QString& file);

    QWidget& _window;
    Session& _session;
    AlertPresenter& _alerts;
    const std::string _programName;
};

} // namespace zul::ui
