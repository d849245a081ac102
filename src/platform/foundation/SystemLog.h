// The system log: what the engine reports in its fixed texts goes to syslog, and to standard error when asked (-v).
// Texts keep the line ends they are given with; a sink decides what to do with them. Any thread.
#pragma once

#include <functional>
#include <string>

namespace zul {

/// Writes one text to the system log.
void systemLog(const std::string& text);

/// Writes an error to standard error, as the driver-level failures are; also to the system log's sink as it is.
void standardErrorLog(const std::string& text);

using SystemLogSink = std::function<void(const std::string& text)>;

/// Replaces where texts go (tests collect them); null restores syslog.
void setSystemLogSink(SystemLogSink sink);
/// Replaces where standard-error texts go; null restores the standard error stream.
void setStandardErrorSink(SystemLogSink sink);
/// Repeats system-log texts on standard error.
void setSystemLogVerbose(bool verbose);

} // namespace zul
