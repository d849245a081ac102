// The program's own log: lines with level and time stamp on standard error, in memory until a log file is set, and in
// that file afterwards. It records the traffic with the printers; all other texts go to the system log. One state per
// process, used through static members and guarded by one lock, so any thread may log.
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

/// Name of the notification about an added line, and the key of that line in its user information.
inline constexpr const char* HOLVEN_LogFileDidUpdate = "HOLVEN_LogFileDidUpdate";
inline constexpr const char* HOLVEN_LogFileAddedString = "HOLVEN_LogFileAddedString";

struct LogNotification {
    std::string name;
    std::optional<std::string> object; // the log file's path, if one was set
    std::map<std::string, std::string> userInfo;
};

class HOLVEN_Log : public HOLVEN_Base {
  public:
    /// logLevel:message:  Every message goes through here. 0 info, 1 debug, 2 more debug, 3 error, 4 warning; others as
    /// 1.
    static void logLevel(int level, const std::string& message);
    /// Level 1; each line of the message is logged separately.
    static void debug(const std::string& message);
    static void err(const std::string& message);
    /// Logs an error and blocks the calling thread for ever, so that the state of the program can be examined.
    static void fatal(const std::string& message);
    /// Hex dump at debug level, 16 bytes per line.
    static void logData(const Data& data);
    /// "1b 50 ", a space after each byte.
    static std::string asciiHexForData(const Data& data);
    /// The current time in the format of the log file.
    static std::string logDateString();

    /// Opens the log file for appending, after rolling it if it is long, and writes the lines kept so far. A leading
    /// "~" is expanded, the rest of the path is used unchanged. Returns true only if this call opened the file; an open
    /// file remains the log file.
    static bool setLogFile(const std::optional<std::string>& path);
    /// rollLogFile:toPath:atSize:  If the file has at least size bytes, moves its lines to the end of the old file,
    /// which keeps the newest 10 MiB. Without oldPath the old file is name_old.extension.
    static void rollLogFile(const std::string& path, const std::optional<std::string>& oldPath, std::uint64_t size);
    /// rollLogFile() with 1 MiB.
    static void rollLogFileIfNecessary(const std::string& path);

    /// Whether observers are called for each line that is written or kept; off at first.
    static void setShouldNotifyForLogUpdates(bool notify);
    /// Whether messages go to standard error, too; on at first. Turn it off before setLogFile() to send the process's
    /// standard error to the log file as well.
    static void setShouldLogToStdErr(bool log);
    /// Whether lines of the file contain the application's name; off at first.
    static void setShouldLogAppName(bool log);
    /// The name for those lines and for debug messages on standard error; the process's name at first.
    static void setApplicationName(const std::string& name);

    /// Whether the whole lower-cased text is an e-mail address.
    static bool validateEmailAddress(const std::string& emailAddress);

    /// Observers are called on the logging thread, without the log's lock. addObserver() returns an id for removal,
    /// never 0.
    using Observer = std::function<void(const LogNotification& notification)>;
    static std::uint32_t addObserver(Observer observer);
    /// A call that is under way on another thread is not waited for. Unknown ids are ignored.
    static void removeObserver(std::uint32_t observer);
    /// For observers that need a receiver; does nothing.
    void logFileDidUpdate(const LogNotification& notification);

    /// The log's system calls, replaceable for tests.
    struct Outside {
        /// Each must be set. They are called with the log's lock held, except sleepForEver and exit.
        std::function<std::chrono::system_clock::time_point()> now;
        std::function<void(const std::string& text)> standardError;
        std::function<void(const std::string& path)> reopenStandardError;
        std::function<void()> sleepForEver;
        std::function<void(int status)> exit;
        std::int32_t seenSignal = 0; // exit status of fatal(); 0: it blocks instead
    };
    /// The functions of this machine.
    static Outside systemOutside();
    /// Restores the state of the start of the process with the given outside; closes the log file. For tests.
    static void reset(Outside outside = systemOutside());

  private:
    struct State;
    /// Sets the initial values. Runs once, before the first use.
    static void initialize(State& log);
    /// Reports only the first failure on standard error.
    static void writeToFile(State& log, const std::string& lines);
    static State& state();
};

} // namespace zul
