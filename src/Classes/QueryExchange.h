// Questions to one printer and their answers. Replies carry no mark of their question, so an answer that is missing or
// cannot be the one to its question is followed by an empty pipe and the same question once more: without that one late
// reply would shift all later ones, for this program and for the next. Printer's command queue, with the interface
// open.
#pragma once

#include "Classes/CommandChannel.h"
#include "platform/dispatch/Clock.h"
#include "platform/foundation/Data.h"

#include <cstdint>
#include <optional>

namespace zul {

class TBUSBPrinterZUL;

/// What a missing answer leads to. Answers that are still on their way are dropped in any case but the last.
enum class IfMissing {
    askAgain,
    dropLateReplies, // whoever asks asks again by itself, or can do without
    isExpected,      // a printer in its loader answers next to nothing
};

struct Question {
    std::uint32_t command = 0; // command code
    std::optional<Data> payload = {};
    IfMissing ifMissing = IfMissing::askAgain;
};

class QueryExchange {
  public:
    /// The channel and its status are the printer's own.
    QueryExchange(TBUSBPrinterZUL& printer, CommandChannel& channel, const TransferStatus& status)
        : _printer(printer), _channel(channel), _status(status) {}

    /// Sends the question, after replies that came too late are dropped.
    void begin(const Question& question);
    /// The answer to the question that was sent, given the reply to it: that reply, or the one to the question asked
    /// once more; nullopt if there is none, or none that could be its own.
    std::optional<Data> accept(const Question& question, const std::optional<Data>& reply);
    /// begin(), one reply, accept().
    std::optional<Data> ask(const Question& question);
    /// Reads one reply and keeps what is wrong with it; nullopt if nothing could be read.
    std::optional<Data> readReply();
    /// Sends a command that makes the printer leave. Until it has left, and for at most five minutes, no missing answer
    /// leads to anything.
    void orderRestart(std::uint32_t command, const Data* payload);

    // A printer without a queue is asked by the main queue, which must not wait for each of many answers: a round of
    // questions ends there with the first missing answer, and after five seconds.

    /// Whether the printer may be asked now.
    bool mayAsk() const;
    /// The initialiser's probe and the controller's are one round, which ends with the block of the main queue in which
    /// both run.
    void beginArrivalOnMain();
    /// Begins a round, unless it is part of one that is under way.
    void beginRound();
    /// Marks that the printer is being asked for everything, or probed. Returns the earlier value.
    bool setInRound(bool isInRound);
    /// How many answers did not come.
    unsigned misses() const { return _misses; }
    /// How many answers were those to other questions.
    unsigned slips() const { return _slips; }

  private:
    void send(const Question& question);
    std::optional<Data> askAgain(const Question& question, ReplyFault firstFault, const std::optional<Data>& first);
    ReplyFault faultOf(const Question& question, const std::optional<Data>& reply) const;
    void noteMissingAnswer();
    void reportUnusable() const;
    bool isLeaving() const;
    bool isRestartExpected() const;
    bool resynchronize();
    void dropLateReplies();
    bool hasQueue() const;
    Clock::TimePoint now() const;

    TBUSBPrinterZUL& _printer;
    CommandChannel& _channel;
    const TransferStatus& _status;

    ReplyFault _fault = ReplyFault::none; // of the last reply
    unsigned _misses = 0;
    unsigned _slips = 0;
    std::optional<Clock::TimePoint> _missedAt;         // of the last missing answer, while it may still come
    std::optional<Clock::TimePoint> _resynchronizedAt; // the last time that the pipe was emptied
    std::optional<Clock::TimePoint> _restartOrderedAt; // a command that makes the printer leave was taken

    bool _isAttaching = false; // its arrival is being handled: the rounds of questions are one
    bool _isInRound = false;   // it is being asked for everything, or probed
    bool _isRoundOver = false; // an answer was missing in this round
    bool _isUnsent = false;    // the question was not taken: its answer is not waited for
    Clock::TimePoint _roundBegan;
};

} // namespace zul
