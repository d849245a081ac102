// The state of the log, for its source files only.
#pragma once

#include "holven_log/HOLVEN_Log.h"

#include <cstdint>
#include <cstdio>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zul {

struct HOLVEN_Log::State {
    std::recursive_mutex mutex; // recursive, because an outlet may log
    Outside outside;
    std::string applicationName;
    std::optional<std::string> logFilePath;
    std::FILE* file = nullptr;
    std::optional<std::string> pending = std::string{}; // nullopt for ever once a file is open
    std::size_t pendingCharacters = 0;
    bool hasLostLines = false; // already reported
    bool notifiesForUpdates = false;
    bool logsToStandardError = true;
    bool logsApplicationName = false;
    std::vector<std::pair<std::uint32_t, Observer>> observers;
    std::uint32_t nextObserver = 1;
};

} // namespace zul
