// The state of the log: initial values, outlets, switches and observers.
// Any thread; the state is guarded by its lock.
#include "holven_Base/HostProbe.h"
#include "holven_log/HOLVEN_Log.h"
#include "holven_log/HOLVEN_LogState.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/PrintableText.h"

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace zul {

HOLVEN_Log::Outside HOLVEN_Log::systemOutside() {
    return {.now = [] { return std::chrono::system_clock::now(); },
            .standardError =
                [](const std::string& text) {
                    const std::string shown = printable(text);
                    // Through the C++ stream, because a program may have given it a writer thread.
                    std::cerr.write(shown.data(), static_cast<std::streamsize>(shown.size())).flush();
                },
            .reopenStandardError =
                [](const std::string& path) {
                    if (std::freopen(path.c_str(), "a", stderr) == nullptr) {
                        logText("cannot send standard error to %s", path);
                        return;
                    }
                    // Unbuffered: text written just before an abort must not be lost.
                    std::setvbuf(stderr, nullptr, _IONBF, 0);
                },
            .sleepForEver =
                [] {
                    for (;;) std::this_thread::sleep_for(std::chrono::hours(24));
                },
            .exit = [](int status) { std::exit(status); }};
}

void HOLVEN_Log::initialize(State& log) {
    if (log.file != nullptr) std::fclose(log.file);
    log.file = nullptr;
    log.applicationName = HostProbe::current().processName();
    log.logFilePath.reset();
    log.pending = std::string{};
    log.pendingCharacters = 0;
    log.hasLostLines = false;
    log.notifiesForUpdates = false;
    log.logsToStandardError = true;
    log.logsApplicationName = false;
    log.observers.clear();
}

HOLVEN_Log::State& HOLVEN_Log::state() {
    // Never destroyed: threads that still run at process exit may log.
    static State* const shared = [] {
        auto* const log = new State;
        log->outside = systemOutside();
        initialize(*log);
        return log;
    }();
    return *shared;
}

void HOLVEN_Log::reset(Outside outside) {
    State& log = state();
    const std::scoped_lock lock(log.mutex);
    log.outside = std::move(outside);
    initialize(log);
}

void HOLVEN_Log::setShouldNotifyForLogUpdates(bool notify) {
    const std::scoped_lock lock(state().mutex);
    state().notifiesForUpdates = notify;
}

void HOLVEN_Log::setShouldLogToStdErr(bool log) {
    const std::scoped_lock lock(state().mutex);
    state().logsToStandardError = log;
}

void HOLVEN_Log::setShouldLogAppName(bool log) {
    const std::scoped_lock lock(state().mutex);
    state().logsApplicationName = log;
}

void HOLVEN_Log::setApplicationName(const std::string& name) {
    const std::scoped_lock lock(state().mutex);
    state().applicationName = name;
}

std::uint32_t HOLVEN_Log::addObserver(Observer observer) {
    State& log = state();
    const std::scoped_lock lock(log.mutex);
    log.observers.emplace_back(log.nextObserver, std::move(observer));
    return log.nextObserver++;
}

void HOLVEN_Log::removeObserver(std::uint32_t observer) {
    State& log = state();
    const std::scoped_lock lock(log.mutex);
    std::erase_if(log.observers, [&](const auto& entry) { return entry.first == observer; });
}

} // namespace zul
