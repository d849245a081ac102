// The folder of the history. Called by the session and by the commands that read the history without a session.
// Any thread.
#include "session/HistoryOptions.h"

#include "session/SessionOptions.h"
#include "update/UpdateHistory.h"

#include <chrono>

namespace zul {

UpdateHistoryOptions historyOptions(const SessionOptions& options) {
    UpdateHistoryOptions history;
    // Without a state folder there is no history; never use the working directory instead.
    if (!options.virtualPrinters.empty() && !history.folder.empty()) history.folder /= "embedded";
    // The machine's clock, not the session's: commands read the history without a session.
    history.wallTime = [] {
        using namespace std::chrono;
        return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
    };
    return history;
}

} // namespace zul
