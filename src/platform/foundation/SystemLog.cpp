// One recursive lock around every delivery: texts of several threads never mix, a sink need not lock, a sink may log
// itself, and once a sink has been replaced it is not running any more.
#include "platform/foundation/SystemLog.h"

#include "platform/foundation/PrintableText.h"

#include <iostream>
#include <mutex>
#include <syslog.h>

namespace zul {

namespace {

struct Outlets {
    std::recursive_mutex mutex;
    SystemLogSink systemLog;
    SystemLogSink standardError;
    bool verbose = false;
};

Outlets& outlets() {
    // Never destroyed: threads that still run when the program ends may log.
    static auto* const shared = new Outlets;
    return *shared;
}

std::string withoutLineEnd(const std::string& text) {
    const auto last = text.find_last_not_of('\n');
    return last == std::string::npos ? std::string{} : text.substr(0, last + 1);
}

// The sink is copied first: it may replace itself while it runs.
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
    toStandardError(shared, text); // once, however talkative the system log is
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
