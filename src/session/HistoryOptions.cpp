// The place of the history. Called by the session and by the commands that read it without one.
#include "session/HistoryOptions.h"

#include <chrono>

namespace zul {

UpdateHistoryOptions historyOptions(const SessionOptions& options) {
    UpdateHistoryOptions history;
    // Without a state folder there is no history at all, not one in the working directory.
    if (!options.virtualPrinters.empty() && !history.folder.empty()) history.folder /= "embedded";
    history.wallTime = [] {
        using namespace std::chrono;
        return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
    };
    return history;
}

} // namespace zul
