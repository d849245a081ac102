// Questions and their answers: an answer that is missing or cannot be the one to its question leads to an empty pipe
// and to the same question once more. Replies carry no mark of their question, so without that one late reply would
// shift all later ones, for this program and for the next. Command queue, with the interface open.
#include "Classes/DeviceObjects.h"
#include "Classes/ReplyShapes.h"
#include "Classes/TBUSBPrinterZUL.h"

#include "Classes/StatusCodeNames.h"
#include "platform/foundation/Format.h"

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

TBUSBPrinter::Text textOf(const std::optional<Data>& reply) {
    return reply ? stringFromNulTerminatedUTF8(*reply) : std::nullopt;
}

} // namespace

// ---- asking ---------------------------------------------------------------------------------------------------------

void TBUSBPrinterZUL::queueQuery(Question question, ReplyBlock reply) {
    if (!mayAsk()) return;
    const auto self = sharedSelf<TBUSBPrinterZUL>();
    sendPrinterCommand(
        [self, question] {
            self->assertOnCommandQueue();
            self->dropLateReplies();
            self->sendQuestion(question);
        },
        ReplyQueue::commandQueue(),
        [self, question, reply = std::move(reply)](const std::optional<Data>& answer) {
            self->assertOnCommandQueue();
            reply(self->acceptReply(question, answer));
        });
}

void TBUSBPrinterZUL::queryAtOpenInterface(Question question, ReplyBlock reply) {
    openInterface([self = sharedSelf<TBUSBPrinterZUL>(), question = std::move(question),
                   reply = std::move(reply)](IOReturn code) {
        if (code == kIOReturnSuccess) self->queueQuery(question, reply);
    });
}

std::optional<Data> TBUSBPrinterZUL::askInline(const Question& question) {
    if (!mayAsk()) return std::nullopt;
    dropLateReplies();
    sendQuestion(question);
    return acceptReply(question, printerReply());
}

void TBUSBPrinterZUL::sendQuestion(const Question& question) {
    sendPrinterCommand(question.command, question.payload ? &*question.payload : nullptr);
    // The main queue does not wait for an answer to what was not taken.
    _exchange.isUnsent = !printerCommandQueue() && writeStatus() != kIOReturnSuccess;
}

// ---- rounds on the main queue ---------------------------------------------------------------------------------------

bool TBUSBPrinterZUL::mayAsk() const {
    if (printerCommandQueue()) return true;
    assertOnCommandQueue();
    if (!_exchange.isInRound) return true;
    return !_exchange.isRoundOver && _environment.clock.now() - _exchange.roundBegan < kLongestRoundOnMain;
}

// The initialiser's probe and the controller's are one round, which ends with the main queue's block in which both run.
void TBUSBPrinterZUL::beginArrivalOnMain() {
    beginRound();
    _exchange.isAttaching = true;
    _environment.mainQueue.async([weak = std::weak_ptr(sharedSelf<TBUSBPrinterZUL>())] {
        if (const auto self = weak.lock()) {
            self->assertOnCommandQueue();
            self->_exchange.isAttaching = false;
        }
    });
}

void TBUSBPrinterZUL::beginRound() {
    if (_exchange.isAttaching) return;
    _exchange.isRoundOver = false;
    _exchange.roundBegan = _environment.clock.now();
}

// ---- judging answers ------------------------------------------------------------------------------------------------

ReplyFault TBUSBPrinterZUL::faultOf(const Question& question, const std::optional<Data>& reply) const {
    if (_exchange.fault != ReplyFault::none) return _exchange.fault;
    return fitsShape(textOf(reply), replyShapeFor(question.command)) ? ReplyFault::none : ReplyFault::wrongShape;
}

std::optional<Data> TBUSBPrinterZUL::acceptReply(const Question& question, const std::optional<Data>& reply) {
    const ReplyFault fault = faultOf(question, reply);
    if (fault == ReplyFault::none || isLeaving()) return reply;
    const bool isMissing = fault == ReplyFault::missing;
    if (isMissing) {
        if (question.ifMissing == IfMissing::isExpected) return reply;
        noteMissingAnswer();
        if (!printerCommandQueue()) return reply;
    }
    if (!resynchronize()) {
        reportUnusable();
        return std::nullopt;
    }
    if (isMissing && question.ifMissing == IfMissing::dropLateReplies) return reply;
    return askAgain(question, fault, reply);
}

std::optional<Data> TBUSBPrinterZUL::askAgain(const Question& question, ReplyFault firstFault,
                                              const std::optional<Data>& first) {
    sendQuestion(question);
    const std::optional<Data> second = printerReply();
    const ReplyFault fault = faultOf(question, second);
    if (fault == ReplyFault::none) {
        if (firstFault != ReplyFault::missing) ++_exchange.slips;
        return second;
    }
    if (fault == ReplyFault::missing) {
        noteMissingAnswer();
    } else {
        if (fault != ReplyFault::wrongShape) resynchronize(); // the rest of it is still to come
        // Nothing else was in the pipe: this is what the printer answers.
        if (fault == firstFault && textOf(first) == textOf(second)) return second;
    }
    reportUnusable();
    return std::nullopt;
}

void TBUSBPrinterZUL::noteMissingAnswer() {
    ++_exchange.misses;
    _exchange.missedAt = _environment.clock.now();
    _exchange.isRoundOver = true;
}

void TBUSBPrinterZUL::reportUnusable() {
    logText("the printer at %s does not answer as it should; switch it off and on if that stays so", locationText());
    emit(events::AnswersFailed{});
}

void TBUSBPrinterZUL::orderRestart(std::uint32_t command, const Data* payload) {
    sendPrinterCommand(command, payload);
    if (writeStatus() == kIOReturnSuccess) _exchange.restartOrderedAt = _environment.clock.now();
}

// A printer that is about to leave is not disturbed: it may be programming its flash, also on behalf of the object of
// its other interface.
bool TBUSBPrinterZUL::isLeaving() const {
    return isRestartExpected() || _readStatus == kIOReturnNoDevice || isReleased() ||
           DeviceObjects::isUpdatedElsewhere(keyUSBdevice(), creationToken());
}

bool TBUSBPrinterZUL::isRestartExpected() const {
    return _exchange.restartOrderedAt && _environment.clock.now() - *_exchange.restartOrderedAt < kLongestRestart;
}

// ---- keeping answers in step ----------------------------------------------------------------------------------------

bool TBUSBPrinterZUL::resynchronize() {
    const IOReturn code = _iInterface ? _iInterface->resynchronize(_bulkIN) : kIOReturnNoDevice;
    _exchange.resynchronizedAt = _environment.clock.now();
    if (code != kIOReturnSuccess) {
        logText("the printer's answers could not be put in step (%s)", strForIOReturn(code));
        return false;
    }
    logText("the printer's answers were out of step; they have been put in step again");
    emit(events::Resynchronized{});
    return true;
}

void TBUSBPrinterZUL::dropLateReplies() {
    if (!_exchange.missedAt || isRestartExpected()) return;
    const Clock::TimePoint now = _environment.clock.now();
    if (_exchange.resynchronizedAt && now - *_exchange.resynchronizedAt < kSettledFor) return;
    resynchronize();
    if (now - *_exchange.missedAt >= kLatestReply) _exchange.missedAt.reset();
}

} // namespace zul
