// One attached ZUL printer: the vendor's commands, what it can be asked for, and the given operations of an update,
// which forward to FirmwareUpdate (the update), ModelFiles (the firmware files) and AlertFactory (the alerts).
//
// Unless a comment says otherwise the operations may be called from any thread, return at once, and do their work on
// the printer's command queue. Failures are not thrown: they show as missing values, log lines and alerts.
#pragma once

#include "Classes/AlertFactory.h"
#include "Classes/DeviceInfoKeys.h"
#include "Classes/FirmwareUpdate.h"
#include "Classes/ModelFiles.h"
#include "Classes/Outlets.h"
#include "Classes/QueryExchange.h"
#include "Classes/TBUSBPrinter.h"
#include "platform/foundation/OptionalText.h"

#include <array>
#include <vector>

namespace zul {

// User defaults.
inline constexpr const char* kInstallOlderFirmwareVersion = "installOlderFirmwareVersion";
inline constexpr const char* HOLVEN_ZUL_USB_SuppressPowerCycleAlert = "HOLVEN_ZUL_USB_SuppressPowerCycleAlert";

class TBUSBPrinterZUL : public TBUSBPrinter {
  public:
    static constexpr const char* kProductClassName = "TBUSBPrinterZUL";
    using StatusCompletion = std::function<void(const OptionalText& rawStatus)>;
    using TableCompletion = std::function<void(const std::vector<std::string>& values)>;
    using TBUSBPrinter::sendPrinterCommand;
    using TBUSBPrinter::TBUSBPrinter;

    // ---- creation and probe ---------------------------------------------------------------------------------------

    /// The USB vendor IDs of the product table.
    static std::set<std::uint16_t> supportedVendorIDs();
    /// What this build accepts; a run may admit more (Environment::admittedProductIDs).
    static std::set<std::uint16_t> supportedProductIDs();
    void initWithInterfaceInterface(InterfacePtr interfaceInterface, ServiceToken deviceObject) override;
    /// Continues what the saved dictionary says. Called by the initialiser, and once more after another program held
    /// the printer at its arrival. Returns at once; without a command queue it is done when it returns.
    void probeAtInit();
    /// Name of the model's picture; nullopt for an unknown product.
    OptionalText image() const override;
    /// The name that keys the digests; a subclass that overrides it means to be another product.
    virtual std::string className() const { return kProductClassName; }

    // ---- frame and reply ------------------------------------------------------------------------------------------

    /// The command's text; nullopt for numbers that name no command.
    static OptionalText stringForCommandCode(std::uint32_t code);
    /// sendPrinterCommand:withPayload:  Builds one frame and writes it. Command queue, interface open. The write's
    /// result is in _writeStatus.
    void sendPrinterCommand(std::uint32_t code, const Data* payload) ZUL_REQUIRES_ROLE(commandQueueRole);
    /// Reads one reply: its text with the carriage return replaced by NUL. Command queue. nullopt on failure.
    std::optional<Data> printerReply() override ZUL_REQUIRES_ROLE(commandQueueRole);
    /// errorWithString:code:  The protocol's one error sink: deliberately without effect. Tests listen here. Command
    /// queue.
    virtual void errorWithString(const std::string& message, int code);
    /// Both report to that sink. Command queue.
    void reportInternalError(int number) override;
    void reportCommunicationError() override;

    // ---- status and device info ------------------------------------------------------------------------------------

    /// The operator's text of a raw status, in English.
    static std::string stringForVKStatusString(const OptionalText& rawStatus);
    /// Asks for the status; completion gets the raw text on the command queue, and is not called when the interface
    /// cannot be opened or no reply came, not even to the question once more.
    void getPrinterStatus(StatusCompletion completion);
    /// getPrinterStatus without a completion.
    void updatePrinterStatus();
    /// getPrinterStatus with a choice of what a missing answer leads to.
    void askForStatus(IfMissing ifMissing, StatusCompletion completion);

