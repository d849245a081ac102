// What accompanies updates: the lock against sleep, the task bar, the log window and the report. GUI thread.
#include "window/Stage.h"
#include "window/Updates.h"

#include "archive/FirmwareDigests.h"
#include "holven_log/HOLVEN_Log.h"
#include "support/ChangedArchive.h"
#include "ui/LogWindow.h"
#include "ui/ReportSaver.h"
#include "ui/TaskbarProgress.h"
#include "ui/WindowApplication.h"
#include "virtual_printer/VirtualBus.h"

#include <QApplication>
#include <QClipboard>
#include <QComboBox>
#include <QDBusConnection>
#include <QFileDialog>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QScrollBar>
#include <QTest>
#include <doctest/doctest.h>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

namespace zul::test {

namespace {

class TaskBar final : public QObject {
    Q_OBJECT

  public:
    QStringList entries;
    QList<QVariantMap> seen;

  public Q_SLOTS:
    void update(const QString& entry, const QVariantMap& properties) {
        entries << entry;
        seen << properties;
    }
};

} // namespace

TEST_CASE("the task bar gets each change of the progress once, and its end") {
    const QDBusConnection listener = QDBusConnection::connectToBus(QDBusConnection::SessionBus, "task-bar");
    TaskBar bar;
    REQUIRE(QDBusConnection(listener).connect({}, {}, "com.canonical.Unity.LauncherEntry", "Update", &bar,
                                              SLOT(update(QString, QVariantMap))));
    ui::TaskbarProgress progress(QDBusConnection::connectToBus(QDBusConnection::SessionBus, "program-2"));
    progress.show(true, 0.25);
    progress.show(true, 0.251);
    progress.show(true, 0.5);
    progress.show(false, 1);
    REQUIRE(QTest::qWaitFor([&] { return bar.seen.size() >= 3; }, 10000));
    REQUIRE(bar.seen.size() == 3);
    CHECK(bar.entries.first() == "application://zul-printer-utility.desktop");
    CHECK(bar.seen[0] == QVariantMap{{"progress", 0.25}, {"progress-visible", true}});
    CHECK(bar.seen[1]["progress"].toDouble() == 0.5);
    CHECK_FALSE(bar.seen[2]["progress-visible"].toBool());
}

TEST_CASE("an update is under way from its first command to its report") {
    Stage stage({.printers = {quick("VK14")}});
    stage.waitForDeviceInfo();
    CHECK_FALSE(stage.supervisor().isAnyUnderWay());
    stage.click("Update Firmware…");
    stage.waitForAlert("Attention:");
    CHECK_FALSE(stage.supervisor().isAnyUnderWay());
    stage.click("I Agree");
    stage.answer("Continue");
    stage.waitForAlert(kConfirmTitle);
    stage.answer("Update Firmware to VK14 01.61");
    stage.waitFor("the update", [&] { return stage.supervisor().isAnyUnderWay(); });
    stage.waitForAlert(kSuccessTitle);
    stage.waitFor("its end", [&] { return !stage.supervisor().isAnyUnderWay(); });
    stage.answer("Finish");
}

TEST_CASE("during an update the machine stays awake and the task bar shows how far it is") {
    const QDBusConnection listener = QDBusConnection::connectToBus(QDBusConnection::SessionBus, "task-bar-2");
    TaskBar bar;
    REQUIRE(QDBusConnection(listener).connect({}, {}, "com.canonical.Unity.LauncherEntry", "Update", &bar,
                                              SLOT(update(QString, QVariantMap))));
    Stage stage({.printers = {quick("VK14")}});
    stage.waitForDeviceInfo();
    CHECK_FALSE(stage.program().session().sleepInhibitor.isWanted());
    stage.click("Update Firmware…");
    stage.waitForAlert("Attention:");
    stage.click("I Agree");
    stage.answer("Continue");
    stage.waitForAlert(kConfirmTitle);
    CHECK_FALSE(stage.program().session().sleepInhibitor.isWanted());
    stage.answer("Update Firmware to VK14 01.61");
    stage.waitFor("the lock", [&] { return stage.program().session().sleepInhibitor.isWanted(); });
    stage.waitForAlert(kSuccessTitle);
    stage.answer("Finish");
    stage.waitFor("the end of the lock", [&] { return !stage.program().session().sleepInhibitor.isWanted(); });
    stage.waitFor("the last signal to the task bar",
                  [&] { return !bar.seen.isEmpty() && !bar.seen.last()["progress-visible"].toBool(); });
    double furthest = 0;
    for (const QVariantMap& seen : bar.seen.mid(0, bar.seen.size() - 1)) {
        CHECK(seen["progress-visible"].toBool());
        CHECK(seen["progress"].toDouble() >= furthest);
        furthest = seen["progress"].toDouble();
    }
    CHECK(furthest > 0.5);
}

TEST_CASE("the sample firmware is for virtual printers only: for real ones a folder must be named") {
    ui::WindowApplication application([] {});
    ui::AlertPresenter alerts;
    const Session real({}, alerts, application);
    CHECK(real.areSamplesWithheld());
    CHECK_FALSE(real.bundle.pathForResource("VK14 01.61", "fw"));
    CHECK_FALSE(readFirmwareDigests(real.bundle.archiveFolder()).problem.empty());
    SessionOptions named;
    named.firmwareArchive = ZUL_SAMPLE_ARCHIVE; // as a test bench does on purpose
    CHECK_FALSE(Session(named, alerts, application).areSamplesWithheld());
    SessionOptions embedded;
    embedded.virtualPrinters = {quick("VK14")};
    const Session virtualOnes(embedded, alerts, application);
    CHECK_FALSE(virtualOnes.areSamplesWithheld());
    CHECK(virtualOnes.bundle.pathForResource("VK14 01.61", "fw"));
}

TEST_CASE("the log window shows what is logged, by level and by search, and copies it") {
    Stage stage({.printers = {}});
    HOLVEN_Log::setLogFile((stage.folder() / "log.txt").string());
    stage.triggerMenu("Window", "Log");
    stage.waitFor("the log window", [&] { return stage.find("Lines of the log") != nullptr; });
    HOLVEN_Log::logLevel(0, "apples");
    HOLVEN_Log::debug("pears");
    HOLVEN_Log::err("plums");
    const auto& lines = stage.findA<QPlainTextEdit>("Lines of the log");
    stage.waitFor("the lines", [&] { return lines.toPlainText().contains("plums"); });
    CHECK(lines.toPlainText().contains("pears"));
    stage.findA<QComboBox>("Level").setCurrentIndex(2);
    CHECK_FALSE(lines.toPlainText().contains("pears"));
    CHECK(lines.toPlainText().contains("apples"));
    stage.findA<QLineEdit>("Search the log").setText("PLUM");
    CHECK_FALSE(lines.toPlainText().contains("apples"));
    CHECK(lines.toPlainText().contains("plums"));
    stage.screenshot("log");
    stage.click("Copy the shown lines");
    CHECK(QApplication::clipboard()->text() == lines.toPlainText());
    HOLVEN_Log::reset();
}

TEST_CASE("a report contains all device info of all printers as text and as JSON") {
    Stage stage({.printers = {quick("VK14", "serial=111111"), quick("VK14", "serial=222222")}});
    stage.waitForDeviceInfo();
    const auto file = stage.folder() / "report";
    CHECK(stage.window().report().save(QString::fromStdString(file.string() + ".txt")) == "");
    const std::string text = TemporaryFolder::read(file.string() + ".txt");
    CHECK(text.find("ZUL Printer Utility 2.06") == 0);
    CHECK(text.find("Serial Number: 111111") != std::string::npos);
    CHECK(text.find("Serial Number: 222222") != std::string::npos);
    const auto json = nlohmann::json::parse(TemporaryFolder::read(file.string() + ".json"));
    REQUIRE(json.size() == 2);
    CHECK(json[0]["printerSerialNumber"] == "111111");
    CHECK(json[1]["deviceInfo"]["colorTableVersion"] == "0160");
    const QString problem = stage.window().report().save("/nowhere/at/all");
    CHECK(problem.contains("/nowhere/at/all.txt"));
    CHECK(problem.contains("Choose a folder that can be written to."));
}

TEST_CASE("details and report mark an available version whose file is damaged") {
    const ChangedArchive archive(ZUL_SAMPLE_ARCHIVE);
    archive.damage("VK14 01.61.fw");
    Stage stage({.printers = {quick("VK14")}, .firmwareArchive = archive.folder()});
    stage.waitForDeviceInfo();
    CHECK(stage.detailsText().contains("VK14 01.61, file damaged"));
    const auto file = stage.folder() / "report";
    CHECK(stage.window().report().save(QString::fromStdString(file.string() + ".txt")) == "");
    const std::string text = TemporaryFolder::read(file.string() + ".txt");
    CHECK(text.find("Available Firmware: VK14 01.61, file damaged\n") != std::string::npos);
}

TEST_CASE("the file dialog of the report opens and can be cancelled") {
    Stage stage({.printers = {quick("VK14")}});
    stage.waitForDeviceInfo();
    stage.triggerMenu("File", "Save Report…");
    stage.waitFor("the dialog", [&] { return stage.window().findChild<QFileDialog*>("saveReport") != nullptr; });
    stage.window().findChild<QFileDialog*>("saveReport")->reject();
    stage.waitFor("its end", [&] { return stage.window().findChild<QFileDialog*>("saveReport") == nullptr; });
}

TEST_CASE("a report is saved as two files and replaces no other file without a question") {
    Stage stage({.printers = {quick("VK14")}});
    stage.waitForDeviceInfo();
    const auto save = [&](const std::string& name) {
        stage.triggerMenu("File", "Save Report…");
        stage.waitFor("the dialog", [&] { return stage.window().findChild<QFileDialog*>("saveReport") != nullptr; });
        auto* const dialog = stage.window().findChild<QFileDialog*>("saveReport");
        CHECK(dialog->defaultSuffix() == "txt");
        Q_EMIT dialog->fileSelected(QString::fromStdString((stage.folder() / name).string()));
        dialog->reject();
        stage.waitFor("its end", [&] { return stage.window().findChild<QFileDialog*>("saveReport") == nullptr; });
    };
    save("first.txt");
    CHECK(std::filesystem::exists(stage.folder() / "first.txt"));
    CHECK(std::filesystem::exists(stage.folder() / "first.json"));
    std::ofstream(stage.folder() / "other.json") << "precious";
    const QString question = QString::fromStdString((stage.folder() / "other.json").string()) + " exists already.";
    save("other.txt");
    CHECK(stage.waitForAlert(question).buttons == QStringList{"Cancel", "Replace"});
    stage.answer("Cancel");
    CHECK(TemporaryFolder::read(stage.folder() / "other.json") == "precious");
    save("other.txt");
    stage.waitForAlert(question);
    stage.answer("Replace");
    CHECK(TemporaryFolder::read(stage.folder() / "other.json") != "precious");
    // The same the other way round: for a JSON file the dialog has not asked about the text file.
    std::ofstream(stage.folder() / "notes.txt") << "precious";
    save("notes.json");
    stage.waitForAlert(QString::fromStdString((stage.folder() / "notes.txt").string()) + " exists already.");
    stage.answer("Cancel");
    CHECK(TemporaryFolder::read(stage.folder() / "notes.txt") == "precious");
    save("two.json.txt"); // one suffix is the file's kind, the other belongs to its name
    CHECK(std::filesystem::exists(stage.folder() / "two.json.txt"));
    CHECK(std::filesystem::exists(stage.folder() / "two.json.json"));
    save("no such folder/report.txt");
    CHECK(stage.waitForAlert("The report could not be saved.").message.contains("Choose a folder"));
    stage.answer("OK");
}

TEST_CASE("the log shows its last lines from their beginning, however long they are") {
    Stage stage({.printers = {}});
    HOLVEN_Log::setLogFile((stage.folder() / "log.txt").string());
    for (int line = 0; line < 100; ++line) HOLVEN_Log::logLevel(0, std::string(400, 'x'));
    HOLVEN_Log::logLevel(0, "the last");
    stage.settle();
    stage.triggerMenu("Window", "Log");
    stage.waitFor("the log window", [&] { return stage.find("Lines of the log") != nullptr; });
    const auto& lines = stage.findA<QPlainTextEdit>("Lines of the log");
    const auto isAtTheEnd = [&] { return lines.verticalScrollBar()->value() == lines.verticalScrollBar()->maximum(); };
    stage.waitFor("the lines", [&] { return lines.toPlainText().endsWith("the last"); });
    CHECK(lines.horizontalScrollBar()->value() == 0);
    stage.waitFor("the end", isAtTheEnd);
    stage.findA<QLineEdit>("Search the log").setText("x");
    CHECK(lines.horizontalScrollBar()->value() == 0);
    CHECK(isAtTheEnd());
    HOLVEN_Log::reset();
}

TEST_CASE("Ctrl+Q ends the program from the log window, too") {
    Stage stage({.printers = {}});
    stage.triggerMenu("Window", "Log");
    stage.waitFor("the log window", [&] { return stage.find("Lines of the log") != nullptr; });
    QWidget* const log = stage.find("Lines of the log")->window();
    stage.waitFor("its focus", [&] { return QApplication::activeWindow() == log; });
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Q, Qt::ControlModifier);
    CHECK(stage.hasEnded());
}

TEST_CASE("closing the window ends the program") {
    Stage stage({.printers = {quick("VK14")}});
    stage.waitForDeviceInfo();
    stage.window().close();
    CHECK(stage.hasEnded());
}

} // namespace zul::test

#include "GuardTests.moc"
