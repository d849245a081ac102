// The program's own log: lines with level and time stamp on standard error, in memory until a log file is named, and in
// that file from then on. It carries the traffic with the printers; everything else goes to the system log. One state
// for the whole process, used through static members; one lock, so any thread may log.
#pragma once

#include "holven_Base/HOLVEN_Base.h"
#include "platform/foundation/Data.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>

namespace zul {

/// Name of the notification that a line was added, and the key of that line in its user information.
inline constexpr const char* HOLVEN_LogFileDidUpdate = "HOLVEN_LogFileDidUpdate";
inline constexpr const char* HOLVEN_LogFileAddedString = "HOLVEN_LogFileAddedString";

struct LogNotification {
    std::string name;
    std::optional<std::string> object; // the log file's path, if one was named
    std::map<std::string, std::string> userInfo;
};

class HOLVEN_Log : public HOLVEN_Base {
  public:
    /// logLevel:message:  The one writer. 0 info, 1 debug, 2 more debug, 3 error, 4 warning; others as 1.
    static void logLevel(int level, const std::string& message);
    /// Level 1, each line of the message as a message of its own.
    static void debug(const std::string& message);
    static void err(const std::string& message);
    /// Logs an error and stops the calling thread for ever: the program is meant to stay as it is.
    static void fatal(const std::string& message);
    /// Hex dump at debug level, 16 bytes to a line.
    static void logData(const Data& data);
    /// "1b 50 ", a blank after each byte.
    static std::string asciiHexForData(const Data& data);
    /// The time as the lines in the file carry it.
    static std::string logDateString();

    /// Opens the log file for appending, after rolling it if it is long, and writes the lines kept so far into it. The
    /// path is used as it is given, but for a "~" in front. True only when this call opened it; a file that is open
    /// stays the log file.
    static bool setLogFile(const std::optional<std::string>& path);
    /// rollLogFile:toPath:atSize:  Moves the lines of a file of at least size bytes to the end of the old file, which
    /// keeps the newest 10 MiB. Without oldPath it is called name_old.extension.
    static void rollLogFile(const std::string& path, const std::optional<std::string>& oldPath, std::uint64_t size);
    /// The same at 1 MiB.
    static void rollLogFileIfNecessary(const std::string& path);

    static void setShouldNotifyForLogUpdates(bool notify);
    static void setShouldLogToStdErr(bool log);
    static void setShouldLogAppName(bool log);
    static void setApplicationName(const std::string& name);

    /// Whether the lower-cased text is an e-mail address as a whole.
    static bool validateEmailAddress(const std::string& emailAddress);

    /// Observers are called on the logging thread, without the log's lock. Answers an id for removal, never 0.
    using Observer = std::function<void(const LogNotification& notification)>;
    static std::uint32_t addObserver(Observer observer);
    static void removeObserver(std::uint32_t observer);
    /// For observers that need a receiver; does nothing.
    void logFileDidUpdate(const LogNotification& notification);

    /// What the log does to the world, replaceable for tests.
    struct Outside {
        std::function<std::chrono::system_clock::time_point()> now;
        std::function<void(const std::string& text)> standardError;
        std::function<void(const std::string& path)> reopenStandardError;
        std::function<void()> sleepForEver;
        std::function<void(int status)> exit;
        std::int32_t seenSignal = 0; // exit status of fatal(); 0: it sleeps instead
    };
    /// This machine's.
    static Outside systemOutside();
    /// Everything as at the start of the process, with the given outside; closes the log file. For tests.
    static void reset(Outside outside = systemOutside());

  private:
    struct State;
    /// The values at the start. Runs once, before the first use.
    static void initialize(State& log);
    /// The first failure is reported on standard error.
    static void writeToFile(State& log, const std::string& lines);
    static State& state();
};

} // namespace zul
