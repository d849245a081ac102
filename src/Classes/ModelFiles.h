// The firmware files of one printer's model: which they are, whether they are what was shipped, what they contain and
// offer. The run's FirmwareArchive reads and keeps them; the list of their names and the result of the last check are
// in the printer's device information. Any thread; files that are not known yet are read where the call is made.
#pragma once

#include "platform/foundation/Data.h"
#include "platform/foundation/OptionalText.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zul {

class FirmwareFile;
class TBUSBPrinterZUL;
struct ArchiveProblem;
struct FirmwareOffer;

class ModelFiles {
  public:
    /// The printer outlives it.
    explicit ModelFiles(TBUSBPrinterZUL& printer) : _printer(printer) {}

    /// Checks the model's files against their digests. True when the last file that could be read matched.
    bool verify();
    /// Stores the list of names, the firmware file first; at once when on the main queue, else at once as well and once
    /// more with notices from there.
    void setNames(const std::vector<std::string>& names);

    /// The firmware file, padded: the bytes that were verified last, or the file as it is now where no check of this
    /// run has matched. Null when it cannot be read.
    SharedData image() const;
    /// The firmware file, padded, as it was verified; it is not read again. Null if the last check did not match.
    SharedData verifiedImage() const;
    /// The names of the colour tables, in the order in which they are written; empty if the model has none.
    std::vector<std::string> tableNames() const;
    /// A table's bytes, from where image() has its own; never padded. Null when it cannot be read.
    SharedData table(const std::string& name) const;
    /// The same as it was verified. Null if the last check did not match.
    SharedData verifiedTable(const std::string& name) const;

    /// The version that the firmware file's name says ("VK18DUP 1.40PRN"); nullopt for an unknown product.
    OptionalText offeredVersion();
    /// The number in it (1.40); 0 without one.
    double offeredVersionNumber();
    /// The number in the version that the printer reported; 0 without one.
    double installedVersionNumber() const;
    /// The offered version and whether its file can be used; nullopt for an unknown product, and without an archive.
    std::optional<FirmwareOffer> offer() const;
    /// What keeps an update from ending well; empty when all is well.
    std::vector<ArchiveProblem> problems() const;

  private:
    std::optional<std::string> imageName() const;
    SharedData paddedImage(const std::shared_ptr<const FirmwareFile>& file) const;

    TBUSBPrinterZUL& _printer;
};

} // namespace zul
