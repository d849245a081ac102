// The firmware files of a run: read once, verified, and returned as the very bytes that were verified. One object per
// run, created before the printers; all printers of the run share it, so a file that several need is read only once.
//
// A file is read again only after it was replaced or written to (its device, inode, size or times differ); the next
// check then verifies the new contents. The contents of the last matching check are kept until the run ends: one
// version per file, and only for models that were checked. Contents that do not match are not kept.
//
// Any thread. Calls for the same file wait for each other, calls for different files do not. No operation logs.
#pragma once

#include "archive/FirmwareDigests.h"
#include "archive/FirmwareFile.h"
#include "archive/ProductTable.h"
#include "platform/files/FileReader.h"

#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zul {

class Bundle;

/// The result of checking one file of a product's row.
struct ArchiveFile {
    enum class State { matches, differs, noDigest, missing, notAFile, unreadable };

    std::string name;
    std::filesystem::path path; // where the file is, or where it should be
    State state = State::missing;
    std::string digest = {}; // of the contents; empty for an empty file and if no contents were read

    /// True if the file's contents were read and compared.
    bool wasRead() const { return state == State::matches || state == State::differs || state == State::noDigest; }
};

/// The result of checking a product's row.
struct ArchiveCheck {
    std::vector<ArchiveFile> files; // of the row, up to the first file that was read and does not match
    std::shared_ptr<const FirmwareDigests> digests;
    /// The last readable file matched; false if no file could be read.
    bool hasPassed = false;
};

/// A reason why an update of a model could not succeed. Its texts are in ArchiveTexts.h.
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
        firmwareNotSRecords // although the file matches its digest
    };

    Kind kind;
    std::filesystem::path path = {};   // the file or folder in question
    std::filesystem::path folder = {}; // the archive folder
    bool hasDigest = false;            // the digest file lists the file
    bool isOwnArchive = false;         // the archive installed with the program
};

/// The firmware version that is available for a model.
struct AvailableFirmware {
    enum class State { ready, missing, unreadable, damaged, noDigest };

    std::string version; // the firmware file's name without its extension: "VK14 01.61"
    State state = State::missing;

    bool isReady() const { return state == State::ready; } // verified, and an image
};

class FirmwareArchive {
  public:
    /// bundle: knows the folders; must outlive the archive. reader: null for the real file system.
    explicit FirmwareArchive(const Bundle& bundle, std::shared_ptr<const FileReader> reader = nullptr);
    FirmwareArchive(const FirmwareArchive&) = delete;
    FirmwareArchive& operator=(const FirmwareArchive&) = delete;

    /// Compares the row's files in order with their digests (keyed with key). Skips files that cannot be read; stops at
    /// the first file that does not match.
    ArchiveCheck check(const Product& product, const std::string& key);
    /// Checks every file of the row, whatever the results of the others.
    ArchiveCheck survey(const Product& product, const std::string& key);

    /// The contents read by the last matching check of this run, even if the file was removed since; null without a
    /// matching check. All data sent to a printer comes from here.
    std::shared_ptr<const FirmwareFile> verifiedFile(const std::string& name, const std::string& key);
    /// The verified contents, unless a later check found no file; otherwise the current file, unverified. Null if it
    /// cannot be read.
    std::shared_ptr<const FirmwareFile> fileForReading(const std::string& name, const std::string& key);

    /// All reasons why an update of the model could not succeed; empty without one. Null product: a model without a
    /// row.
    std::vector<ArchiveProblem> problems(const Product* product, const std::string& key);
    /// Checks only the model's firmware file.
    AvailableFirmware available(const Product& product, const std::string& key);

  private:
    /// What is known about one file. Its mutex is locked while the file is read.
    struct Entry {
        std::mutex mutex;
        std::optional<FileIdentity> identity;         // of the file that digest belongs to; nullopt: read it again
        std::string digest;                           // of the contents read last
        std::string verifiedDigest;                   // of verified
        std::shared_ptr<const FirmwareFile> verified; // the contents that matched last
        bool isGone = false;                          // the last check found no file
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
