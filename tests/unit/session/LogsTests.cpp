// The output of the programs' logs on standard error.
#include "holven_log/HOLVEN_Log.h"
#include "platform/foundation/SystemLog.h"
#include "session/Logs.h"
#include "support/StandardErrorCapture.h"
#include "support/TemporaryFolder.h"

#include <doctest/doctest.h>

using namespace zul;

namespace {

// Opens the logs as a program does, and restores them afterwards.
struct OpenedLogs {
    explicit OpenedLogs(const SessionOptions& options) : problem(openLogs(options, "lab")) {
        setSystemLogSink([this](const std::string& text) { systemLog += text; });
    }
    ~OpenedLogs() {
        setSystemLogSink(nullptr);
        setSystemLogVerbose(false);
        HOLVEN_Log::reset();
        HOLVEN_Log::setShouldLogToStdErr(false);
    }
    std::optional<SessionProblem> problem;
    std::string systemLog;
};

} // namespace

TEST_CASE("an error of a driver is written to standard error once, with and without -v, and to the system log") {
    for (const bool verbose : {false, true}) {
        CAPTURE(verbose);
        const StandardErrorCapture standardError;
        SessionOptions options;
        options.verbose = verbose;
        OpenedLogs logs(options);
        standardErrorLog("ERROR: QueryInterface() returned [-1]\n");
        CHECK(standardError.text() == "ERROR: QueryInterface() returned [-1]\n");
        CHECK(logs.systemLog == "ERROR: QueryInterface() returned [-1]\n");
    }
}

TEST_CASE("the system log is repeated on standard error with -v only") {
    for (const bool verbose : {false, true}) {
        CAPTURE(verbose);
        const StandardErrorCapture standardError;
        SessionOptions options;
        options.verbose = verbose;
        OpenedLogs logs(options);
        systemLog("a line\n");
        CHECK(standardError.text() == (verbose ? "a line\n" : ""));
        CHECK(logs.systemLog == "a line\n");
    }
}

TEST_CASE("with a log file an error of a driver still goes to standard error, and not into the file") {
    const TemporaryFolder folder;
    const StandardErrorCapture standardError;
    SessionOptions options;
    options.logFile = (folder / "log").string();
    OpenedLogs logs(options);
    CHECK_FALSE(logs.problem);
    standardErrorLog("ERROR: text\n");
    HOLVEN_Log::debug("traffic");
    CHECK(standardError.text() == "ERROR: text\n");
    const std::string file = TemporaryFolder::read(folder / "log");
    CHECK(file.find("traffic") != std::string::npos);
    CHECK(file.find("ERROR") == std::string::npos);
}

TEST_CASE("a log that cannot be opened is a problem that names the file") {
    const TemporaryFolder folder;
    SessionOptions options;
    options.logFile = folder.path.string();
    const OpenedLogs logs(options);
    REQUIRE(logs.problem);
    CHECK(logs.problem->message.find(folder.path.string()) != std::string::npos);
    CHECK_FALSE(logs.problem->isWrongUsage);
}
