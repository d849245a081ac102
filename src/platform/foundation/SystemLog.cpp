// One recursive lock is held during every delivery: texts of several threads never mix, a sink needs no lock, a sink
// may log, and a replaced sink is no longer running. Any thread.
#include "platform/foundation/SystemLog.h"

#include "platform/foundation/PrintableText.h"

#include <iostream>
#include <mutex>
#include <string>
#include <syslog.h>
#include <utility>

namespace zul {

namespace {

struct Outlets {
    std::recursive_mutex mutex;
    SystemLogSink systemLog;
    SystemLogSink standardError;
    bool verbose = false;
};

Outlets& outlets() {
    // Never destroyed: threads that still run at process exit may log.
    static auto* const shared = new Outlets;
    return *shared;
}

std::string withoutLineEnd(const std::string& text) {
    const auto last = text.find_last_not_of('\n');
    return last == std::string::npos ? std::string{} : text.substr(0, last + 1);
}

// Copies the sink first, because it may replace itself while it runs.
void toSystemLog(Outlets& shared, const std::string& text, int priority) {
    if (const SystemLogSink sink = shared.systemLog) {
        sink(text);
    } else {
        ::syslog(priority, "%s", withoutLineEnd(text).c_str());
    }
}

void toStandardError(Outlets& shared, const std::string& text) {
    if (const SystemLogSink sink = shared.standardError) {
        sink(text);
    } else {
        // A printer's texts are part of many lines and must not control the terminal.
        const std::string line = printable(withoutLineEnd(text)) + '\n';
        std::cerr.write(line.data(), static_cast<std::streamsize>(line.size())).flush();
    }
}

} // namespace

void systemLog(const std::string& text) {
    Outlets& shared = outlets();
    const std::scoped_lock lock(shared.mutex);
    toSystemLog(shared, text, LOG_NOTICE);
    if (shared.verbose) toStandardError(shared, text);
}

void standardErrorLog(const std::string& text) {
    Outlets& shared = outlets();
    const std::scoped_lock lock(shared.mutex);
    toStandardError(shared, text); // only once, even if the system log is repeated on standard error
    toSystemLog(shared, text, LOG_ERR);
}

void setSystemLogSink(SystemLogSink sink) {
    const std::scoped_lock lock(outlets().mutex);
    outlets().systemLog = std::move(sink);
}

void setStandardErrorSink(SystemLogSink sink) {
    const std::scoped_lock lock(outlets().mutex);
    outlets().standardError = std::move(sink);
}

void setSystemLogVerbose(bool verbose) {
    const std::scoped_lock lock(outlets().mutex);
    outlets().verbose = verbose;
}

} // namespace zul
