// Sends queries, judges the replies, and makes sure that each reply belongs to its query. Called by the printer that
// owns the exchange, on its command queue; a printer without a queue calls it on main.
#include "Classes/QueryExchange.h"

#include "Classes/CommandChannel.h"
#include "Classes/PrinterEvents.h"
#include "Classes/StatusCodeNames.h"
#include "Classes/TBUSBPrinterZUL.h"
#include "platform/dispatch/Clock.h"
#include "platform/dispatch/QueueRole.h"
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

// A reply may come after the pipe was emptied. For kLatestReply after a missing one the pipe is emptied again before a
// query, if kSettledFor has passed since the last time.
constexpr auto kLatestReply = seconds(30);
constexpr auto kSettledFor = seconds(1);
// Without a queue the main queue waits for the replies: no longer than for one, whose time-out this is.
constexpr auto kLongestRoundOnMain = seconds(5);
// A printer that is still attached after this time did not take the order to restart.
constexpr auto kLongestRestart = std::chrono::minutes(5);

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

std::optional<Data> QueryExchange::ask(const Question& question) {
    dropLateReplies();
    return accept(question, sendAndRead(question));
}

QueryExchange::Reply QueryExchange::sendAndRead(const Question& question) {
    // The main queue does not wait for an answer to what was not taken.
    Reply reply = _channel.query(question.command, question.payload ? &*question.payload : nullptr,
                                 hasQueue() ? IfNotSent::readReply : IfNotSent::giveUp);
    if (reply.fault == ReplyFault::none && !fitsShape(replyText(reply.body), replyShapeFor(question.command))) {
        reply.fault = ReplyFault::wrongShape;
    }
    return reply;
}

void QueryExchange::orderRestart(std::uint32_t command, const Data* payload) {
    if (_channel.sendFrame(command, payload)) _restartOrderedAt = now();
}

// ---- rounds on the main queue ---------------------------------------------------------------------------------------

bool QueryExchange::mayAsk() const {
    if (hasQueue() || !_isInRound) return true;
    // The limit also ends a round of late but valid replies.
    return !_isRoundOver && now() - _roundBegan < kLongestRoundOnMain;
}

void QueryExchange::beginArrivalOnMain() {
    assertOnMainQueue();
    beginRound();
    _isAttaching = true;
    // this belongs to the printer, which the lock keeps alive. The controller's probe runs in the same block of the
    // main queue as the initialiser, and so before this one.
    _printer.environment().mainQueue.async([this, weak = _printer.weak_from_this()] {
        assertOnMainQueue();
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

std::optional<Data> QueryExchange::accept(const Question& question, Reply reply) {
    if (reply.fault == ReplyFault::none || isLeaving()) return std::move(reply.body);
    const bool isMissing = reply.fault == ReplyFault::missing;
    if (isMissing) {
        if (question.ifMissing == IfMissing::isExpected) return std::nullopt;
        noteMissingAnswer();
        if (!hasQueue()) return std::nullopt;
    }
    if (!resynchronize()) {
        reportUnusable();
        return std::nullopt;
    }
    if (isMissing && question.ifMissing == IfMissing::dropLateReplies) return std::nullopt;
    return askAgain(question, reply);
}

std::optional<Data> QueryExchange::askAgain(const Question& question, const Reply& first) {
    Reply second = sendAndRead(question);
    if (second.fault == ReplyFault::none) {
        // The first reply was that to an earlier query: earlier values of this round may be wrong, too.
        if (first.fault != ReplyFault::missing) ++_slips;
        return std::move(second.body);
    }
    if (second.fault == ReplyFault::missing) {
        noteMissingAnswer();
    } else {
        if (second.fault != ReplyFault::wrongShape) resynchronize(); // the rest of it is still to come
        // The pipe was empty: this is what the printer answers.
        if (second.fault == first.fault && replyText(first.body) == replyText(second.body)) {
            return std::move(second.body);
        }
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

// ---- emptying the pipe ----------------------------------------------------------------------------------------------

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
