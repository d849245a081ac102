// What the archive's problems and offers are called, in the operator's language. Shared by the command line and the
// window. Any thread.
#pragma once

#include "archive/FirmwareArchive.h"

#include <string>

namespace zul {

/// One sentence without an end stop, with the file's name: "VK14_300_0161.cwd is missing in /srv/firmware".
std::string messageOf(const ArchiveProblem& problem);
/// What to do about it. Where a command puts it right, the text ends with the command, so that it can be copied.
std::string remedyOf(const ArchiveProblem& problem);
/// Both in one line.
std::string describeProblem(const ArchiveProblem& problem);

/// "VK14 01.61" or, when it cannot be installed, "VK14 01.61, file damaged".
std::string offerText(const FirmwareOffer& offer);
/// The name that JSON uses, never translated: "ready", "missing", "unreadable", "damaged", "no digest".
const char* nameOfOfferState(FirmwareOffer::State state);
/// The same for a file: "matches", "differs", "no digest", "missing", "not a file", "unreadable".
const char* nameOfFileState(ArchiveFile::State state);

} // namespace zul
