// Queries to one printer and their replies. Replies carry no mark of their query, so after a reply that is missing or
// cannot belong to its query the pipe is emptied and the query is sent once more: otherwise one late reply would shift
// all later ones, for this program and for the next. Printer's command queue, with the interface open.
#pragma once

#include "Classes/CommandChannel.h"
#include "platform/dispatch/Clock.h"
#include "platform/foundation/Data.h"

#include <cstdint>
#include <optional>

namespace zul {

class TBUSBPrinterZUL;

/// What a missing reply leads to. Late replies are dropped in any case but the last.
enum class IfMissing {
    askAgain,
    dropLateReplies, // the caller asks again by itself, or can do without
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

    /// Sends the query, after replies that came too late are dropped, and returns its valid reply: the first one, or
    /// the one to the same query sent once more; nullopt if there is none, or none that can belong to it.
    std::optional<Data> ask(const Question& question);
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
    /// How many replies were missing since the printer object was made.
    unsigned misses() const { return _misses; }
    /// How many replies belonged to other queries, as far as that was recognised.
    unsigned slips() const { return _slips; }

  private:
    using Reply = CommandChannel::Reply;
    Reply sendAndRead(const Question& question);
    std::optional<Data> accept(const Question& question, Reply reply);
    std::optional<Data> askAgain(const Question& question, const Reply& first);
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

    unsigned _misses = 0;
    unsigned _slips = 0;
    std::optional<Clock::TimePoint> _missedAt;         // of the last missing answer, while it may still come
    std::optional<Clock::TimePoint> _resynchronizedAt; // the last time that the pipe was emptied
    std::optional<Clock::TimePoint> _restartOrderedAt; // a command that makes the printer leave was taken

    bool _isAttaching = false; // its arrival is being handled: the rounds of questions are one
    bool _isInRound = false;   // it is being asked for everything, or probed
    bool _isRoundOver = false; // an answer was missing in this round
    Clock::TimePoint _roundBegan;
};

} // namespace zul
