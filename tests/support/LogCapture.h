// Collects the texts for the system log and for standard error while the object exists.
#pragma once

#include "platform/foundation/SystemLog.h"

#include <algorithm>
#include <string>
#include <vector>

namespace zul {

/// Sinks run one at a time, so the lists need no lock; read them when the queues are idle.
class LogCapture {
  public:
    LogCapture() {
        setSystemLogSink([this](const std::string& text) { systemLog.push_back(text); });
        setStandardErrorSink([this](const std::string& text) { standardError.push_back(text); });
    }
    ~LogCapture() {
        setSystemLogSink(nullptr);
        setStandardErrorSink(nullptr);
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    bool hasLogged(const std::string& text) const { return std::ranges::count(systemLog, text) > 0; }

    /// Whether any system log text contains part.
    bool has(const std::string& part) const { return times(part) > 0; }
    int times(const std::string& part) const {
        return static_cast<int>(std::ranges::count_if(
            systemLog, [&](const std::string& text) { return text.find(part) != std::string::npos; }));
    }

    std::vector<std::string> systemLog;
    std::vector<std::string> standardError;
};

} // namespace zul
