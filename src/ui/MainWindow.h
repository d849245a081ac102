// The window: the table of printers, the details of the selected one, the updates that run, and the actions. GUI
// thread, which is the main queue's.
#pragma once

#include "Classes/Outlets.h"
#include "session/Session.h"
#include "ui/PrinterTable.h"
#include "ui/TaskbarProgress.h"

#include <QMainWindow>
#include <memory>

class QLabel;

namespace Ui {
class MainWindow;
}

namespace zul::ui {

class LogWindow;
class AlertPresenter;
class WindowApplication;

class MainWindow final : public QMainWindow, public WindowOutlet, public SessionObserver {
    Q_OBJECT

  public:
    MainWindow(Session& session, AlertPresenter& alerts, WindowApplication& application);
    ~MainWindow() override;

    /// What the controller connects to. Before the session starts.
    TBPrinters::Outlets outlets();
    /// Binds the list, takes over the localised texts and shows itself. After the session has started.
    void begin();

    // WindowOutlet
    std::string title() const override { return windowTitle().toStdString(); }
    void setTitle(const std::string& title) override;

    // SessionObserver
    void updateDidChange(const std::string& key) override;
    void updateDidEnd(const std::string& key) override;
    void conditionsMayHaveChanged() override;
    void noteDidArise(const std::string& text) override;
    void unusablePrinterDidArrive(const std::string& message) override;
    void unusablePrintersDidChange() override;
    void interruptedDidChange() override;

    /// A person wants to end the program: asked once more while a printer must not be left. Nothing else asks.
    void quitAsked();
    /// The system wants the program to end: it ends at once, or as soon as the printers in an update can be left.
    void endAsked();
    /// The printer that actions go to.
    Session::Printer selection() const { return _controller.selection(); }
    /// Keeps the places of the columns and the window for the next start.
    void rememberLayout();
    /// Writes the facts of all attached printers to file.txt and file.json; the problem, or nothing.
    QString saveReport(const QString& file);

  protected:
    void closeEvent(QCloseEvent* event) override;
    bool event(QEvent* event) override;

  private:
    void connectActions();
    void localizeWidgets();
    void setUpTable();
    void layOutWindow();
    void layOutColumns();
    void openContextMenu(const QPoint& place);
    void showIcons();
    void showContent();
    void showSelection();
    void showActions();
    void showNotices();
    void updatesChanged();
    void noteSizes();
    void makeRoomForUpdates();
    void giveRoomBack();
    void updateFirmware();
    void askBeforeSecondImage(const Session::Printer& printer);
    void askBeforeEqualVersion(const Session::Printer& printer);
    void resetCounter(char letter);
    void askForReport();
    void saveReportAs(const QString& file);
    void writeReport(const QString& file);
    void showLog();
    void showAbout();
    void whileReserved(const Session::Printer& printer, const std::string& activity,
                       const std::function<void()>& action);
    void showHolder(TBUSBPrinterZUL& printer, const InterfaceHolder& holder);
    void tell(const QString& title, const QString& message);

    Session& _session;
    AlertPresenter& _alerts;
    WindowApplication& _application;
    std::unique_ptr<Ui::MainWindow> _ui;
    std::shared_ptr<Menu> _menu;
    PrinterTableModel _model;
    std::unique_ptr<PrinterTable> _table;
    PrinterArrayController _controller;
    UpdateSupervisor& _supervisor;
    TaskbarProgress _taskbar;
    std::unique_ptr<LogWindow> _log;
    QList<int> _sizesBefore; // of the splitter's parts, before updates took their place
    bool _isSplitByHand = false;
    bool _isEndAsked = false; // by the system; ends when no printer is in the middle of its update
    bool _isAskingToQuit = false;
    QLabel* _count = nullptr;
    QLabel* _version = nullptr;
};

} // namespace zul::ui
