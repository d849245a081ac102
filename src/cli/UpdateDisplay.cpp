// Formats the progress of updates for a terminal, a plain log or a script.
// Called by the update command on the main queue.
#include "cli/UpdateDisplay.h"

#include "cli/Output.h"
#include "platform/dispatch/Clock.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/PrintableText.h"
#include "session/PrinterInfo.h"
#include "update/Update.h"
#include "update/UpdatePhase.h"
#include "update/UpdateState.h"
#include "update/UpdateTexts.h"

#include <chrono>
#include <cstddef>
#include <iostream>
#include <nlohmann/json.hpp>
#include <string>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>

namespace zul::cli {

namespace {

constexpr unsigned kPlainStep = 10;                     // per cent between plain lines of a write
constexpr auto kPlainRepeat = std::chrono::seconds(15); // between plain lines of a wait

std::size_t terminalWidth() {
    winsize size{};
    // Asked for each line, because a terminal can be resized.
    return ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 10 ? size.ws_col : 80;
}

double secondsOf(Clock::Duration span) {
    return std::chrono::duration<double>(span).count();
}

} // namespace

UpdateDisplay::UpdateDisplay(const Output& output)
    : _output(output), _isLive(!output.isJson() && ::isatty(STDOUT_FILENO) == 1) {}

void UpdateDisplay::show(const Update& update, Clock::TimePoint now) {
    const UpdateState& state = update.state;
    if (_isClosed || state.phase == UpdatePhase::done) return; // the result is reported separately
    if (_isLive) {
        _live[state.key] = formatted("%s: %s [%.0f s]", update.name, describeState(state, now, update.usual),
                                     secondsOf(now - state.begun));
        showLive();
    } else if (isNews(state, now)) {
        _output.isJson() ? showObject(update, now) : showPlain(update, now);
    }
}

// One line for all printers: not every terminal can erase two lines.
void UpdateDisplay::showLive() {
    std::string line;
    for (const auto& [key, text] : _live) line += (line.empty() ? "" : " | ") + text;
    // Leaves the last column free, because writing there wraps on some terminals.
    std::cout << "\r\033[K" << shortened(printableInLine(line), terminalWidth() - 1) << std::flush;
    _lineIsOpen = true;
}

void UpdateDisplay::breakLine() {
    if (_lineIsOpen && !_isClosed) std::cout << "\r\033[K" << std::flush;
    _lineIsOpen = false;
}

// Repeats a wait from time to time, so that the program does not look as if it hangs.
bool UpdateDisplay::isNews(const UpdateState& state, Clock::TimePoint now) {
    // A line is new when one of these parts differs from those of the last line.
    std::string shown = std::to_string(static_cast<int>(state.phase)) + '/' + std::to_string(state.table);
    if (state.phase == UpdatePhase::writing && state.bytesTotal > 0) {
        shown += '/' + std::to_string(100ULL * state.bytesDone / state.bytesTotal / kPlainStep);
    }
    if (state.phase == UpdatePhase::restarted && state.isWaitingUntilReady()) shown += '/' + state.rawStatus;
    if (state.holder) shown += '/' + describeHolder(*state.holder);
    shown += '/' + std::to_string((now - state.phaseBegun) / kPlainRepeat);
    return std::exchange(_shown[state.key], shown) != shown;
}

void UpdateDisplay::showPlain(const Update& update, Clock::TimePoint now) {
    _output.line(formatted("[%5.1f s] %s: %s", secondsOf(now - update.state.begun), update.name,
                           describeState(update.state, now, update.usual)));
}

void UpdateDisplay::showObject(const Update& update, Clock::TimePoint now) {
    const UpdateState& state = update.state;
    nlohmann::json line = {{"event", "phase"},
                           {"printer", state.key},
                           {"phase", phaseRow(state.phase).name},
                           {"elapsed", secondsOf(now - state.begun)},
                           {"text", describeState(state, now, update.usual)}};
    if (state.holder) line["holder"] = jsonOf(*state.holder);
    if (state.phase == UpdatePhase::writing) {
        line["bytes"] = state.bytesDone;
        line["bytesTotal"] = state.bytesTotal;
    }
    if (state.phase == UpdatePhase::colorTables) {
        line["table"] = state.table;
        line["tables"] = state.tables;
        line["tableName"] = state.tableName;
    }
    _output.object(line);
}

void UpdateDisplay::report(const std::string& key, const std::string& text, const char* event) {
    if (_isClosed) return;
    breakLine();
    if (_output.isJson()) {
        _output.object({{"event", event}, {"printer", key}, {"text", text}});
    } else {
        _output.line(text);
    }
}

} // namespace zul::cli
