// The texts of an update while it runs; those of an ended one are in VerdictTexts.cpp. Called by the supervisor, the
// window and the command line. Any thread.
#include "update/UpdateTexts.h"

#include "Classes/TBUSBPrinterZUL.h"
#include "platform/dispatch/Clock.h"
#include "platform/foundation/Bundle.h"
#include "platform/foundation/LocalTime.h"
#include "platform/foundation/LocalizedFormat.h"
#include "platform/usb/IOReturn.h"
#include "platform/usb/PrinterReservations.h"
#include "protocol/CommandFrame.h"
#include "protocol/StatusTexts.h"
#include "update/UpdatePhase.h"
#include "update/UpdateState.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <string>

namespace zul {

namespace {

using std::chrono::seconds;

constexpr int kLongestOfUsual = 2; // advice is due after this many times the learned duration

long long wholeSeconds(Clock::Duration span) {
    return std::chrono::duration_cast<seconds>(span).count();
}

std::string phaseText(const UpdateState& state) {
    const PhaseRow& row = phaseRow(state.phase);
    const std::string text = Bundle::localized(row.text);
    if (state.refused) {
        return Bundle::localized(state.refused->command == kCommandEnterLoader
                                     ? operatorText("the printer did not accept the command to restart")
                                     : operatorText("the printer did not accept the firmware"));
    }
    if (state.phase == UpdatePhase::writing && state.bytesTotal > 0) {
        const unsigned percent = static_cast<unsigned>(100ULL * state.bytesDone / state.bytesTotal);
        return localizedFormat("%s: %u of %u bytes (%u %%)", text, state.bytesDone, state.bytesTotal, percent);
    }
    if (state.phase == UpdatePhase::colorTables) {
        return localizedFormat("%s: %d of %d", text, state.table, state.tables);
    }
    return text;
}

// Another process reports its activity and its phase in English. Names that only another version of the program knows
// are displayed as they are.
std::string activityText(const std::string& name) {
    for (const char* const known : {operatorText("update"), operatorText("claim"), operatorText("counter reset"),
                                    operatorText("setting"), operatorText("reset")}) {
        if (name == known) return Bundle::localized(known);
    }
    return name;
}

std::string phaseText(const std::string& name) {
    const PhaseRow* const row = phaseRowNamed(name);
    return row == nullptr ? name : Bundle::localized(row->text);
}

// What the printer or the update waits for; empty if there is no such thing.
std::string obstacle(const UpdateState& state) {
    if (state.holder) return describeHolder(*state.holder);
    if (state.isWaitingUntilReady()) return textForStatus(state.rawStatus);
    if (state.isAnswerMissing) return Bundle::localized(operatorText("no answer"));
    if (state.isIdentityMissing) return Bundle::localized(operatorText("it does not report its device ID"));
    return {};
}

std::string textOfHolder(const InterfaceHolder& holder) {
    switch (holder.kind) {
    case InterfaceHolder::Kind::printing:
        if (holder.pid == 0) return Bundle::localized(operatorText("it is printing"));
        return localizedFormat("it is printing (%s, process %d)", holder.program, holder.pid);
    case InterfaceHolder::Kind::ownProgram:
        if (holder.activity.empty()) {
            return localizedFormat("%s uses the printer (process %d)", holder.program, holder.pid);
        }
        if (holder.phase.empty()) {
            return localizedFormat("%s uses the printer (process %d): %s", holder.program, holder.pid,
                                   activityText(holder.activity));
        }
        return localizedFormat("%s uses the printer (process %d): %s, %s", holder.program, holder.pid,
                               activityText(holder.activity), phaseText(holder.phase));
    case InterfaceHolder::Kind::process:
        if (holder.pid == 0) break; // the simulated other holder of a virtual printer
        return localizedFormat("another program uses the printer (%s, process %d)", holder.program, holder.pid);
    case InterfaceHolder::Kind::unknown:
        break;
    }
    return Bundle::localized(operatorText("another program uses the printer"));
}

} // namespace

std::string serialNumberOf(const TBUSBPrinterZUL& printer) {
    const auto number = printer.printerSerialNumber();
    // The engine shows "NULL" for a printer that did not answer.
    return number && *number != "NULL" ? *number : "";
}

std::optional<Clock::Duration> usualDuration(UpdatePhase phase, const UsualDurations& learned) {
    if (const auto known = learned.find(phase); known != learned.end()) return known->second;
    const int usual = phaseRow(phase).usualSeconds;
    return usual == 0 ? std::nullopt : std::optional<Clock::Duration>(seconds(usual));
}

std::optional<Clock::Duration> longestDuration(UpdatePhase phase, const UsualDurations& learned) {
    // From the table, whatever was learned: a model that was always quick is not taken for stalled early.
    const int longest = phaseRow(phase).longestSeconds;
    if (longest == 0) return std::nullopt;
    Clock::Duration result = seconds(longest);
    // A model that is known to be slow gets more time.
    if (const auto known = learned.find(phase); known != learned.end()) {
        result = std::max<Clock::Duration>(result, kLongestOfUsual * known->second);
    }
    return result;
}

std::string describeState(const UpdateState& state, Clock::TimePoint now, const UsualDurations& learned) {
    std::string text = phaseText(state);
    if (const std::string reason = obstacle(state); !reason.empty()) text = localizedFormat("%s: %s", text, reason);
    const long long elapsed = wholeSeconds(now - state.phaseBegun);
    const auto usual = usualDuration(state.phase, learned);
    // A refused command is not in progress, so no duration can be expected.
    if (!usual || state.refused) return localizedFormat("%s (%d s)", text, elapsed);
    return localizedFormat("%s (%d s, usually done within %d s)", text, elapsed,
                           std::max<long long>(wholeSeconds(*usual), 1));
}

std::string describeHolder(const InterfaceHolder& holder) {
    const std::string text = textOfHolder(holder);
    return holder.since == 0 ? text : localizedFormat("%s, since %s", text, localTimeText(holder.since * 1000));
}

std::string adviceForHolder(const InterfaceHolder& holder) {
    if (holder.kind == InterfaceHolder::Kind::printing) {
        return Bundle::localized(operatorText("Wait until the job is printed."));
    }
    // To close that program would leave the printer in the middle of its update.
    if (holder.kind == InterfaceHolder::Kind::ownProgram && holder.activity == kUpdateActivity) {
        return Bundle::localized(
            operatorText("It updates the printer: do not close it, and wait until it has finished."));
    }
    return Bundle::localized(operatorText("Close that program or wait until it has finished."));
}

std::string describeFailure(IOReturn code) {
    switch (code) {
    case kIOReturnNoDevice:
    case kIOReturnNotResponding:
        return Bundle::localized(operatorText("the printer was disconnected"));
    case kIOUSBTransactionTimeout:
        return Bundle::localized(operatorText("the printer did not accept the data in time"));
    case kIOUSBPipeStalled:
        return Bundle::localized(operatorText("the printer refused the data"));
    case kIOReturnExclusiveAccess:
        return Bundle::localized(operatorText("another program uses the printer"));
    default:
        return Bundle::localized(operatorText("the USB transfer failed"));
    }
}

std::string adviceFor(const UpdateState& state) {
    if (state.isArchiveRefused && state.image == ImageState::notSent && state.phase != UpdatePhase::checking) {
        return Bundle::localized(operatorText("The firmware files are damaged. The printer is in firmware update mode: "
                                              "leave it switched on, replace the files and start the update again."));
    }
    if (state.isArchiveRefused) {
        return Bundle::localized(operatorText("The firmware files are damaged. Leave the printer switched on, replace "
                                              "the files and start the update again."));
    }
    if (state.holder) {
        return adviceForHolder(*state.holder) + " " +
               Bundle::localized(operatorText("The update continues by itself. Leave the printer switched on."));
    }
    if (state.refused && state.refused->command == kCommandEnterLoader) {
        return Bundle::localized(operatorText("Nothing has been changed in the printer. Start the update again."));
    }
    if (state.isNotInLoader()) {
        return localizedFormat(
            "The printer that is attached at its location is not in its loader (%s). Check that this is "
            "the printer whose update was begun. If it is, switch it off and on, then start the "
            "update again.",
            textForStatus(state.rawStatus));
    }
    if (state.isWaitingUntilReady()) {
        return localizedFormat("The printer reports: %s. Leave it switched on and correct that: the update continues "
                               "by itself when the printer is ready.",
                               textForStatus(state.rawStatus));
    }
    const char* const advice = phaseRow(state.isImageInDoubt() ? UpdatePhase::cutOff : state.phase).advice;
    return *advice == 0 ? "" : Bundle::localized(advice);
}

std::string adviceForDelay(const UpdateState& state) {
    if (state.isNotInLoader()) return adviceFor(state);
    // The advice in the table says for these phases that the printer does not answer.
    const bool isForSilence = state.phase == UpdatePhase::checking || state.phase == UpdatePhase::restarted ||
                              state.phase == UpdatePhase::colorTables;
    if (isForSilence && !state.isImageInDoubt()) {
        return Bundle::localized(operatorText("The printer answers, but this takes longer than usual. Leave it "
                                              "switched on."));
    }
    return Bundle::localized(operatorText("This takes longer than usual.")) + " " + adviceFor(state);
}

} // namespace zul
