// What a printer can be asked for, and where the answers are kept. Requests run one after another on the command queue;
// answers are stored there, with change notices.
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
enum class Media { none, SD, PP };
} // namespace

// One table of a model: how it is asked for, where the answer is kept, how it is logged.
struct TBUSBPrinterZUL::TableQuery {
    std::uint32_t command;
    Media media;
    const char* key;
    const char* logFormat;
};

// clang-format off
std::vector<TBUSBPrinterZUL::TableQuery> TBUSBPrinterZUL::versionPlan() const {
    switch (productNumber()) {
    case kProductVK14: case kProductVK18: case kProductVKRZ7: case kProductVK18DUP:
        return {{21, Media::none, HOLVEN_TBPrinterColorTableVersion, "printer color table version: %s"}};
    case kProductVK26:
        return {{26, Media::none, HOLVEN_TBPrinterColorTableVersion610, "printer color table version 610: %s"},
                {25, Media::none, HOLVEN_TBPrinterColorTableVersion600, "printer color table version 600: %s"},
                {24, Media::none, HOLVEN_TBPrinterColorTableVersion,    "printer color table version 300: %s"}};
    case kProductVK28:
        return {{27, Media::SD, HOLVEN_TBPrinterColorTableVersion620,   "printer color table version 620: %s"},
                {26, Media::SD, HOLVEN_TBPrinterColorTableVersion610,   "printer color table version 610: %s"},
                {25, Media::SD, HOLVEN_TBPrinterColorTableVersion600,   "printer color table version 600: %s"},
                {24, Media::SD, HOLVEN_TBPrinterColorTableVersion,      "printer color table version 300: %s"},
                {27, Media::PP, HOLVEN_TBPrinterColorTableVersion620HD, "printer color table version 620HD: %s"},
                {26, Media::PP, HOLVEN_TBPrinterColorTableVersion610HD, "printer color table version 610HD: %s"},
                {25, Media::PP, HOLVEN_TBPrinterColorTableVersion600HD, "printer color table version 600HD: %s"},
                {24, Media::PP, HOLVEN_TBPrinterColorTableVersion300HD, "printer color table version 300HD: %s"}};
    default: return {};
    }
}

std::vector<TBUSBPrinterZUL::TableQuery> TBUSBPrinterZUL::checksumPlan() const {
    switch (productNumber()) {
    case kProductVK14: case kProductVK18: case kProductVKRZ7: case kProductVK18DUP:
        return {{23, Media::none, HOLVEN_TBPrinterColorTableChecksum300, "printer color table checksum: %s"}};
    case kProductVK26:
        return {{30, Media::none, HOLVEN_TBPrinterColorTableChecksum610, "printer color table CHECKSUM 610: %s"},
                {29, Media::none, HOLVEN_TBPrinterColorTableChecksum600, "printer color table CHECKSUM 600: %s"},
                // Labelled as a version: log readers know this line.
                {28, Media::none, HOLVEN_TBPrinterColorTableChecksum300, "printer color table version 300: %s"}};
    case kProductVK28:
        return {{31, Media::SD, HOLVEN_TBPrinterColorTableChecksum620,   "printer color table CHECKSUM 620: %s"},
                {30, Media::SD, HOLVEN_TBPrinterColorTableChecksum610,   "printer color table CHECKSUM 610: %s"},
                {29, Media::SD, HOLVEN_TBPrinterColorTableChecksum600,   "printer color table CHECKSUM 600: %s"},
                {28, Media::SD, HOLVEN_TBPrinterColorTableChecksum300,   "printer color table CHECKSUM 300: %s"},
                {31, Media::PP, HOLVEN_TBPrinterColorTableChecksum620HD, "printer color table CHECKSUM 620HD: %s"},
                {30, Media::PP, HOLVEN_TBPrinterColorTableChecksum610HD, "printer color table CHECKSUM 610HD: %s"},
                {29, Media::PP, HOLVEN_TBPrinterColorTableChecksum600HD, "printer color table CHECKSUM 600HD: %s"},
                {28, Media::PP, HOLVEN_TBPrinterColorTableChecksum300HD, "printer color table CHECKSUM 300HD: %s"}};
    default: return {};
    }
}
// clang-format on

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

// ---- status ---------------------------------------------------------------------------------------------------------

std::string TBUSBPrinterZUL::stringForVKStatusString(const Text& rawStatus) {
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
    const Text rawStatus = stringFromNulTerminatedUTF8(*reply);
    emit(events::StatusRead{.rawStatus = rawStatus});
    setPrinterStatus(stringForVKStatusString(rawStatus));
    if (completion) completion(rawStatus);
}

