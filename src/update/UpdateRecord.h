// The record of one update in the history. Plain values. Times are milliseconds since 1970 by the caller's wall clock.
// Texts are UTF-8; invalid bytes are replaced when a text is stored.
#pragma once

#include "update/ProcessIdentity.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace zul {

/// One phase of an update. A phase that occurs twice has two entries.
struct UpdatePhaseTime {
    std::string name{}; // in the phase table
    std::int64_t begun = 0;
    std::optional<std::int64_t> duration{}; // ms; nullopt while the phase lasts
    bool operator==(const UpdatePhaseTime&) const = default;
};

/// How an update ended, as far as was known when the verdict was given.
struct RecordedVerdict {
    std::int64_t given = 0;
    std::string verdict{}; // name of the result: nameOfResult()
    bool isSuccess = false;
    std::string reason{};                      // for the operator; may be empty
    std::optional<std::string> versionAfter{}; // firmware version; nullopt if it was not read
    std::int64_t tablesWritten = 0;
    std::int64_t tables = 0;  // that had to be written
    std::int64_t retries = 0; // images that were sent after the first one
    bool operator==(const RecordedVerdict&) const = default;
};

/// The verdict on an update whose printer did not take the command to enter its loader.
inline constexpr const char* kRefusedVerdict = "command refused";

/// One update, from its begin to its verdicts.
struct UpdateRecord {
    std::int64_t begun = 0;
    std::string key{};   // of the printer: keyUSBdevice
    std::string place{}; // USB location for the operator: "1-4"
    std::string model{};
    std::string serial{};
    std::string program{};
    std::string programVersion{};
    std::string user{};
    std::string archiveFolder{};
    std::map<std::string, std::string> digests{}; // of the archive's files, by their names
    std::optional<std::string> versionBefore{};
    std::optional<std::string> versionAvailable{};

    // Filled by the history.
    std::int64_t id = 0;
    ProcessIdentity process{};
    std::vector<UpdatePhaseTime> phases{};   // in the order in which they were added
    std::vector<RecordedVerdict> verdicts{}; // the first one, then its corrections; empty: it has not ended
    std::optional<std::int64_t> closedBy{};  // id of the record that completed this one; 0: dismissed

    /// The last phase is one after the first command: an update that ended in it may have left the printer without
    /// working firmware or tables.
    bool hasSentCommands() const { return !phases.empty() && phases.back().name != "checking"; }

    /// The update has ended because the printer did not take the command to enter its loader: the printer is unchanged.
    bool wasRefused() const { return !verdicts.empty() && verdicts.back().verdict == kRefusedVerdict; }

    bool operator==(const UpdateRecord&) const = default;
};

/// Whether two records are about the same printer. Compares serial number and model, because a serial number belongs to
/// one printer of a model. Compares the keys if one of the serial numbers is not known: a key belongs to a place, where
/// another printer may be attached by now. A model that is not known matches every model.
bool isSamePrinter(const UpdateRecord& one, const UpdateRecord& other);

} // namespace zul
