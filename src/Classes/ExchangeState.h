// What a printer's command channel remembers from one question to the next. Command queue.
#pragma once

#include "platform/dispatch/Clock.h"

#include <cstdint>
#include <optional>

namespace zul {

/// What is wrong with a reply.
enum class ReplyFault {
    none,
    missing,      // nothing could be read
    brokenHeader, // its length is no number, or longer than any reply
    tooShort,     // fewer bytes than its header announced
    wrongShape,   // it cannot be the answer to its question
};

/// What a missing answer leads to. The answers that are still on their way are dropped in any case but the last.
enum class IfMissing {
    askAgain,
    dropLateReplies, // whoever asks asks again by itself, or can do without
    isExpected,      // a printer in its loader answers next to nothing
};

struct ExchangeState {
    ReplyFault fault = ReplyFault::none;              // of the last reply
    unsigned misses = 0;                              // answers that did not come
    unsigned slips = 0;                               // answers that were those to other questions
    std::optional<Clock::TimePoint> missedAt;         // of the last one that may still come
    std::optional<Clock::TimePoint> resynchronizedAt; // the last time that the pipe was emptied
    std::optional<Clock::TimePoint> restartOrderedAt; // a command that makes the printer leave was taken

    // Without a command queue the main queue waits for every answer.
    bool isAttaching = false; // its arrival is being handled: the rounds of questions are one
    bool isInRound = false;   // it is being asked for everything, or probed
    bool isRoundOver = false; // an answer was missing in this round
    bool isUnsent = false;    // the question was not taken: its answer is not waited for
    Clock::TimePoint roundBegan;
};

} // namespace zul