// ---- single facts ---------------------------------------------------------------------------------------------------

void TBUSBPrinterZUL::getPrinterFirmwareVersion() {
    queryAtOpenInterface({.command = kCommandFirmwareVersion},
                         [self = sharedSelf<TBUSBPrinterZUL>()](const std::optional<Data>& reply) {
                             if (!reply || reply->empty()) return;
                             const Text version = self->versionFromReply(*reply);
                             if (!version) return; // not text: the earlier value stays
                             self->storeFact(HOLVEN_TBPrinterFirmwareVersion, version);
                             logText("printer firmware version: %s", *version);
                         });
}

TBUSBPrinter::Text TBUSBPrinterZUL::inlineGetFirmwareString() {
    return askVersionInline(IfMissing::askAgain).version;
}

TBUSBPrinterZUL::VersionAnswer TBUSBPrinterZUL::askVersionInline(IfMissing ifMissing) {
    if (!mayAsk()) return {};
    const auto reply = _exchange.ask({.command = kCommandFirmwareVersion, .ifMissing = ifMissing});
    if (!reply || reply->empty()) return {};
    return {true, versionFromReply(*reply)};
}

TBUSBPrinter::Text TBUSBPrinterZUL::versionFromReply(const Data& reply) const {
    const Text text = stringFromNulTerminatedUTF8(reply);
    const Text version = text ? Text(trimmedWhitespaceAndNewlines(*text)) : std::nullopt;
    emit(events::FirmwareVersionRead{.version = version});
    return version;
}

void TBUSBPrinterZUL::updatePrinterSerialNumber() {
    queryAtOpenInterface(
        {.command = kCommandSerialNumber}, [self = sharedSelf<TBUSBPrinterZUL>()](const std::optional<Data>& reply) {
            const Text serial = reply && !reply->empty() ? stringFromNulTerminatedUTF8(*reply) : Text(kMissingText);
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
                             Text counter = stringFromNulTerminatedUTF8(*reply);
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
    queryTables(versionPlan(), std::move(completion), IfMissing::askAgain);
}

void TBUSBPrinterZUL::getPrinterColorTableChecksum(TableCompletion completion) {
    queryTables(checksumPlan(), std::move(completion), IfMissing::askAgain);
}

// Between tables the answers only refresh what is shown, and a printer that is at work may leave them out.
void TBUSBPrinterZUL::refreshTables() {
    queryTables(versionPlan(), {}, IfMissing::dropLateReplies);
    queryTables(checksumPlan(), {}, IfMissing::dropLateReplies);
}

// The interface is not opened here: whoever asks for tables has it open already.
void TBUSBPrinterZUL::queryTables(const std::vector<TableQuery>& plan, TableCompletion completion,
                                  IfMissing ifMissing) {
    const auto results = std::make_shared<std::vector<std::string>>();
    const std::size_t expected = plan.size();
    const Data payloadSD = commandPayloadForMediaSD();
    const Data payloadPP = commandPayloadForMediaPP();
    for (const TableQuery& query : plan) {
        std::optional<Data> payload;
        if (query.media == Media::SD) payload = payloadSD;
        if (query.media == Media::PP) payload = payloadPP;
        queueQuery({.command = query.command, .payload = std::move(payload), .ifMissing = ifMissing},
                   [self = sharedSelf<TBUSBPrinterZUL>(), query, results, expected,
                    completion](const std::optional<Data>& reply) {
                       self->assertOnCommandQueue();
                       self->storeTableReply(query, reply, results);
                       if (results->size() == expected && completion) completion(*results);
                   });
    }
}

void TBUSBPrinterZUL::storeTableReply(const TableQuery& query, const std::optional<Data>& reply,
                                      const std::shared_ptr<std::vector<std::string>>& results) {
    Text value = kMissingText;
    if (reply && !reply->empty()) value = stringFromNulTerminatedUTF8(*reply);
    if (value) {
        value = trimmedWhitespaceAndNewlines(*value);
        storeFact(query.key, value);
    } else {
        value = fact(query.key); // not text: the earlier value stays, and counts
    }
    emit(events::TableFactRead{.key = query.key, .value = reply && !reply->empty() ? value : std::nullopt});
    logText(query.logFormat, textOrNull(value));
    results->push_back(value.value_or(kMissingText));
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
    getPrinterStatus([this, &isComplete](const Text& rawStatus) { // inline: this is the command queue
        if (rawStatus == kLoaderStatus) return;                   // a loader answers nothing else
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
