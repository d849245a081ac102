// From phases to words.
#include "Classes/UpdateWords.h"

#include "Classes/StatusTexts.h"
#include "StatusCodeNames.h"
#include "platform/foundation/LocalizedFormat.h"

#include <array>

namespace zul {

namespace {

using std::chrono::seconds;

struct PhaseFacts {
    const char* name;
    const char* words;
    int expectedSeconds; // 0: cannot be told
    const char* advice;  // when nothing has been heard for long
};

constexpr const char* kLoaderAdvice =
    operatorText("The printer is in firmware update mode and does not take the firmware. Leave it switched on. If "
                 "nothing happens, switch it off and on and start the update again.");
constexpr const char* kTablesAdvice =
    operatorText("The printer has new firmware and does not answer. Its color tables are not complete yet. Leave it "
                 "switched on. If nothing happens, switch it off and on: the update goes on when it appears.");

// In the order of the phases.
constexpr auto kPhases = std::to_array<PhaseFacts>({
    {"checking", operatorText("checking"), 0,
     operatorText("The printer does not answer. Nothing has been changed in it. Switch it off and on, then start "
                  "again.")},
    {"entering loader", operatorText("sent to the loader"), 10,
     operatorText("The printer was told to restart and has not left yet. Leave it switched on. If nothing happens, "
                  "switch it off and on, then start the update again.")},
    {"restarting", operatorText("restarting into the loader"), 30,
     operatorText("The printer has not come back as its loader. Leave it switched on and check the USB cable. If it "
                  "stays away, switch it off and on: the update goes on when it appears.")},
    {"in the loader", operatorText("in the loader"), 30, kLoaderAdvice},
    {"writing", operatorText("writing the firmware"), 10, kLoaderAdvice},
    {"programming", operatorText("programming its flash"), 90,
     operatorText("The printer has the firmware and has not restarted yet. Leave it switched on.")},
    {"restarting", operatorText("restarting into the new firmware"), 60,
     operatorText("The printer has not come back with the new firmware. Leave it switched on and check the USB cable. "
                  "If it stays away, switch it off and on: the update goes on when it appears.")},
    {"restarted", operatorText("back, waiting until it is idle"), 30, kTablesAdvice},
    {"color tables", operatorText("writing color tables"), 60, kTablesAdvice},
    {"done", operatorText("done"), 0, ""},
});
static_assert(kPhases.size() == static_cast<std::size_t>(UpdatePhase::done) + 1);

const PhaseFacts& factsOf(UpdatePhase phase) {
    return kPhases[static_cast<std::size_t>(phase)];
}

long long wholeSeconds(Clock::Duration span) {
    return std::chrono::duration_cast<seconds>(span).count();
}

std::string phaseInWords(const UpdateState& state) {
    if (state.isBackInLoader) return Bundle::localized(operatorText("back in firmware update mode"));
    const std::string words = Bundle::localized(factsOf(state.phase).words);
    if (state.isRefused) {
        const IOReturn code = state.failure.value_or(kIOReturnError);
        return localizedFormat("%s failed (%s)", words, std::string(strForIOReturn(code)));
    }
    if (state.phase == UpdatePhase::writing && state.bytesTotal > 0) {
        const unsigned percent = static_cast<unsigned>(100ULL * state.bytesDone / state.bytesTotal);
        return localizedFormat("%s %u of %u bytes (%u %%)", words, state.bytesDone, state.bytesTotal, percent);
    }
    if (state.isWaitingUntilReady()) return words + " (" + textForStatus(state.rawStatus) + ")";
    if (state.phase == UpdatePhase::colorTables) {
        return localizedFormat("%s %d of %d", words, state.table, state.tables);
    }
    return words;
}

} // namespace

const char* nameOfPhase(UpdatePhase phase) {
    return factsOf(phase).name;
}

std::optional<Clock::Duration> expectedDuration(UpdatePhase phase) {
    const int expected = factsOf(phase).expectedSeconds;
    return expected == 0 ? std::nullopt : std::optional<Clock::Duration>(seconds(expected));
}

std::string describeState(const UpdateState& state, Clock::TimePoint now) {
    std::string words = phaseInWords(state);
    if (state.isAnswerMissing) words = localizedFormat("%s (no answer)", words);
    const long long since = wholeSeconds(now - state.phaseBegun);
    if (const auto expected = expectedDuration(state.phase)) {
        return localizedFormat("%s since %d s, expected within %d s", words, since, wholeSeconds(*expected));
    }
    return localizedFormat("%s since %d s", words, since);
}

std::string adviceForStall(const UpdateState& state) {
    if (state.isArchiveRefused && state.phase < UpdatePhase::restarting) {
        return Bundle::localized(operatorText("The firmware files are damaged. The printer is in firmware update mode: "
                                              "leave it switched on, mend the files and start the update again."));
    }
    if (state.isArchiveRefused) {
        return Bundle::localized(operatorText("The firmware files are damaged. Leave the printer switched on, mend the "
                                              "files and start the update again."));
    }
    if (state.isRefused && state.phase == UpdatePhase::checking) {
        return Bundle::localized(operatorText("The printer did not take the command to restart. Nothing has been "
                                              "changed in it. Start the update again."));
    }
    if (state.isBackInLoader) {
        return Bundle::localized(operatorText("The printer is still in firmware update mode. Leave it switched on and "
                                              "start the update again."));
    }
    if (state.isWaitingUntilReady()) {
        return localizedFormat("The printer reports: %s. Leave it switched on and put that right: once it is ready, "
                               "the update goes on by itself.",
                               textForStatus(state.rawStatus));
    }
    const char* advice = factsOf(state.phase).advice;
    return *advice == 0 ? "" : Bundle::localized(advice);
}

std::string reasonOfFailure(const UpdateState& state) {
    switch (state.shortfall()) {
    case UpdateShortfall::none:
        return "";
    case UpdateShortfall::archiveRefused:
        return Bundle::localized(operatorText("the firmware files are damaged"));
    case UpdateShortfall::imageNotTaken: {
        std::string text = Bundle::localized(operatorText("the firmware was not written"));
        if (state.failure) text += formatted(" (%s)", strForIOReturn(*state.failure));
        return text;
    }
    case UpdateShortfall::versionUnread:
        return Bundle::localized(operatorText("the version could not be read after the update"));
    case UpdateShortfall::otherVersion:
        return localizedFormat("the printer reports %s after the update instead of %s", *state.currentVersion,
                               textOrNull(state.offeredVersion));
    case UpdateShortfall::tablesMissing: {
        std::string text = localizedFormat("only %d of %d color tables were sent", state.tablesWritten, state.tables);
        if (state.failure) text += formatted(" (%s)", strForIOReturn(*state.failure));
        return text;
    }
    case UpdateShortfall::noTable:
        return Bundle::localized(operatorText("no color table was sent"));
    }
    return "";
}

} // namespace zul
