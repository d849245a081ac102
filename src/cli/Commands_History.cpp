// The command history: lists or dismisses the updates that both programs have recorded, from the history file. Starts
// no bus and waits for no printer. Runs on the main thread before any queue.
#include "cli/Commands.h"
#include "cli/ExitStatus.h"
#include "cli/Options.h"
#include "cli/Output.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/LocalTime.h"
#include "session/HistoryOptions.h"
#include "update/ProcessIdentity.h"
#include "update/UpdateHistory.h"
#include "update/UpdateRecord.h"

#include <algorithm>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace zul::cli {

namespace {

using nlohmann::json;

// The state of an update in the history.
enum class Course { ended, underWay, interrupted, completedLater, dismissed };

Course courseOf(const UpdateRecord& record) {
    if (!record.verdicts.empty()) return Course::ended;
    if (record.closedBy) return *record.closedBy == 0 ? Course::dismissed : Course::completedLater;
    return isRunning(record.process) ? Course::underWay : Course::interrupted;
}

const char* nameOfCourse(Course course) {
    switch (course) {
    case Course::ended:
        return "ended";
    case Course::underWay:
        return "under way";
    case Course::interrupted:
        return "interrupted";
    case Course::completedLater:
        return "interrupted, completed later";
    case Course::dismissed:
        return "interrupted, dismissed";
    }
    return "";
}

std::string resultOf(const UpdateRecord& record) {
    return record.verdicts.empty() ? nameOfCourse(courseOf(record)) : record.verdicts.back().verdict;
}

// Up to the first verdict: a correction may come much later.
std::optional<double> secondsOf(const UpdateRecord& record) {
    if (record.verdicts.empty()) return std::nullopt;
    return static_cast<double>(record.verdicts.front().given - record.begun) / 1000;
}

std::optional<std::string> versionAfter(const UpdateRecord& record) {
    return record.verdicts.empty() ? std::nullopt : record.verdicts.back().versionAfter;
}

template <class Value> json orNull(const std::optional<Value>& value) {
    return value ? json(*value) : json(nullptr);
}

json jsonOfPhases(const UpdateRecord& record) {
    json phases = json::array();
    for (const UpdatePhaseTime& phase : record.phases) {
        const json duration = phase.duration ? json(static_cast<double>(*phase.duration) / 1000) : json(nullptr);
        phases.push_back({{"phase", phase.name}, {"begun", universalTimeText(phase.begun)}, {"elapsed", duration}});
    }
    return phases;
}

json jsonOfVerdicts(const UpdateRecord& record) {
    json verdicts = json::array();
    for (const RecordedVerdict& verdict : record.verdicts) {
        verdicts.push_back({{"given", universalTimeText(verdict.given)},
                            {"result", verdict.verdict},
                            {"success", verdict.isSuccess},
                            {"reason", verdict.reason},
                            {"version", orNull(verdict.versionAfter)},
                            {"tablesWritten", verdict.tablesWritten},
                            {"tables", verdict.tables},
                            {"retries", verdict.retries}});
    }
    return verdicts;
}

json jsonOf(const UpdateRecord& record) {
    return {{"id", record.id},
            {"begun", universalTimeText(record.begun)},
            {"printer", record.key},
            {"location", record.place},
            {"model", record.model},
            {"printerSerialNumber", record.serial},
            {"program", record.program},
            {"programVersion", record.programVersion},
            {"user", record.user},
            {"process", {{"pid", record.process.pid}, {"boot", record.process.boot}, {"begun", record.process.begun}}},
            {"firmwareArchive", record.archiveFolder},
            {"digests", record.digests},
            {"firmwareBefore", orNull(record.versionBefore)},
            {"firmwareOffered", orNull(record.versionAvailable)},
            {"firmwareAfter", orNull(versionAfter(record))},
            {"course", nameOfCourse(courseOf(record))},
            {"result", resultOf(record)},
            {"elapsed", orNull(secondsOf(record))},
            {"phases", jsonOfPhases(record)},
            {"verdicts", jsonOfVerdicts(record)},
            {"closedBy", orNull(record.closedBy)}};
}

std::string orDash(const std::string& text) {
    return text.empty() ? "-" : text;
}

std::string durationText(std::optional<double> seconds) {
    if (!seconds) return "-";
    const auto whole = static_cast<std::int64_t>(*seconds + 0.5);
    return whole < 60 ? formatted("%.1f s", *seconds) : formatted("%d min %.2d s", whole / 60, whole % 60);
}

// Shows only a version that was read after the update: the planned version is not a result.
std::vector<std::string> rowOf(const UpdateRecord& record) {
    const std::string after = versionAfter(record).value_or("-");
    std::string result = resultOf(record);
    if (record.verdicts.size() > 1) result += formatted(" (first judged: %s)", record.verdicts.front().verdict);
    std::vector<std::string> row = {localTimeText(record.begun),
                                    orDash(record.serial.empty() ? record.key : record.serial),
                                    orDash(record.place),
                                    orDash(record.model),
                                    record.versionBefore.value_or("-"),
                                    after,
                                    durationText(secondsOf(record)),
                                    result};
    // An empty last cell would only add trailing blanks.
    if (!record.verdicts.empty() && !record.verdicts.back().reason.empty())
        row.push_back(record.verdicts.back().reason);
    return row;
}

std::string recordedName(const UpdateRecord& record) {
    if (!record.serial.empty()) return record.serial;
    return record.key.empty() ? "PRINTER" : record.key;
}

void showTable(const std::vector<UpdateRecord>& records, const Output& output) {
    std::vector<std::vector<std::string>> rows = {
        {"TIME", "PRINTER", "LOCATION", "MODEL", "FROM", "TO", "DURATION", "RESULT", "REASON"}};
    for (const UpdateRecord& record : records) rows.push_back(rowOf(record));
    output.table(rows);
    for (const UpdateRecord& record : records) {
        // Below the table, so that each command is on a line that can be copied.
        if (courseOf(record) != Course::interrupted) continue;
        output.line(formatted("The update of %s of %s was interrupted. Start it again to complete it: zulctl update %s",
                              orDash(recordedName(record)), localTimeText(record.begun), recordedName(record)));
    }
}

// Without this, an update of a printer that was scrapped would be reported for ever.
int dismiss(UpdateHistory& history, const std::vector<UpdateRecord>& records, const Options& options,
            const Output& output) {
    // Failed updates wait to be completed, too, like interrupted ones.
    const UpdateHistory::Records failed = history.lastFailures();
    if (!failed.problem.empty()) {
        output.problem(failed.problem, kFailed);
        return kFailed;
    }
    int count = 0;
    for (const UpdateRecord& record : records) {
        const auto isThis = [&](const UpdateRecord& one) { return one.id == record.id; };
        if (courseOf(record) != Course::interrupted && std::ranges::none_of(failed.records, isThis)) continue;
        if (const std::string problem = history.dismiss(record.id); !problem.empty()) {
            output.problem(problem, kFailed);
            return kFailed;
        }
        ++count;
    }
    if (output.isJson()) {
        output.document({{"dismissed", count}});
    } else {
        output.line(count == 0 ? formatted("No update of %s waits to be completed.", options.printer)
                               : formatted("Dismissed updates of %s: %d. They need not be completed any more.",
                                           options.printer, count));
    }
    return kDone;
}

} // namespace

int runHistory(const Options& options, const Output& output) {
    UpdateHistory history(historyOptions(options));
    UpdateHistory::Records found = history.records({.printer = options.printer, .since = options.since});
    if (!found.problem.empty()) {
        output.problem(found.problem, kFailed);
        return kFailed;
    }
    if (options.dismiss) return dismiss(history, found.records, options, output);
    // The newest row comes last, next to the prompt, because that is the one people look for.
    std::ranges::reverse(found.records);
    if (output.isJson()) {
        json list = json::array();
        for (const UpdateRecord& record : found.records) list.push_back(jsonOf(record));
        output.document(list);
    } else if (!found.records.empty()) {
        showTable(found.records, output);
    } else if (options.printer.empty() && !options.since) {
        output.line("No update has been recorded yet in " + history.file().string() + ".");
    } else {
        output.line("No recorded update fits.");
    }
    return kDone;
}

} // namespace zul::cli
