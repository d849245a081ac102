// Included in every target. The scripted interface asserts through the test framework; here no test case is running, so
// a failure ends the process. Logs are off, because they would take most of a run's time.
#define DOCTEST_CONFIG_IMPLEMENT
#include <cstdlib>
#include <doctest/doctest.h>

#include "holven_log/HOLVEN_Log.h"
#include "platform/foundation/SystemLog.h"

namespace {

struct Start {
    Start() {
        zul::HOLVEN_Log::setShouldLogToStdErr(false);
        zul::setSystemLogSink([](const std::string&) {});
        zul::setStandardErrorSink([](const std::string&) {});
        context.setAsDefaultForAssertsOutOfTestCases();
        context.setAssertHandler([](const doctest::AssertData& data) {
            if (data.m_failed) std::abort();
        });
    }
    doctest::Context context;
};
const Start start;

} // namespace
