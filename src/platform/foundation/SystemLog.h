// The system log: fixed texts of the engine go to syslog, and with -v to standard error. Texts keep their line ends; a
// sink handles them as it needs. Any thread.
#pragma once

#include <functional>
#include <string>

namespace zul {

/// Writes one text to the system log.
void systemLog(const std::string& text);

/// Writes an error text to standard error (used for failures of the USB layer) and, unchanged, to the system log's
/// sink.
void standardErrorLog(const std::string& text);

/// Called with one text at a time, under the log's lock; it may log itself.
using SystemLogSink = std::function<void(const std::string& text)>;

/// Replaces the destination of system log texts (tests collect them); null restores syslog.
void setSystemLogSink(SystemLogSink sink);
/// Replaces the destination of standard-error texts; null restores the standard error stream.
void setStandardErrorSink(SystemLogSink sink);
/// Repeats system log texts on standard error.
void setSystemLogVerbose(bool verbose);

} // namespace zul
