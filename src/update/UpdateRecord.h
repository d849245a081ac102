// What the history keeps of one update. Plain values. Times are milliseconds since 1970 by the caller's wall clock;
// texts are UTF-8, and what is not is repaired when it is stored.
#pragma once

#include "update/ProcessIdentity.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace zul {

/// One phase of an update. A phase that comes twice is there twice.
struct UpdatePhaseTime {
    std::string name{};
    std::int64_t begun = 0;
    std::optional<std::int64_t> duration{}; // ms; nullopt while the phase lasts
    bool operator==(const UpdatePhaseTime&) const = default;
};

/// How an update ended, as far as was known when the verdict was given.
struct RecordedVerdict {
    std::int64_t given = 0;
    std::string verdict{}; // the name that programs use
    bool isSuccess = false;
    std::string reason{}; // for people; may be empty
    std::optional<std::string> versionAfter{};
    std::int64_t tablesWritten = 0; // of tables
    std::int64_t tables = 0;
    std::int64_t retries = 0;
    bool operator==(const RecordedVerdict&) const = default;
};

/// The verdict on an update whose printer did not take the order to enter its loader.
inline constexpr const char* kRefusedVerdict = "command refused";

struct UpdateRecord {
    std::int64_t begun = 0;
    std::string key{};   // of the printer: keyUSBdevice
    std::string place{}; // where it is attached, for people: "1-4"
    std::string model{};
    std::string serial{};
    std::string program{};
    std::string programVersion{};
    std::string user{};
    std::string archiveFolder{};
    std::map<std::string, std::string> digests{}; // of the archive's files, by their names
    std::optional<std::string> versionBefore{};
    std::optional<std::string> versionOffered{};

    // Filled by the history.
    std::int64_t id = 0;
    ProcessIdentity process{};
    std::vector<UpdatePhaseTime> phases{};   // in the order in which they were added
    std::vector<RecordedVerdict> verdicts{}; // the first one, then its corrections; empty: the update has no end
    std::optional<std::int64_t> closedBy{};  // the record that completed this one; 0: dismissed

    /// A command had been sent: an end here may have left the printer without working firmware or tables.
    bool hasSentCommands() const { return !phases.empty() && phases.back().name != "checking"; }

    /// It has ended, and the printer did not take the order to enter its loader: the printer is as it was.
    bool wasRefused() const { return !verdicts.empty() && verdicts.back().verdict == kRefusedVerdict; }

    bool operator==(const UpdateRecord&) const = default;
};

/// Whether two records are about the same printer. A serial number belongs to one printer of a model; a key belongs to
/// a place, where another printer may be by now, and decides where a serial number is not known.
bool isSamePrinter(const UpdateRecord& one, const UpdateRecord& other);

} // namespace zul
