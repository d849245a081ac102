// The firmware files of a run: read once, verified, and handed out as the very bytes that were verified. One object per
// run, made before the printers; every printer of the run uses it, so a file that several need is read once for all.
//
// A file is read again only when another one has taken its place or it was written to (device, inode, size, times);
// then the next check judges the new contents. What the last matching check read is kept until the run ends: one
// content per file, and only of models that were asked for. Files that do not match are not kept.
//
// Any thread. Calls for one file wait for each other, calls for different files do not. Nothing here logs.
#pragma once

#include "archive/FirmwareDigests.h"
#include "archive/FirmwareFile.h"
#include "archive/ProductTable.h"
#include "platform/files/FileReader.h"

#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace zul {

class Bundle;

/// What a look at one file of a row found.
struct ArchiveFile {
    enum class State { matches, differs, noDigest, missing, notAFile, unreadable };

    std::string name;
    std::filesystem::path path; // where it is, or where it should be
    State state = State::missing;
    std::string digest = {}; // of what was read; empty for a file of no bytes and where nothing was read

    /// There is a file and its contents were judged.
    bool wasRead() const { return state == State::matches || state == State::differs || state == State::noDigest; }
};

struct ArchiveCheck {
    std::vector<ArchiveFile> files; // of the row, up to and including the first that was read and does not match
    std::shared_ptr<const FirmwareDigests> digests;
    /// The last file that could be read matched; false when none could be.
    bool hasPassed = false;
};

/// What keeps an update of a model from ending well. Its texts are in ArchiveTexts.h.
struct ArchiveProblem {
    enum class Kind {
        noFilesForModel,
        noFolder,
        digestsMissing,
        digestsUnreadable,
        digestsDamaged,
        fileMissing,
        fileUnreadable,
        fileNotRegular, // a folder, a pipe, a device
        fileWithoutDigest,
        fileDiffers,
        firmwareNotSRecords // although it matches its digest
    };

    Kind kind;
    std::filesystem::path path = {};   // the file or folder in question
    std::filesystem::path folder = {}; // the archive
    bool hasDigest = false;            // the digest file knows the file
    bool isOwnArchive = false;         // the archive came with the program
};

/// The firmware version that the archive offers to a model.
struct FirmwareOffer {
    enum class State { ready, missing, unreadable, damaged, noDigest };

    std::string version; // the firmware file's name without its extension: "VK14 01.61"
    State state = State::missing;

    bool isReady() const { return state == State::ready; }
};

class FirmwareArchive {
  public:
    /// bundle: says where the files are; outlives the archive. reader: null for the system's own files.
    explicit FirmwareArchive(const Bundle& bundle, std::shared_ptr<const FileReader> reader = nullptr);
    FirmwareArchive(const FirmwareArchive&) = delete;
    FirmwareArchive& operator=(const FirmwareArchive&) = delete;

    /// Verifies the row's files in order against their digests (keyed with key). Files that cannot be read are passed
    /// over; the first that does not match ends it, and later ones are not read.
    ArchiveCheck check(const Product& product, const std::string& key);
    /// The same of every file of the row, whatever the others are.
    ArchiveCheck survey(const Product& product, const std::string& key);

    /// The contents that the last matching check of this run read, even when the file has left since; null when no
    /// check has matched. What is sent to a printer comes from here and nowhere else.
    std::shared_ptr<const FirmwareFile> verifiedFile(const std::string& name, const std::string& key);
    /// verifiedFile, unless a later check found no file; otherwise the file as it is now, unverified. Null when it
    /// cannot be read.
    std::shared_ptr<const FirmwareFile> fileForReading(const std::string& name, const std::string& key);

    /// Everything that would keep an update of the model from ending well; empty when all is well. Null product: a
    /// model without a row.
    std::vector<ArchiveProblem> problems(const Product* product, const std::string& key);
    /// Looks at the model's firmware file alone.
    FirmwareOffer offer(const Product& product, const std::string& key);

  private:
    /// What is known about one file. Its mutex is held while the file is read.
    struct Entry {
        std::mutex mutex;
        std::optional<FileIdentity> identity;         // whose digest this is; nullopt: read it again
        std::string digest;                           // of what was read last
        std::string verifiedDigest;                   // of verified
        std::shared_ptr<const FirmwareFile> verified; // what matched last
        bool isGone = false;                          // the last look found no file
    };

    std::shared_ptr<Entry> entryOf(const std::string& name, const std::string& key);
    std::filesystem::path pathOf(const std::string& name) const;
    std::shared_ptr<const FirmwareDigests> digests();
    ArchiveFile lookAt(const std::string& name, const std::string& key, const std::string& expectedDigest);
    void judge(ArchiveFile& file, Entry& entry, const std::string& key, const std::string& expectedDigest) const;
    bool isImage(const ArchiveFile& file, const std::string& key);
    std::vector<ArchiveProblem> problemsOfArchive(const FirmwareDigests& digests) const;

    const Bundle& _bundle;
    const std::shared_ptr<const FileReader> _reader;

    std::mutex _entriesMutex;
    std::map<std::pair<std::string, std::string>, std::shared_ptr<Entry>> _entries; // by file name and key
    std::mutex _digestsMutex;
    std::optional<FileIdentity> _digestsIdentity;
    std::shared_ptr<const FirmwareDigests> _digests;
};

} // namespace zul