    /// Asks for the version and stores it; an answer that is not valid text leaves the earlier one.
    void getPrinterFirmwareVersion();
    /// Command queue with the interface open: the version at once, nullopt if the printer does not answer.
    OptionalText inlineGetFirmwareString() ZUL_REQUIRES_ROLE(commandQueueRole);
    /// The same with a choice of what a missing answer leads to. Command queue with the interface open.
    VersionAnswer askVersionInline(IfMissing ifMissing) ZUL_REQUIRES_ROLE(commandQueueRole);
    /// Asks the operator about a loader that no update of this run has ordered, and uploads the image if it is wanted.
    /// Any queue.
    void loaderFoundUnexpectedly();
    /// Asks for the serial number and stores it; "NULL" where the printer does not answer.
    void updatePrinterSerialNumber();
    /// Both ask for all tables of the model and store the answers. The completion (may be empty) gets all values on the
    /// command queue, in the order asked. The interface must be open.
    void getPrinterColorTableVersion(TableCompletion completion);
    void getPrinterColorTableChecksum(TableCompletion completion);
    /// Asks for both while tables are being written. Command queue with the interface open.
    void refreshTables();
    /// Asks for the number of prints and stores it as text.
    void getPrinterLifetimeCounter();
    /// Clears one counter: 'A', 'B' or 'M'; any other letter sends nothing.
    void resetCounter(char letter);
    void resetCounterA() { resetCounter('A'); }
    void resetCounterB() { resetCounter('B'); }
    void resetCounterM() { resetCounter('M'); }
    /// The payloads of four bytes that name the media in questions for a table.
    static Data commandPayloadForMediaSD();
    static Data commandPayloadForMediaPP();
    /// Asks for everything that the model can be asked for. Reports events::QuestionsEnded. Command queue.
    void getDeviceCustomInfo() override ZUL_REQUIRES_ROLE(commandQueueRole);

    /// Stores an answer's text under key in deviceInfoDict, with change notices of key (or of noticeKey) around it, on
    /// the calling thread; nullopt removes the key.
    void storeFact(const std::string& key, const OptionalText& value);
    void storeFact(const std::string& key, const OptionalText& value, const std::string& noticeKey);
    /// A text of deviceInfoDict, nullopt while it is not known; those below are named by their keys. Any thread.
    OptionalText fact(const char* key) const { return _deviceInfoDict->string(key); }
    OptionalText colorTableVersion() const { return fact(HOLVEN_TBPrinterColorTableVersion); }
    OptionalText colorTableVersion600() const { return fact(HOLVEN_TBPrinterColorTableVersion600); }
    OptionalText colorTableVersion610() const { return fact(HOLVEN_TBPrinterColorTableVersion610); }
    OptionalText colorTableVersion620() const { return fact(HOLVEN_TBPrinterColorTableVersion620); }
    OptionalText colorTableVersion300HD() const { return fact(HOLVEN_TBPrinterColorTableVersion300HD); }
    OptionalText colorTableVersion600HD() const { return fact(HOLVEN_TBPrinterColorTableVersion600HD); }
    OptionalText colorTableVersion610HD() const { return fact(HOLVEN_TBPrinterColorTableVersion610HD); }
    OptionalText colorTableVersion620HD() const { return fact(HOLVEN_TBPrinterColorTableVersion620HD); }
    OptionalText colorTableChecksum300() const { return fact(HOLVEN_TBPrinterColorTableChecksum300); }
    OptionalText colorTableChecksum600() const { return fact(HOLVEN_TBPrinterColorTableChecksum600); }
    OptionalText colorTableChecksum610() const { return fact(HOLVEN_TBPrinterColorTableChecksum610); }
    OptionalText colorTableChecksum620() const { return fact(HOLVEN_TBPrinterColorTableChecksum620); }
    OptionalText colorTableChecksum300HD() const { return fact(HOLVEN_TBPrinterColorTableChecksum300HD); }
    OptionalText colorTableChecksum600HD() const { return fact(HOLVEN_TBPrinterColorTableChecksum600HD); }
    OptionalText colorTableChecksum610HD() const { return fact(HOLVEN_TBPrinterColorTableChecksum610HD); }
    OptionalText colorTableChecksum620HD() const { return fact(HOLVEN_TBPrinterColorTableChecksum620HD); }
    OptionalText lifetimeCounter() const { return fact(HOLVEN_TBPrinterLifetimeCounter); }

    // ---- USB serial-number setting --------------------------------------------------------------------------------

