// What a printer can be asked for, and where the answers are kept. Requests run one after another on the command queue;
// answers are stored there, with change notices.
#include "Classes/ColorTables.h"
#include "Classes/TBUSBPrinterZUL.h"
#include "archive/ProductTable.h"
#include "protocol/CommandFrame.h"
#include "protocol/StatusTexts.h"

#include "platform/foundation/Format.h"

#include <string_view>
#include <utility>

namespace zul {

namespace {
constexpr const char* kMissingText = "NULL"; // shown where a printer did not answer

// The question for one fact of one table, where the answer is kept, and how it is logged.
struct TableQuestion {
    Question question;
    const char* key;
    std::string logFormat;
};

std::optional<Data> payloadFor(const ColorTable& table, bool hasMedia) {
    if (!hasMedia || table.media == Media::any) return std::nullopt;
    return table.media == Media::SD ? TBUSBPrinterZUL::commandPayloadForMediaSD()
                                    : TBUSBPrinterZUL::commandPayloadForMediaPP();
}

std::string logFormatFor(const char* fact, const ColorTable& table) {
    return formatted("printer color table %s %s: ", fact, table.name) + "%s";
}

TableQuestion versionQuestion(const ColorTable& table, std::uint16_t product, IfMissing ifMissing) {
    return {{table.versionCommand, payloadFor(table, product == kProductVK28), ifMissing},
            table.versionKey,
            table.media == Media::any ? "printer color table version: %s" : logFormatFor("version", table)};
}

TableQuestion checksumQuestion(const ColorTable& table, std::uint16_t product, IfMissing ifMissing) {
    TableQuestion result{{table.checksumCommand, payloadFor(table, product == kProductVK28), ifMissing},
                         table.checksumKey,
                         logFormatFor("CHECKSUM", table)};
    if (table.media == Media::any) result.logFormat = "printer color table checksum: %s";
    // Labelled as a version: log readers know this line.
    if (product == kProductVK26 && table.number == "300") result.logFormat = logFormatFor("version", table);
    return result;
}

} // namespace

Data TBUSBPrinterZUL::commandPayloadForMediaSD() {
    return dataFromText("0001");
}
Data TBUSBPrinterZUL::commandPayloadForMediaPP() {
    return dataFromText("0003");
}

// ---- asking ---------------------------------------------------------------------------------------------------------

bool TBUSBPrinterZUL::mayAsk() const {
    if (printerCommandQueue()) return true;
    assertOnCommandQueue();
    return _exchange.mayAsk();
}

void TBUSBPrinterZUL::queueQuery(Question question, ReplyBlock reply) {
    if (!mayAsk()) return;
    performInlineOnCommandQueue(
        [self = sharedSelf<TBUSBPrinterZUL>(), question = std::move(question), reply = std::move(reply)] {
            self->assertOnCommandQueue();
            reply(self->_exchange.ask(question));
        });
}

void TBUSBPrinterZUL::queryAtOpenInterface(Question question, ReplyBlock reply) {
    openInterface([self = sharedSelf<TBUSBPrinterZUL>(), question = std::move(question),
                   reply = std::move(reply)](IOReturn code) {
        if (code == kIOReturnSuccess) self->queueQuery(question, reply);
    });
}

void TBUSBPrinterZUL::storeFact(const std::string& key, const OptionalText& value) {
    storeFact(key, value, key);
}

void TBUSBPrinterZUL::storeFact(const std::string& key, const OptionalText& value, const std::string& noticeKey) {
    const KeyChange change(*this, noticeKey);
    _deviceInfoDict->setString(key, value);
}

// ---- status ---------------------------------------------------------------------------------------------------------

std::string TBUSBPrinterZUL::stringForVKStatusString(const OptionalText& rawStatus) {
    return textForStatus(rawStatus);
}

void TBUSBPrinterZUL::updatePrinterStatus() {
    getPrinterStatus({});
}

void TBUSBPrinterZUL::getPrinterStatus(StatusCompletion completion) {
    askForStatus(IfMissing::askAgain, std::move(completion));
}

void TBUSBPrinterZUL::askForStatus(IfMissing ifMissing, StatusCompletion completion) {
    queryAtOpenInterface(
        {.command = kCommandStatus, .ifMissing = ifMissing},
        [self = sharedSelf<TBUSBPrinterZUL>(), completion = std::move(completion)](const std::optional<Data>& reply) {
            self->assertOnCommandQueue();
            self->handleStatusReply(reply, completion);
        });
}

void TBUSBPrinterZUL::handleStatusReply(const std::optional<Data>& reply, const StatusCompletion& completion) {
    if (!reply || reply->empty()) {
        logText("Received a null printer status reply ... will try again later");
        return;
    }
    const OptionalText rawStatus = stringFromNulTerminatedUTF8(*reply);
    emit(events::StatusRead{.rawStatus = rawStatus});
    // On main like every other status, so that those that are stored there are not overtaken.
    performSyncOnMainQueue([&] {
        assertOnMainQueue();
        storeFact("printerStatus", stringForVKStatusString(rawStatus));
    });
    if (completion) completion(rawStatus);
}

// ---- single values --------------------------------------------------------------------------------------------------

void TBUSBPrinterZUL::getPrinterFirmwareVersion() {
    queryAtOpenInterface({.command = kCommandFirmwareVersion},
                         [self = sharedSelf<TBUSBPrinterZUL>()](const std::optional<Data>& reply) {
                             if (!reply || reply->empty()) return;
                             const OptionalText version = self->versionFromReply(*reply);
                             if (!version) return; // not text: the earlier value stays
                             self->storeFact(HOLVEN_TBPrinterFirmwareVersion, version);
                             logText("printer firmware version: %s", *version);
                         });
}

OptionalText TBUSBPrinterZUL::inlineGetFirmwareString() {
    return askVersionInline(IfMissing::askAgain).version;
}

VersionAnswer TBUSBPrinterZUL::askVersionInline(IfMissing ifMissing) {
    if (!mayAsk()) return {};
    const auto reply = _exchange.ask({.command = kCommandFirmwareVersion, .ifMissing = ifMissing});
    if (!reply || reply->empty()) return {};
    return {true, versionFromReply(*reply)};
}

OptionalText TBUSBPrinterZUL::versionFromReply(const Data& reply) const {
    const OptionalText text = stringFromNulTerminatedUTF8(reply);
    const OptionalText version = text ? OptionalText(trimmedWhitespaceAndNewlines(*text)) : std::nullopt;
    emit(events::FirmwareVersionRead{.version = version});
    return version;
}

void TBUSBPrinterZUL::updatePrinterSerialNumber() {
    queryAtOpenInterface({.command = kCommandSerialNumber},
                         [self = sharedSelf<TBUSBPrinterZUL>()](const std::optional<Data>& reply) {
                             const OptionalText serial = reply && !reply->empty() ? stringFromNulTerminatedUTF8(*reply)
                                                                                  : OptionalText(kMissingText);
                             if (!serial) return;
                             logText("%s: %s", HOLVEN_TBPrinterSerialNumber, *serial);
                             self->storeFact(HOLVEN_TBPrinterSerialNumber, serial);
                         });
}

void TBUSBPrinterZUL::getPrinterLifetimeCounter() {
    static constexpr std::string_view kPrefix = "CL";
    queryAtOpenInterface({.command = kCommandLifetimeCounter},
                         [self = sharedSelf<TBUSBPrinterZUL>()](const std::optional<Data>& reply) {
                             if (!reply || reply->empty()) return;
                             OptionalText counter = stringFromNulTerminatedUTF8(*reply);
                             if (!counter) return;
                             if (counter->starts_with(kPrefix)) {
                                 counter = std::to_string(integerValue(counter->substr(kPrefix.size())));
                             }
                             self->storeFact(HOLVEN_TBPrinterLifetimeCounter, counter, "lifetimeCounter");
                             logText("lifetime counter value: %s", *counter);
                         });
}

// ---- colour tables --------------------------------------------------------------------------------------------------

void TBUSBPrinterZUL::getPrinterColorTableVersion(TableCompletion completion) {
    queryTables(TableFact::version, std::move(completion), IfMissing::askAgain);
}

void TBUSBPrinterZUL::getPrinterColorTableChecksum(TableCompletion completion) {
    queryTables(TableFact::checksum, std::move(completion), IfMissing::askAgain);
}

// Between tables the answers only refresh what is shown, and a printer that is at work may leave them out.
void TBUSBPrinterZUL::refreshTables() {
    queryTables(TableFact::version, {}, IfMissing::dropLateReplies);
    queryTables(TableFact::checksum, {}, IfMissing::dropLateReplies);
}

// The interface is not opened here: whoever asks for tables has it open already.
void TBUSBPrinterZUL::queryTables(TableFact which, TableCompletion completion, IfMissing ifMissing) {
    const auto results = std::make_shared<std::vector<std::string>>();
    const auto tables = colorTablesOf(productNumber());
    for (const ColorTable* const table : tables) {
        TableQuestion asked = which == TableFact::version ? versionQuestion(*table, productNumber(), ifMissing)
                                                          : checksumQuestion(*table, productNumber(), ifMissing);
        Question question = std::move(asked.question);
        queueQuery(std::move(question),
                   [self = sharedSelf<TBUSBPrinterZUL>(), key = asked.key, logFormat = std::move(asked.logFormat),
                    results, count = tables.size(), completion](const std::optional<Data>& reply) {
                       self->assertOnCommandQueue();
                       const OptionalText value = self->storeTableReply(key, reply);
                       logText(logFormat.c_str(), textOrNull(value));
                       results->push_back(value.value_or(kMissingText));
                       if (results->size() == count && completion) completion(*results);
                   });
    }
}

OptionalText TBUSBPrinterZUL::storeTableReply(const char* key, const std::optional<Data>& reply) {
    OptionalText value = kMissingText;
    if (reply && !reply->empty()) value = stringFromNulTerminatedUTF8(*reply);
    if (value) {
        value = trimmedWhitespaceAndNewlines(*value);
        storeFact(key, value);
    } else {
        value = fact(key); // not text: the earlier value stays and is used
    }
    emit(events::TableFactRead{.key = key, .value = reply && !reply->empty() ? value : std::nullopt});
    return value;
}

// ---- everything -----------------------------------------------------------------------------------------------------

void TBUSBPrinterZUL::resetCounter(char letter) {
    openInterface([self = sharedSelf<TBUSBPrinterZUL>(), letter](IOReturn code) {
        self->assertOnCommandQueue();
        if (code != kIOReturnSuccess || (letter != 'A' && letter != 'B' && letter != 'M')) return;
        const Data payload = {'C', static_cast<std::uint8_t>(letter), '\r', 0};
        self->sendPrinterCommand(kCommandCounterClear, &payload);
    });
}

void TBUSBPrinterZUL::getDeviceCustomInfo() {
    const bool isPartOfProbe = _exchange.setInRound(true);
    _exchange.beginRound();
    const unsigned misses = _exchange.misses();
    const unsigned slips = _exchange.slips();
    bool isComplete = askEverything();
    // Not every answer that belongs to another question is recognised. After a missing one the status, which is, shows
    // whether they are in step; where one was recognised, those before it are in doubt.
    if (isComplete && _exchange.misses() != misses && _exchange.slips() == slips) updatePrinterStatus();
    if (isComplete && _exchange.slips() != slips) isComplete = askEverything();
    _exchange.setInRound(isPartOfProbe);
    emit(events::QuestionsEnded{.isComplete = isComplete});
}

bool TBUSBPrinterZUL::askEverything() {
    bool isComplete = false;
    getPrinterStatus([this, &isComplete](const OptionalText& rawStatus) { // inline: this is the command queue
        if (rawStatus == kLoaderStatus) return;                           // a loader answers nothing else
        openInterface([this, &isComplete](IOReturn code) {
            if (code != kIOReturnSuccess) return;
            getPrinterFirmwareVersion();
            getPrinterLifetimeCounter();
            getPrinterColorTableVersion({});
            getPrinterColorTableChecksum({});
            updatePrinterSerialNumber();
            getUSB_ISerial();
            closeInterface(nullptr);
            isComplete = mayAsk();
        });
    });
    return isComplete;
}

} // namespace zul
