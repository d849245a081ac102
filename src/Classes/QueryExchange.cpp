// Asking, judging answers, and keeping questions and answers in step. Called by the printer that owns the exchange, on
// its command queue; a printer without a queue calls it on main.
#include "Classes/QueryExchange.h"

#include "Classes/CommandChannel.h"
#include "Classes/PrinterEvents.h"
#include "Classes/StatusCodeNames.h"
#include "Classes/TBUSBPrinterZUL.h"
#include "platform/dispatch/Clock.h"
#include "platform/foundation/Data.h"
#include "platform/foundation/Format.h"
#include "platform/usb/IOReturn.h"
#include "protocol/ReplyShapes.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace zul {

namespace {

using std::chrono::seconds;

// A reply may come after the pipe was emptied. For so long the pipe is emptied again before a question, as often as a
// second has passed since the last time.
constexpr auto kLatestReply = seconds(30);
constexpr auto kSettledFor = seconds(1);
// Without a queue the main queue waits for the answers: no longer than for one.
constexpr auto kLongestRoundOnMain = seconds(5);
// A printer that is still there so long after the order to restart did not take it.
constexpr auto kLongestRestart = std::chrono::minutes(5);

// The number of the internal error that support staff know.
constexpr int kReplyTooLong = 2112;

std::optional<std::string> replyText(const std::optional<Data>& reply) {
    return reply ? stringFromNulTerminatedUTF8(*reply) : std::nullopt;
}

} // namespace

bool QueryExchange::hasQueue() const {
    return _printer.printerCommandQueue() != nullptr;
}

Clock::TimePoint QueryExchange::now() const {
    return _printer.environment().clock.now();
}

// ---- asking ---------------------------------------------------------------------------------------------------------

void QueryExchange::begin(const Question& question) {
    dropLateReplies();
    send(question);
}

std::optional<Data> QueryExchange::ask(const Question& question) {
    _printer.assertOnCommandQueue();
    begin(question);
    return accept(question, _printer.printerReply());
}

void QueryExchange::send(const Question& question) {
    _printer.assertOnCommandQueue();
    _printer.sendPrinterCommand(question.command, question.payload ? &*question.payload : nullptr);
    // The main queue does not wait for an answer to what was not taken.
    _isUnsent = !hasQueue() && _status.write != kIOReturnSuccess;
}

std::optional<Data> QueryExchange::readReply() {
    _fault = ReplyFault::missing;
    if (std::exchange(_isUnsent, false)) {
        _printer.emit(events::ReplyMissing{.code = _status.write});
        return std::nullopt;
    }
    CommandChannel::Reply reply = _channel.readReply();
    _fault = reply.fault;
    if (reply.isTooLong) _printer.reportInternalError(kReplyTooLong);
    return std::move(reply.body);
}

void QueryExchange::orderRestart(std::uint32_t command, const Data* payload) {
    _printer.assertOnCommandQueue();
    _printer.sendPrinterCommand(command, payload);
    if (_status.write == kIOReturnSuccess) _restartOrderedAt = now();
}

// ---- rounds on the main queue ---------------------------------------------------------------------------------------

bool QueryExchange::mayAsk() const {
    if (hasQueue() || !_isInRound) return true;
    return !_isRoundOver && now() - _roundBegan < kLongestRoundOnMain;
}

void QueryExchange::beginArrivalOnMain() {
    beginRound();
    _isAttaching = true;
    _printer.environment().mainQueue.async([this, weak = _printer.weak_from_this()] {
        if (const auto printer = weak.lock()) _isAttaching = false;
    });
}

void QueryExchange::beginRound() {
    if (_isAttaching) return;
    _isRoundOver = false;
    _roundBegan = now();
}

bool QueryExchange::setInRound(bool isInRound) {
    return std::exchange(_isInRound, isInRound);
}

// ---- judging answers ------------------------------------------------------------------------------------------------

ReplyFault QueryExchange::faultOf(const Question& question, const std::optional<Data>& reply) const {
    if (_fault != ReplyFault::none) return _fault;
    return fitsShape(replyText(reply), replyShapeFor(question.command)) ? ReplyFault::none : ReplyFault::wrongShape;
}

std::optional<Data> QueryExchange::accept(const Question& question, const std::optional<Data>& reply) {
    const ReplyFault fault = faultOf(question, reply);
    if (fault == ReplyFault::none || isLeaving()) return reply;
    const bool isMissing = fault == ReplyFault::missing;
    if (isMissing) {
        if (question.ifMissing == IfMissing::isExpected) return reply;
        noteMissingAnswer();
        if (!hasQueue()) return reply;
    }
    if (!resynchronize()) {
        reportUnusable();
        return std::nullopt;
    }
    if (isMissing && question.ifMissing == IfMissing::dropLateReplies) return reply;
    return askAgain(question, fault, reply);
}

std::optional<Data> QueryExchange::askAgain(const Question& question, ReplyFault firstFault,
                                            const std::optional<Data>& first) {
    _printer.assertOnCommandQueue();
    send(question);
    const std::optional<Data> second = _printer.printerReply();
    const ReplyFault fault = faultOf(question, second);
    if (fault == ReplyFault::none) {
        if (firstFault != ReplyFault::missing) ++_slips;
        return second;
    }
    if (fault == ReplyFault::missing) {
        noteMissingAnswer();
    } else {
        if (fault != ReplyFault::wrongShape) resynchronize(); // the rest of it is still to come
        // The pipe was empty: this is what the printer answers.
        if (fault == firstFault && replyText(first) == replyText(second)) return second;
    }
    reportUnusable();
    return std::nullopt;
}

void QueryExchange::noteMissingAnswer() {
    ++_misses;
    _missedAt = now();
    _isRoundOver = true;
}

void QueryExchange::reportUnusable() const {
    logText("the printer at %s does not answer as it should; switch it off and on if that stays so",
            _printer.locationText());
    _printer.emit(events::AnswersFailed{});
}

// A printer that is about to leave is not disturbed: it may be programming its flash, also on behalf of the object of
// its other interface.
bool QueryExchange::isLeaving() const {
    return isRestartExpected() || _status.read == kIOReturnNoDevice || _printer.isReleased() ||
           _printer.environment().deviceObjects->isUpdatedElsewhere(_printer.keyUSBdevice(), _printer.creationToken());
}

bool QueryExchange::isRestartExpected() const {
    return _restartOrderedAt && now() - *_restartOrderedAt < kLongestRestart;
}

// ---- keeping answers in step ----------------------------------------------------------------------------------------

bool QueryExchange::resynchronize() {
    const IOReturn code = _channel.resynchronize();
    _resynchronizedAt = now();
    if (code != kIOReturnSuccess) {
        logText("the printer's answers could not be put in step (%s)", strForIOReturn(code));
        return false;
    }
    logText("the printer's answers were out of step; they have been put in step again");
    _printer.emit(events::Resynchronized{});
    return true;
}

void QueryExchange::dropLateReplies() {
    if (!_missedAt || isRestartExpected()) return;
    const Clock::TimePoint moment = now();
    if (_resynchronizedAt && moment - *_resynchronizedAt < kSettledFor) return;
    resynchronize();
    if (moment - *_missedAt >= kLatestReply) _missedAt.reset();
}

} // namespace zul
