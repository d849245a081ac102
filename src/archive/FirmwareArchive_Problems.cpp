// Finds the available firmware of a model and the reasons why it cannot be installed.
// Called by the programs before an update starts; any thread.
#include "archive/FirmwareArchive.h"
#include "archive/FirmwareDigests.h"
#include "archive/ProductTable.h"
#include "platform/foundation/Bundle.h"

#include <filesystem>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

namespace zul {

namespace fs = std::filesystem;

namespace {

using Kind = ArchiveProblem::Kind;

std::optional<Kind> kindOf(ArchiveFile::State state) {
    switch (state) {
    case ArchiveFile::State::matches:
        return std::nullopt;
    case ArchiveFile::State::differs:
        return Kind::fileDiffers;
    case ArchiveFile::State::noDigest:
        return Kind::fileWithoutDigest;
    case ArchiveFile::State::missing:
        return Kind::fileMissing;
    case ArchiveFile::State::notAFile:
        return Kind::fileNotRegular;
    case ArchiveFile::State::unreadable:
        return Kind::fileUnreadable;
    }
    return Kind::fileUnreadable;
}

} // namespace

bool FirmwareArchive::isImage(const ArchiveFile& file, const std::string& key) {
    const auto verified = verifiedFile(file.name, key);
    return verified && verified->isSRecordText();
}

// Problems of the folder and of the digest file: without them no file can be verified.
std::vector<ArchiveProblem> FirmwareArchive::problemsOfArchive(const FirmwareDigests& digests) const {
    const fs::path& folder = _bundle.archiveFolder();
    ArchiveProblem problem{.kind = Kind::noFolder, .path = folder, .folder = folder};
    problem.isOwnArchive = !folder.empty() && folder == _bundle.resourcesFolder() / "firmware";
    std::error_code error;
    if (folder.empty() || !fs::is_directory(folder, error)) return {problem};
    problem.path = folder / kDigestFileName;
    switch (digests.state) {
    case FirmwareDigests::State::read:
        return {};
    case FirmwareDigests::State::noFolder:
    case FirmwareDigests::State::missing:
        problem.kind = Kind::digestsMissing;
        break;
    case FirmwareDigests::State::unreadable:
        problem.kind = Kind::digestsUnreadable;
        break;
    case FirmwareDigests::State::damaged:
        problem.kind = Kind::digestsDamaged;
        break;
    }
    return {problem};
}

std::vector<ArchiveProblem> FirmwareArchive::problems(const Product* product, const std::string& key) {
    const fs::path folder = _bundle.archiveFolder();
    if (product == nullptr) return {{.kind = Kind::noFilesForModel, .folder = folder}};
    const ArchiveCheck survey = this->survey(*product, key);
    std::vector<ArchiveProblem> problems = problemsOfArchive(*survey.digests);
    // Without the folder every file is missing, which says no more.
    if (!problems.empty() && problems.front().kind == Kind::noFolder) return problems;
    const bool hasDigests = survey.digests->state == FirmwareDigests::State::read;
    for (const ArchiveFile& file : survey.files) {
        auto kind = kindOf(file.state);
        const bool isFirmware = &file == &survey.files.front();
        if (!kind && isFirmware && !isImage(file, key)) kind = Kind::firmwareNotSRecords;
        // A missing digest file is one problem, not one for each file.
        if (!kind || (kind == Kind::fileWithoutDigest && !hasDigests)) continue;
        problems.push_back({.kind = *kind,
                            .path = file.path,
                            .folder = folder,
                            .hasDigest = !survey.digests->digestOf(file.name).empty(),
                            .isOwnArchive = folder == _bundle.resourcesFolder() / "firmware"});
    }
    return problems;
}

AvailableFirmware FirmwareArchive::available(const Product& product, const std::string& key) {
    using State = AvailableFirmware::State;
    const std::string name(product.files.front());
    const ArchiveFile file = lookAt(name, key, digests()->digestOf(name));
    AvailableFirmware available{.version = fs::path(name).stem().string()};
    switch (file.state) {
    case ArchiveFile::State::matches:
        available.state = isImage(file, key) ? State::ready : State::damaged;
        break;
    case ArchiveFile::State::differs:
        available.state = State::damaged;
        break;
    case ArchiveFile::State::noDigest:
        available.state = State::noDigest;
        break;
    case ArchiveFile::State::missing:
        available.state = State::missing;
        break;
    case ArchiveFile::State::notAFile:
    case ArchiveFile::State::unreadable:
        available.state = State::unreadable;
        break;
    }
    return available;
}

} // namespace zul
