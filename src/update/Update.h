// One update as the window and the command line display it, and the interface through which they learn of its changes.
// The supervisor owns the updates. Main queue.
#pragma once

#include "Classes/TBUSBPrinterZUL.h"
#include "platform/dispatch/Clock.h"
#include "update/UpdateState.h"
#include "update/UpdateTexts.h"
#include "update/UpdateVerdict.h"

#include <memory>
#include <string>

namespace zul {

/// One update, open or ended.
struct Update {
    UpdateState state;
    UpdateVerdict verdict;
    UpdateExpectation expectation;
    UsualDurations usual;
    std::string name; // of the printer
    std::string model;
    std::string picture;         // file name of the model's picture
    std::string location;        // where the printer is attached
    std::string cameBackAt;      // another place at which it came back; empty if it did not
    std::string replacedBy;      // serial number of another printer that is attached at its place now; else empty
    std::string advice;          // what to do now; empty if no action is needed
    bool isAsking = false;       // a question about this printer waits for the operator's answer
    bool isStalled = false;      // no sign of life for the longest time of the phase
    bool isLate = false;         // it gives signs of life, without progress for the longest time of the phase
    bool isWaiting = false;      // it is attached and the update cannot continue: not ready, or held by another process
    bool mayBeDismissed = false; // no progress for the longest time of the phase
    bool isDismissed = false;    // hidden by the operator, until the update makes progress
    bool isStopRequested = false; // it ends as soon as the program may leave the printer
    Clock::TimePoint endedAt;
    // The object that the update was begun with. A printer that returns is another object; the wait for readiness and
    // the alerts stay with this one.
    std::weak_ptr<TBUSBPrinterZUL> printer;

    /// It has no verdict yet, or was opened again.
    bool isOpen() const { return verdict.isOpen(); }
};

/// Displays updates: the window, or a command. Called on the main queue.
class UpdateObserver {
  public:
    virtual ~UpdateObserver() = default;
    /// This printer's update has changed, or half a second has passed while it is open. It is also the first notice of
    /// an update that began without begin(), for example by the operator's answer to a printer's alert.
    virtual void updateDidChange(const std::string& key) = 0;
    /// The update has its verdict, or a corrected one.
    virtual void updateDidEnd(const std::string& key) = 0;
    /// The results of holder(), interruptedText() and isNotAnswering() may have changed for a printer that is not being
    /// updated.
    virtual void conditionsMayHaveChanged() {}
    /// The operator should read this text. It is not a change of an update.
    virtual void noteDidArise(const std::string& /*text*/) {}
};

} // namespace zul
