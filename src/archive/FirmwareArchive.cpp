// Reads, verifies and keeps the files of the archive. Called in parallel on the printers' command queues for
// verification, and by the programs on the main queue.
#include "archive/FirmwareArchive.h"

#include "archive/FirmwareDigests.h"
#include "archive/FirmwareFile.h"
#include "archive/KeyedDigest.h"
#include "archive/ProductTable.h"
#include "platform/files/FileReader.h"
#include "platform/foundation/Bundle.h"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

namespace zul {

namespace fs = std::filesystem;

FirmwareArchive::FirmwareArchive(const Bundle& bundle, std::shared_ptr<const FileReader> reader)
    : _bundle(bundle), _reader(reader ? std::move(reader) : std::make_shared<const FileReader>()) {}

std::shared_ptr<FirmwareArchive::Entry> FirmwareArchive::entryOf(const std::string& name, const std::string& key) {
    const std::scoped_lock lock(_entriesMutex);
    auto& entry = _entries[{name, key}];
    // Shared, so that a file can be read without the lock of the map: reading takes long.
    if (!entry) entry = std::make_shared<Entry>();
    return entry;
}

// Where the file is, or where it should be if it is missing.
fs::path FirmwareArchive::pathOf(const std::string& name) const {
    const fs::path file(name);
    const std::string extension = file.extension().string();
    const auto found =
        _bundle.pathForResource(file.stem().string(), extension.empty() ? extension : extension.substr(1));
    if (found) return *found;
    return _bundle.archiveFolder().empty() ? fs::path{} : _bundle.archiveFolder() / name;
}

std::shared_ptr<const FirmwareDigests> FirmwareArchive::digests() {
    const std::scoped_lock lock(_digestsMutex);
    const fs::path& folder = _bundle.archiveFolder();
    // The digest file is read again only when it was replaced or written to, like the firmware files.
    const bool isKnown =
        _digestsIdentity && !folder.empty() && _reader->identityOf(folder / kDigestFileName) == _digestsIdentity;
    if (!isKnown) {
        _digests = std::make_shared<const FirmwareDigests>(readFirmwareDigests(folder, *_reader, _digestsIdentity));
    }
    return _digests;
}

// ---- verification ---------------------------------------------------------------------------------------------------

ArchiveFile FirmwareArchive::lookAt(const std::string& name, const std::string& key,
                                    const std::string& expectedDigest) {
    ArchiveFile file{.name = name, .path = pathOf(name)};
    const auto entry = entryOf(name, key);
    const std::scoped_lock lock(entry->mutex);
    judge(file, *entry, key, expectedDigest);
    // From then on fileForReading() reads again instead of returning bytes of a file that was removed.
    entry->isGone = !file.wasRead();
    return file;
}

void FirmwareArchive::judge(ArchiveFile& file, Entry& entry, const std::string& key,
                            const std::string& expectedDigest) const {
    using State = ArchiveFile::State;
    const auto stateFor = [&](const std::string& digest) {
        if (expectedDigest.empty()) return State::noDigest;
        return digest == expectedDigest ? State::matches : State::differs;
    };
    if (file.path.empty()) return; // missing
    if (entry.identity && _reader->identityOf(file.path) == entry.identity) {
        file.digest = entry.digest;
        file.state = stateFor(file.digest);
        // The digest was supplied after the file was read, so its contents were not kept.
        if (file.state != State::matches || (entry.verified && entry.verifiedDigest == file.digest)) return;
    }
    FileReading reading = _reader->read(file.path);
    entry.identity = reading.identity;
    entry.digest.clear();
    file.digest.clear();
    switch (reading.result) {
    case FileResult::missing:
        file.state = State::missing;
        return;
    case FileResult::notAFile:
        file.state = State::notAFile;
        return;
    case FileResult::unreadable:
        file.state = State::unreadable;
        return;
    case FileResult::tooLarge:
        file.state = expectedDigest.empty() ? State::noDigest : State::differs;
        return;
    case FileResult::contents:
        break;
    }
    // An empty file has no digest, so it never matches.
    entry.digest = reading.contents.empty() ? std::string() : keyedDigest(key, reading.contents);
    file.digest = entry.digest;
    file.state = stateFor(file.digest);
    if (file.state != State::matches || (entry.verified && entry.verifiedDigest == file.digest)) return;
    entry.verified = std::make_shared<const FirmwareFile>(std::move(reading.contents));
    entry.verifiedDigest = file.digest;
}

ArchiveCheck FirmwareArchive::check(const Product& product, const std::string& key) {
    ArchiveCheck result{.files = {}, .digests = digests()};
    for (const std::string_view name : product.files) {
        const std::string expected = result.digests->digestOf(std::string(name));
        const ArchiveFile& file = result.files.emplace_back(lookAt(std::string(name), key, expected));
        if (!file.wasRead()) continue; // a missing file is not a failure: the next one decides
        result.hasPassed = file.state == ArchiveFile::State::matches;
        if (!result.hasPassed) break;
    }
    return result;
}

ArchiveCheck FirmwareArchive::survey(const Product& product, const std::string& key) {
    ArchiveCheck result{.files = {}, .digests = digests()};
    for (const std::string_view name : product.files) {
        const std::string expected = result.digests->digestOf(std::string(name));
        result.files.push_back(lookAt(std::string(name), key, expected));
    }
    result.hasPassed = std::ranges::all_of(
        result.files, [](const ArchiveFile& file) { return file.state == ArchiveFile::State::matches; });
    return result;
}

// ---- contents -------------------------------------------------------------------------------------------------------

std::shared_ptr<const FirmwareFile> FirmwareArchive::verifiedFile(const std::string& name, const std::string& key) {
    const auto entry = entryOf(name, key);
    const std::scoped_lock lock(entry->mutex);
    return entry->verified;
}

std::shared_ptr<const FirmwareFile> FirmwareArchive::fileForReading(const std::string& name, const std::string& key) {
    const auto entry = entryOf(name, key);
    {
        const std::scoped_lock lock(entry->mutex);
        // Even if the file differs by now: these are the bytes that an update would send.
        if (entry->verified && !entry->isGone) return entry->verified;
    }
    const fs::path path = pathOf(name);
    if (path.empty()) return nullptr;
    FileReading reading = _reader->read(path);
    if (reading.result != FileResult::contents) return nullptr;
    return std::make_shared<const FirmwareFile>(std::move(reading.contents));
}

} // namespace zul
