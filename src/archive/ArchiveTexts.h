// Texts for the problems and versions of the firmware archive, in the operator's language. Used by the command line and
// the window. Any thread.
#pragma once

#include "archive/FirmwareArchive.h"

#include <string>

namespace zul {

/// One sentence without a full stop, with the file's name: "VK14_300_0161.cwd is missing in /srv/firmware".
std::string messageOf(const ArchiveProblem& problem);
/// What to do about the problem. If a command fixes it, the text ends with the command, so that it can be copied.
std::string remedyOf(const ArchiveProblem& problem);
/// Message and remedy in one line.
std::string describeProblem(const ArchiveProblem& problem);

/// "VK14 01.61", or "VK14 01.61, file damaged" if it cannot be installed.
std::string availableText(const AvailableFirmware& available);
/// The name for JSON, never translated: "ready", "missing", "unreadable", "damaged", "no digest".
const char* nameOfAvailability(AvailableFirmware::State state);
/// The name of a file's state for JSON: "matches", "differs", "no digest", "missing", "not a file", "unreadable".
const char* nameOfFileState(ArchiveFile::State state);

} // namespace zul
