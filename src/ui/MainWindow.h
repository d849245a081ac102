// The main window: the table of printers, the updates, the details of the selected printer, and the actions. GUI
// thread, which is the main queue's; WindowProgram owns it.
#pragma once

#include "Classes/Outlets.h"
#include "platform/usb/PrinterReservations.h"
#include "session/Session.h"
#include "ui/PrinterArrayController.h"
#include "ui/PrinterTable.h"
#include "ui/PrinterTableModel.h"
#include "ui/TaskbarProgress.h"
#include "update/UpdateSupervisor.h"

#include <QMainWindow>
#include <functional>
#include <memory>
#include <string>

class QLabel;

namespace Ui {
class MainWindow;
}

namespace zul::ui {

class AlertPresenter;
class LogWindow;
class PaneRoom;
class ReportSaver;
class WindowApplication;
class WindowLayout;

class MainWindow final : public QMainWindow, public WindowOutlet, public SessionObserver {
    Q_OBJECT

  public:
    /// Builds the window without showing it, and observes the session. All of these must outlive the window.
    MainWindow(Session& session, AlertPresenter& alerts, WindowApplication& application);
    ~MainWindow() override;

    /// What the engine's controller is connected to. Before the session starts.
    TBPrinters::Outlets outlets();
    /// Shows the session's printers, sets all texts in the operator's language, and shows the window. After the session
    /// has started.
    void begin();

    // WindowOutlet
    std::string title() const override { return windowTitle().toStdString(); }
    /// Called by the engine's controller with the program's name.
    void setTitle(const std::string& title) override;

    // SessionObserver
    /// Each refreshes the part of the window that shows it; they may come many times a second.
    void updateDidChange(const std::string& key) override;
    void updateDidEnd(const std::string& key) override;
    void conditionsMayHaveChanged() override;
    void noteDidArise(const std::string& text) override;
    void unusablePrinterDidArrive(const std::string& message) override;
    void unusablePrintersDidChange() override;
    void interruptedDidChange() override;

    /// Ends the program on the operator's request, after a question while an update must not be interrupted.
    void quitAsked();
    /// Ends the program on the system's request: at once, or as soon as no update would be interrupted. Never asks.
    void endAsked();
    /// The printer that actions apply to; null if there is none.
    Session::Printer selection() const { return _controller.selection(); }
    /// Writes the layout of the window and of the columns to the user defaults, for the next start.
    void rememberLayout();
    /// Saves the report on all attached printers.
    ReportSaver& report() { return *_report; }

  protected:
    void closeEvent(QCloseEvent* event) override;
    bool event(QEvent* event) override;

  private:
    void connectActions();
    void connectReport();
    void localizeWidgets();
    void setUpTable();
    void openContextMenu(const QPoint& place);
    void openColumnMenu(const QPoint& place);
    void showIcons();
    void showContent();
    void showSummary();
    void forgetAway();
    void showSelection();
    void showActions();
    void showNotices();
    void updatesChanged();
    void updateFirmware();
    void askBeforeSecondImage(const Session::Printer& printer);
    void askBeforeEqualVersion(const Session::Printer& printer);
    void resetCounter(char letter);
    void showLog();
    void showAbout();
    void whileReserved(const Session::Printer& printer, const std::string& activity,
                       const std::function<void()>& action);
    void showHolder(TBUSBPrinterZUL& printer, const InterfaceHolder& holder);

    Session& _session;
    AlertPresenter& _alerts;
    WindowApplication& _application;
    std::unique_ptr<Ui::MainWindow> _ui;
    std::shared_ptr<Menu> _menu;
    PrinterTableModel _model;
    std::unique_ptr<PrinterTable> _table;
    PrinterArrayController _controller;
    UpdateSupervisor& _supervisor;
    std::unique_ptr<PaneRoom> _panes;
    std::unique_ptr<WindowLayout> _layout;
    std::unique_ptr<ReportSaver> _report;
    std::unique_ptr<LogWindow> _log;
    TaskbarProgress _taskbar;
    bool _isEndAsked = false; // by the system; the program ends once no update would be interrupted
    bool _isAskingToQuit = false;
    QLabel* _count = nullptr;
    QLabel* _version = nullptr;
};

} // namespace zul::ui
