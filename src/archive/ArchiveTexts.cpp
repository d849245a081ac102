// Converts problems to sentences: each names the file, and its remedy the command that fixes the problem.
// Called by the command line, the window and the diagnosis; any thread.
#include "archive/ArchiveTexts.h"

#include "archive/FirmwareArchive.h"
#include "platform/foundation/Bundle.h"
#include "platform/foundation/LocalizedFormat.h"
#include "platform/foundation/ShellWord.h"

#include <string>

namespace zul {

namespace fs = std::filesystem;

namespace {

using Kind = ArchiveProblem::Kind;

// The text into which a problem's file name and folder are inserted.
const char* sentenceOf(Kind kind) {
    switch (kind) {
    case Kind::fileMissing:
        return operatorText("%s is missing in %s");
    case Kind::fileUnreadable:
    case Kind::digestsUnreadable:
        return operatorText("%s in %s cannot be read");
    case Kind::fileNotRegular:
        return operatorText("%s in %s is not a file");
    case Kind::fileWithoutDigest:
        return operatorText("%s in %s has no digest and cannot be verified");
    case Kind::fileDiffers:
        return operatorText("%s in %s is damaged: it does not match its digest");
    case Kind::firmwareNotSRecords:
        return operatorText("%s in %s is not a firmware image, although it matches its digest");
    case Kind::digestsMissing:
        return operatorText("%s is missing in %s: the firmware files cannot be verified");
    case Kind::digestsDamaged:
        return operatorText("%s in %s is damaged: the firmware files cannot be verified");
    case Kind::noFolder:
    case Kind::noFilesForModel:
        break;
    }
    return "";
}

std::string copyAgain(const ArchiveProblem& problem) {
    // A listed digest decides whether the copy is correct; never replace it with the copy's own digest.
    if (problem.hasDigest) {
        return localizedFormat("Copy it from the vendor's download into %s, then run: zulctl archive verify %s",
                               problem.folder.string(), shellWord(problem.folder));
    }
    return localizedFormat("Copy it from the vendor's download into %s, then run: zulctl archive digest %s",
                           problem.folder.string(), shellWord(problem.folder));
}

} // namespace

std::string messageOf(const ArchiveProblem& problem) {
    if (problem.kind == Kind::noFilesForModel) {
        return Bundle::localized(operatorText("There are no firmware files for this model"));
    }
    if (problem.kind == Kind::noFolder) {
        return problem.path.empty()
                   ? Bundle::localized(operatorText("There is no folder with firmware files"))
                   : localizedFormat("The folder %s with the firmware files is missing", problem.path.string());
    }
    // All of these have the file's name and its folder, in this order.
    const char* sentence = sentenceOf(problem.kind);
    return localizedFormat(sentence, problem.path.filename().string(), problem.path.parent_path().string());
}

std::string remedyOf(const ArchiveProblem& problem) {
    if (problem.kind == Kind::noFilesForModel) return "";
    if (problem.isOwnArchive) {
        return Bundle::localized(operatorText("It came with this program: install the program again."));
    }
    switch (problem.kind) {
    case Kind::noFolder:
        return Bundle::localized(operatorText("Name the folder with the vendor's files: --firmware-archive DIR"));
    case Kind::digestsMissing:
    case Kind::digestsDamaged:
    case Kind::fileWithoutDigest:
        return localizedFormat("Make sure that the files are the vendor's, then run: zulctl archive digest %s",
                               shellWord(problem.folder));
    case Kind::digestsUnreadable:
    case Kind::fileUnreadable:
        return localizedFormat("Copy it from the vendor's download again, or make it readable: chmod a+r %s",
                               shellWord(problem.path));
    default:
        return copyAgain(problem);
    }
}

std::string describeProblem(const ArchiveProblem& problem) {
    const std::string remedy = remedyOf(problem);
    return messageOf(problem) + "." + (remedy.empty() ? "" : " " + remedy);
}

std::string availableText(const AvailableFirmware& available) {
    switch (available.state) {
    case AvailableFirmware::State::ready:
        break;
    case AvailableFirmware::State::missing:
        return localizedFormat("%s, file missing", available.version);
    case AvailableFirmware::State::unreadable:
        return localizedFormat("%s, file cannot be read", available.version);
    case AvailableFirmware::State::damaged:
        return localizedFormat("%s, file damaged", available.version);
    case AvailableFirmware::State::noDigest:
        return localizedFormat("%s, file not verified", available.version);
    }
    return available.version;
}

const char* nameOfAvailability(AvailableFirmware::State state) {
    switch (state) {
    case AvailableFirmware::State::ready:
        return "ready";
    case AvailableFirmware::State::missing:
        return "missing";
    case AvailableFirmware::State::unreadable:
        return "unreadable";
    case AvailableFirmware::State::damaged:
        return "damaged";
    case AvailableFirmware::State::noDigest:
        return "no digest";
    }
    return "unreadable";
}

const char* nameOfFileState(ArchiveFile::State state) {
    switch (state) {
    case ArchiveFile::State::matches:
        return "matches";
    case ArchiveFile::State::differs:
        return "differs";
    case ArchiveFile::State::noDigest:
        return "no digest";
    case ArchiveFile::State::missing:
        return "missing";
    case ArchiveFile::State::notAFile:
        return "not a file";
    case ArchiveFile::State::unreadable:
        return "unreadable";
    }
    return "unreadable";
}

} // namespace zul