    /// Whether the model and its firmware have the setting; the others are sent nothing about it.
    bool hasISerialSupport() const;
    /// Asks the printer for the setting and stores the answer, with change notices of "usbISerialString".
    void getUSB_ISerial();
    /// Writes the setting to the printer, compares with nothing, raises no alert; then asks for it again. Without an
    /// open interface it writes nothing.
    void setUSB_ISerial(bool enabled);
    /// Compares with the stored setting: writes and raises what setEnabledUSBSerial does if it differs, and nothing if
    /// it does not. What the menus call.
    void setUsbISerial(bool enabled);
    /// The stored setting; false while it is not known.
    bool usbISerial() const;
    /// "Unavailable", "Enabled" or "Disabled".
    std::string usbISerialString() const;
    /// Writes the setting to the printer with setUSB_ISerial and does not compare it first; then raises the power-cycle
    /// alert, unless the device already shows what was set, and deletes the model's print queues. If the interface
    /// cannot be opened it writes nothing and raises the busy alert.
    void setEnabledUSBSerial(bool enabled);
    /// Runs the shell command that deletes the model's print queues, and waits for it.
    void deleteExistingPrinterQueues();

    // ---- firmware archive -----------------------------------------------------------------------------------------

    /// Checks the model's files against their digests. Any thread; reads the files there. True when the last file that
    /// could be read matched.
    bool verifyFirmwareArchive() { return _files.verify(); }
    /// verifyBlob:  The 66-character keyed digest; nullopt for empty data.
    OptionalText verifyBlob(const Data& data) const;
    /// The same with the product's own name as key, for programs that make digest files.
    static OptionalText digestOfBlob(const Data& data);
    /// Two lower-case hexadecimal digits per byte.
    static std::string asciiHexForData(const Data& data);
    /// Stores the list; at once when on the main queue, else at once as well and once more with notices from there.
    void setFilenames(const std::vector<std::string>& filenames) { _files.setNames(filenames); }
    /// The firmware file, padded: the bytes that were verified last, or the file as it is now where no check of this
    /// run has matched. Null when it cannot be read. Any thread.
    SharedData firmwareBlob() { return _files.image(); }
    /// A text of deviceInfoDict as padded bytes; nullopt if there is none.
    std::optional<Data> firmwareBlobForKey(const std::string& key);
    /// The version in the archive ("VK18DUP 1.40PRN"); nullopt for an unknown product.
    OptionalText newFirmwareVersion() { return _files.offeredVersion(); }
    /// The numbers in the version in the archive and in the printer's (1.40); 0 without one.
    double availableFirmwareVersion() { return _files.offeredVersionNumber(); }
    double installedFirmwareVersion() const { return _files.installedVersionNumber(); }
    /// The names of the model's colour tables, in the order in which they are written.
    std::vector<std::string> colorTableNames() const { return _files.tableNames(); }
    /// The table's bytes, from where firmwareBlob has its own; never padded. Null when it cannot be read. Any thread.
    SharedData paddedColorDataForVersion(const std::string& name) const { return _files.table(name); }
    /// The version that the archive has for this model and whether its file can be used; nullopt for an unknown
    /// product. Reads the firmware file unless it is known already. Any thread.
    std::optional<FirmwareOffer> firmwareOffer() const;
    /// What keeps an update from ending well, before it is begun; empty when all is well. Reads the model's files
    /// unless they are known already. Any thread.
    std::vector<ArchiveProblem> archiveProblems() const;
    /// Ends the wait for "Idle" if there is one; the commands that would follow it are not sent. Any thread.
    void supersedeWait() { _update.supersedeWait(); }

    // ---- update ---------------------------------------------------------------------------------------------------

