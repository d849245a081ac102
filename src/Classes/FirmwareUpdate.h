// The update of one printer: its checks and questions, its halves with the restarts between them, and its colour
// tables. Each restart gives a new printer object with a new update; the progress in the device information is how that
// one knows what is left to do. The printer's own operations of an update forward to this.
//
// The operator's actions and answers arrive on the main queue. Everything that talks to the printer runs on its command
// queue; a printer without one gets no update. Failures are not thrown: they show as events, log lines and alerts.
#pragma once

#include "Classes/ModelFiles.h"
#include "platform/usb/IOReturn.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace zul {

class QueryExchange;
class TBUSBPrinterZUL;
enum class AlertKind;
struct CheckBox;

/// Values of "deviceFirmwareStatus".
enum class UpdateProgress : std::int64_t { waitingForLoader = 1, waitingForFirmware = 2, finished = 3 };

/// What the question for the version brought: no answer, an answer that is not valid text, or a version.
struct VersionAnswer {
    bool isAnswered = false;
    std::optional<std::string> version = {};
};

class FirmwareUpdate {
  public:
    /// All are the printer's own and outlive the update. exchange is used on the command queue only.
    FirmwareUpdate(TBUSBPrinterZUL& printer, QueryExchange& exchange, ModelFiles& files)
        : _printer(printer), _exchange(exchange), _files(files) {}

    // ---- before ---------------------------------------------------------------------------------------------------

    /// The operator's action: verifies the files, then asks for the agreement. Main queue.
    void start();
    /// Shows the warning with its check box "I Agree"; "Continue" leads to proceedWhenReady(). Any thread.
    void askForAgreement();
    /// Whether the check box is ticked: the key "customerDidAgree" of the printer. Read on any thread, set on main.
    bool isAgreed() const { return _isAgreed; }
    void setAgreed(bool isAgreed);
    /// Checks the versions, then on the command queue whether the printer is ready, then confirm(). Main queue.
    void proceedWhenReady();
    /// The last question; the answer leads to enterLoader(). Any thread.
    void confirm();

    // ---- the halves -----------------------------------------------------------------------------------------------

    /// First half: makes the printer restart into its loader. Main queue.
    void enterLoader();
    /// Second half: verifies the files and sends the image. Any thread.
    void uploadImage();
    /// After the second restart: the colour tables, then the report. Command queue.
    void finish();
    /// Clears the printer's colour tables and writes those of the archive. completion (may be empty) gets on the
    /// command queue whether there was at least one; it is not called when the archive is damaged, the interface cannot
    /// be opened or the wait for "Idle" was given up. Any thread.
    void updateTables(std::function<void(bool anyTable)> completion);

    // ---- after a restart ------------------------------------------------------------------------------------------

    /// The progress of the device's update; nullopt if none is pending. Any thread.
    std::optional<std::int64_t> progress() const;
    /// Continues the update of this progress. Command queue with the interface open, which it closes.
    void resume(std::int64_t progress);

    // ---- for several halves ---------------------------------------------------------------------------------------

    /// Marks this object as the one that carries the device's update. False, and logged, while the object of the
    /// device's other interface carries one. Any thread.
    [[nodiscard]] bool claim();
    /// Asks every 0.5 s until the printer shows the status; no limit. Command queue. False only when the wait was
    /// superseded or the printer has left: the caller then sends nothing more.
    [[nodiscard]] bool waitForStatus(const std::string& code);
    /// Ends that wait if there is one. Any thread.
    void supersedeWait() { ++_waitGeneration; }
    /// Stores the progress on the main queue and saves the device information. Any thread.
    void saveProgress(int progress);
    /// Shows text in place of the printer's status. Any thread.
    void overrideStatus(const std::string& text);

  private:
    using Self = std::shared_ptr<FirmwareUpdate>;
    Self shared();
    bool isCarriedElsewhere() const;
    bool isNewerThanOffered();
    void checkReadiness(IOReturn openResult);
    void showPrinterError();
    void showDamagedFileAlert();
    std::function<void(int answer)> proceedOrDecline(AlertKind question);
    void sendEnterLoader();
    void writeImage();
    void writeTables(const std::function<void(bool)>& completion);
    void writeTable(const std::string& name);
    void report(bool anyTable);
    bool statusEquals(const std::string& code);
    void setInUpdateOnMain(bool isInUpdate);
    void setProgress(UpdateProgress progress);
    void clearProgress();
    void resumeAtLoader();
    bool isAnotherPrinter() const;
    void askAboutAnotherPrinter();
    void resumeAtFirmware(const VersionAnswer& answer);
    void storeVersion(const VersionAnswer& answer);

    TBUSBPrinterZUL& _printer;
    QueryExchange& _exchange; // command queue
    ModelFiles& _files;       // any thread

    // Atomics.
    std::atomic<bool> _isAgreed{false};
    std::atomic<int> _waitGeneration{0};
};

} // namespace zul
