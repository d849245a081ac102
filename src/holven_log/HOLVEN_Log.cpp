// Writes messages: each becomes one line on standard error and one in the file (or in memory).
// Called on any thread.
#include "holven_log/HOLVEN_Log.h"

#include "holven_Base/HOLVEN_NSDateAdditions.h"
#include "holven_Base/HOLVEN_NSStringAdditions.h"
#include "holven_log/HOLVEN_LogState.h"
#include "platform/foundation/Data.h"
#include "platform/foundation/Format.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <unicode/utf8.h>
#include <vector>

namespace zul {

namespace {

constexpr const char* kDateFormat = "[YYYY/MM/dd HH:mm:ss.SSS Z]"; // YYYY is the week-based year; the format is fixed
// Lines are kept until a file is set. Beyond this limit the oldest characters are dropped, some at a time.
constexpr std::size_t kMostPendingCharacters = 1'000'000;
constexpr std::size_t kTrimmedCharacters = 10'000;
constexpr std::size_t kRowLength = 16;
constexpr int kDebugLevel = 1;
constexpr int kErrorLevel = 3;

struct Level {
    const char* prefix;
    const char* tag;
    bool namesApplication;
};

constexpr auto kLevels = std::to_array<Level>({
    {"INFO", "I", false},
    {"DEBUG", "D", true},
    {"DEBUG2", "D2", true},
    {"ERROR", "E", false},
    {"WARN", "W", false},
});

const Level& levelFor(int level) {
    const bool known = level >= 0 && level < static_cast<int>(kLevels.size());
    return kLevels[known ? static_cast<std::size_t>(level) : kDebugLevel];
}

std::size_t charactersIn(std::string_view text) {
    return static_cast<std::size_t>(std::ranges::count_if(text, [](char byte) { return !U8_IS_TRAIL(byte); }));
}

void dropFirstCharacters(std::string& text, std::size_t count) {
    std::int32_t end = 0;
    U8_FWD_N(text.data(), end, static_cast<std::int32_t>(text.size()), static_cast<std::int32_t>(count));
    text.erase(0, static_cast<std::size_t>(end));
}

} // namespace

void HOLVEN_Log::logLevel(int level, const std::string& message) {
    State& log = state();
    std::vector<Observer> observers;
    LogNotification notification;
    {
        const std::scoped_lock lock(log.mutex);
        if (!log.logsToStandardError && log.file == nullptr) return; // not kept for a later file, either
        const Level& kind = levelFor(level);
        if (log.logsToStandardError) {
            const std::string name = kind.namesApplication ? ": " + log.applicationName : "";
            log.outside.standardError(formatted("%s%s: %s\n", kind.prefix, name, message));
        }
        if (!log.pending && log.file == nullptr) return;
        const std::string namePart = log.logsApplicationName ? formatted(" %s:", log.applicationName) : "";
        const std::string line = formatted("%s %s%s %s\n", kind.tag, logDateString(), namePart, message);
        if (log.pending) {
            if (log.pendingCharacters > kMostPendingCharacters) {
                dropFirstCharacters(*log.pending, kTrimmedCharacters);
                log.pendingCharacters -= kTrimmedCharacters;
            }
            *log.pending += line;
            log.pendingCharacters += charactersIn(line);
        } else {
            writeToFile(log, line);
        }
        if (!log.notifiesForUpdates) return;
        notification = {HOLVEN_LogFileDidUpdate, log.logFilePath, {{HOLVEN_LogFileAddedString, line}}};
        // Copied, so that they are called without the lock: an observer may log.
        for (const auto& [id, observer] : log.observers) observers.push_back(observer);
    }
    for (const Observer& observer : observers) observer(notification);
}

void HOLVEN_Log::debug(const std::string& message) {
    std::size_t start = 0;
    for (;;) {
        const std::size_t end = message.find('\n', start);
        logLevel(kDebugLevel, message.substr(start, end == std::string::npos ? end : end - start));
        if (end == std::string::npos) return;
        start = end + 1; // a trailing line end yields an empty last line
    }
}

void HOLVEN_Log::err(const std::string& message) {
    logLevel(kErrorLevel, message);
}

void HOLVEN_Log::fatal(const std::string& message) {
    err(message);
    Outside outside;
    {
        const std::scoped_lock lock(state().mutex);
        outside = state().outside;
    }
    if (outside.seenSignal != 0) {
        outside.exit(outside.seenSignal);
        return;
    }
    outside.sleepForEver(); // deliberate: the process state can be examined
    outside.exit(1);
}

void HOLVEN_Log::logData(const Data& data) {
    const std::span<const std::uint8_t> bytes(data);
    for (std::size_t offset = 0; offset < bytes.size(); offset += kRowLength) {
        const auto row = bytes.subspan(offset, std::min(kRowLength, bytes.size() - offset));
        debug(formatted("%.8lx  %s", static_cast<unsigned long>(offset), hexDumpRow(row, PercentSign::doubled)));
    }
}

std::string HOLVEN_Log::asciiHexForData(const Data& data) {
    std::string text;
    for (const std::uint8_t byte : data) text += formatted("%.2x ", byte);
    return text;
}

std::string HOLVEN_Log::logDateString() {
    State& log = state();
    const std::scoped_lock lock(log.mutex);
    return stringWithUTSFormat(log.outside.now(), kDateFormat).value_or("");
}

void HOLVEN_Log::logFileDidUpdate(const LogNotification& /*notification*/) {}

} // namespace zul
