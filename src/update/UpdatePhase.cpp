// The table of phases: the name of each, how long it takes and what to do if it takes longer. All code that displays an
// update, judges it or waits for it reads this table. Pure functions, any thread.
#include "update/UpdatePhase.h"

#include "platform/foundation/Bundle.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <numeric>
#include <string_view>

namespace zul {

namespace {

constexpr const char* kLoaderAdvice =
    operatorText("The printer is in firmware update mode and does not accept the firmware. Leave it switched on. If "
                 "nothing happens, switch it off and on and start the update again.");
constexpr const char* kTablesAdvice =
    operatorText("The printer has new firmware and does not answer. Its color tables are not complete yet. Leave it "
                 "switched on. If nothing happens, switch it off and on: the update continues when it appears.");
constexpr const char* kStartAgain =
    operatorText("The printer is still in firmware update mode. Leave it switched on and start the update again: that "
                 "completes it.");

// clang-format off
constexpr auto kRows = std::to_array<PhaseRow>({
    {UpdatePhase::checking, UpdateStep::checking, "checking", operatorText("checking"), 0, 15, 2, false,
     operatorText("The printer does not answer. Nothing has been changed in it. Switch it off and on, then start "
                  "again.")},
    {UpdatePhase::enteringLoader, UpdateStep::enteringLoader, "entering loader", operatorText("entering the loader"),
     10, 20, 4, true,
     operatorText("The printer was ordered to restart and has not left yet. Leave it switched on. If nothing happens, "
                  "switch it off and on, then start the update again.")},
    {UpdatePhase::loaderAway, UpdateStep::restartingIntoLoader, "restarting into loader",
     operatorText("restarting into the loader"),
     30, 60, 8, true,
     operatorText("The printer has not restarted into its loader. Leave it switched on and check the USB cable. If "
                  "it does not come back, switch it off and on: the update continues when it appears.")},
    {UpdatePhase::loaderBack, UpdateStep::restartingIntoLoader, "in the loader", operatorText("in the loader"),
     30, 60, 4, true, kLoaderAdvice},
    {UpdatePhase::writing, UpdateStep::writingFirmware, "writing", operatorText("writing the firmware"),
     10, 20, 30, true, kLoaderAdvice},
    {UpdatePhase::cutOff, UpdateStep::writingFirmware, "cut off",
     operatorText("it was disconnected in the middle of the firmware"),
     0, 30, 0, true,
     operatorText("The printer was disconnected while the firmware was written to it. Check the USB cable and the "
                  "power, switch the printer off and on, then start the update again: that completes it.")},
    {UpdatePhase::programming, UpdateStep::writingFirmware, "programming", operatorText("programming its flash"),
     90, 180, 20, true,
     operatorText("The printer has the firmware and has not restarted yet. Leave it switched on.")},
    {UpdatePhase::restarting, UpdateStep::restartingIntoFirmware, "restarting",
     operatorText("restarting into the new firmware"), 60, 120, 10, true,
     operatorText("The printer has not come back with the new firmware. Leave it switched on and check the USB cable. "
                  "If it does not come back, switch it off and on: the update continues when it appears.")},
    {UpdatePhase::restarted, UpdateStep::restartingIntoFirmware, "restarted",
     operatorText("back, waiting until it is idle"), 30, 60, 4, true, kTablesAdvice},
    {UpdatePhase::backInLoader, UpdateStep::writingFirmware, "back in the loader",
     operatorText("back in firmware update mode"), 0, 0, 0, false, kStartAgain},
    {UpdatePhase::colorTables, UpdateStep::writingTables, "color tables", operatorText("writing color tables"),
     60, 120, 18, true, kTablesAdvice},
    {UpdatePhase::done, UpdateStep::done, "done", operatorText("done"), 0, 0, 0, false, ""},
});
// clang-format on
static_assert(kRows.size() == kUpdatePhases);

int weightUpTo(std::size_t count) {
    return std::accumulate(kRows.begin(), kRows.begin() + static_cast<std::ptrdiff_t>(count), 0,
                           [](int sum, const PhaseRow& row) { return sum + row.weight; });
}

} // namespace

const PhaseRow& phaseRow(UpdatePhase phase) {
    return kRows.at(static_cast<std::size_t>(phase));
}

const PhaseRow* phaseRowNamed(std::string_view name) {
    const auto found = std::ranges::find(kRows, name, &PhaseRow::name);
    return found == kRows.end() ? nullptr : &*found;
}

double shareBefore(UpdatePhase phase) {
    // The weights need not add up to 100: the sum of all rows is the whole.
    return 1.0 * weightUpTo(static_cast<std::size_t>(phase)) / weightUpTo(kRows.size());
}

double shareOf(UpdatePhase phase) {
    return 1.0 * phaseRow(phase).weight / weightUpTo(kRows.size());
}

} // namespace zul