    /// The operator's action. Main queue.
    void updateFirmware() { _update.start(); }
    /// Version and readiness checks, then the last question. Main queue.
    void proceedWithUpdateWhenReady() { _update.proceedWhenReady(); }
    /// The last question. Any thread.
    void updateFirmwareReady() { _update.confirm(); }
    /// First half: into the loader. Main queue.
    void updateFirmwareAndColorTables() { _update.enterLoader(); }
    /// Second half: the image.
    void uploadFirmware() { _update.uploadImage(); }
    /// After the second restart: the colour tables and the report.
    void finishFirmwareUpdate() { _update.finish(); }
    /// updateColorTables:  The completion gets whether at least one table was sent; not called when the archive is
    /// damaged, the interface cannot be opened or the wait was given up.
    void updateColorTables(std::function<void(bool anyTable)> completion) {
        _update.updateTables(std::move(completion));
    }
    /// Polls every 0.5 s until the printer shows the status; no limit. Command queue. False only when the wait was
    /// superseded (the printer has left, or the operator started an upload): the caller then sends nothing more.
    [[nodiscard]] bool waitForPrinterStatusCode(const std::string& code) ZUL_REQUIRES_ROLE(commandQueueRole) {
        return _update.waitForStatus(code);
    }
    /// Shows text in place of the printer's status.
    void setOverridePrinterStatus(const std::string& text) { _update.overrideStatus(text); }
    /// Stores the progress on the main queue and saves the device information.
    void setFirmwareUpdateStatus(int progress) { _update.saveProgress(progress); }

    // ---- alerts ---------------------------------------------------------------------------------------------------

    /// showAlertWithTitle:message:buttonTitles:completion:  An alert of no kind that this program knows; without a
    /// title or buttons they are "Alert" and "OK". completion gets the answer on the main queue. Any thread.
    void showAlertWithTitle(const OptionalText& title, const OptionalText& message,
                            const std::optional<std::vector<std::string>>& buttonTitles,
                            std::function<void(int answer)> completion);
    /// Shows an alert of alertFactory(), unless it has neither title nor message. Any thread.
    void showCustomAlertWithTitle(AlertDescription alert);
    const AlertFactory& alertFactory() const { return _alertFactory; }
    /// An earlier form of showAlertWithTitle that nothing calls: completes the alert on the main queue.
    void old_showAlertWithTitle(const OptionalText& title, const OptionalText& message,
                                const std::optional<std::vector<std::string>>& buttonTitles,
                                std::function<void(int answer)> completion);
    /// Shows the warning before every update, with its check box. Any thread.
    void ShowRZ7Warning() { _update.askForAgreement(); }
    /// The texts of that warning: for the model VK-RZ7, and for all others.
    std::string RZ7UpdateWarningText() const;
    std::string genericUpdateWarningText();
    /// Only a check box counts as sender.
    void setToggleAgreed(const CheckBox* sender);
    /// The state of the check box "I Agree", with change notices. Any thread.
    bool customerDidAgree() const { return _update.isAgreed(); }
    /// Asks for a power cycle, unless the device already shows what was set. Application-modal.
    void showPowerCycleAlert();
    /// Reports that the USB serial-number setting could not be changed. Application-modal.
    void showPrinterBusyAlert();

  protected:
    void continueProbe() override ZUL_REQUIRES_ROLE(commandQueueRole);

  private:
    enum class TableFact { version, checksum };
    void queueQuery(Question question, ReplyBlock reply);
    OptionalText versionFromReply(const Data& reply) const;
    void queryAtOpenInterface(Question question, ReplyBlock reply);
    bool mayAsk() const;
    bool askEverything() ZUL_REQUIRES_ROLE(commandQueueRole);
    void queryTables(TableFact which, TableCompletion completion, IfMissing ifMissing);
    OptionalText storeTableReply(const char* key, const std::optional<Data>& reply) ZUL_REQUIRES_ROLE(commandQueueRole);
    void handleStatusReply(const std::optional<Data>& reply, const StatusCompletion& completion)
        ZUL_REQUIRES_ROLE(commandQueueRole);
    void handleISerialReply(const std::optional<Data>& reply) ZUL_REQUIRES_ROLE(commandQueueRole);
    void probeKnownPrinter() ZUL_REQUIRES_ROLE(commandQueueRole);
    std::string localized(const char* key) const;
    void postAlert(AlertDescription alert);

    // Of the command queue.
    QueryExchange _exchange ZUL_GUARDED_BY_ROLE(commandQueueRole){*this, _channel, _transferStatus};
    bool _isProbeOwed ZUL_GUARDED_BY_ROLE(commandQueueRole) = false; // it found another program on the printer

    // Any thread.
    const AlertFactory _alertFactory{*this};
    ModelFiles _files{*this};
    FirmwareUpdate _update{*this, _exchange, _files};
};

} // namespace zul
