// Commands that need no printer: the archive, S-record files, defaults, host information.
// Run on the main thread before any queue; called by main().
#include "Classes/TBUSBPrinterZUL.h"
#include "archive/ArchiveTexts.h"
#include "archive/FirmwareArchive.h"
#include "archive/FirmwareDigests.h"
#include "archive/ProductTable.h"
#include "archive/SRecord.h"
#include "cli/Commands.h"
#include "cli/ExitStatus.h"
#include "cli/Options.h"
#include "cli/Output.h"
#include "holven_Base/HOLVEN_Base.h"
#include "platform/files/Files.h"
#include "platform/foundation/Bundle.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/UserDefaults.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace zul::cli {

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

fs::path archiveFolder(const Options& options) {
    if (!options.arguments.empty()) return options.arguments.front();
    return Bundle::mainBundle(options.firmwareArchive).archiveFolder();
}

bool isThere(const fs::path& file) {
    std::error_code error;
    return fs::exists(fs::symlink_status(file, error));
}

std::string stateOfListed(const fs::path& file) {
    std::error_code error;
    if (fs::is_regular_file(file, error)) return "found";
    return error && error != std::errc::no_such_file_or_directory ? "unreadable" : "missing";
}

// A file shared by two models does not show that this model was installed if the other model's firmware is there.
bool cameWithAnotherModel(const Product& product, std::string_view name, const fs::path& folder) {
    return std::ranges::any_of(allProducts(), [&](const Product& other) {
        return other.productID != product.productID && std::ranges::count(other.files, name) > 0 &&
               isThere(folder / other.files.front());
    });
}

// True if none of the model's files is present, as in a folder made for other models.
bool isLeftOut(const Product& product, const fs::path& folder) {
    return std::ranges::none_of(product.files, [&](std::string_view name) {
        return isThere(folder / name) && !cameWithAnotherModel(product, name, folder);
    });
}

// Collects the rows of an archive for text or JSON output.
class ArchiveReport {
  public:
    explicit ArchiveReport(const fs::path& folder) : _folder(folder), _bundle({}, folder), _archive(_bundle) {}

    void list(const Product& product) {
        for (const std::string_view name : product.files)
            add(product, std::string(name), stateOfListed(_folder / name));
    }
    void verify(const Product& product) {
        _isVerified = true;
        const auto problems = isLeftOut(product, _folder)
                                  ? std::vector<ArchiveProblem>{}
                                  : _archive.problems(&product, TBUSBPrinterZUL::kProductClassName);
        for (const ArchiveFile& file : _archive.survey(product, TBUSBPrinterZUL::kProductClassName).files) {
            const bool isNoImage = std::ranges::any_of(problems, [&](const ArchiveProblem& problem) {
                return problem.kind == ArchiveProblem::Kind::firmwareNotSRecords && problem.path == file.path;
            });
            add(product, file.name, isNoImage ? "not an image" : nameOfFileState(file.state));
        }
        for (const ArchiveProblem& problem : problems) add(problem);
    }
    /// The problem of the digest file; nullopt if the file can be used.
    std::optional<std::string> digestProblem() {
        using Kind = ArchiveProblem::Kind;
        // The digest file is one for all models, so any model's problems include it.
        const auto problems = _archive.problems(&allProducts().front(), TBUSBPrinterZUL::kProductClassName);
        for (const ArchiveProblem& problem : problems) {
            if (problem.kind == Kind::digestsMissing || problem.kind == Kind::digestsUnreadable ||
                problem.kind == Kind::digestsDamaged) {
                return describeProblem(problem);
            }
        }
        return std::nullopt;
    }
    bool hasProblem() const { return !_problems.empty(); }
    bool isEmpty() const { return _isEmpty; }

    void show(const Output& output, bool isSample) const {
        if (output.isJson()) {
            json document = {{"folder", _folder.string()}, {"sample", isSample}, {"files", _list}};
            if (_isVerified) document["problems"] = _problems;
            output.document(document);
            return;
        }
        output.table(_rows);
        if (isSample) output.line("This is the sample archive, for virtual printers only.");
        for (const std::string& line : _lines) output.note(line);
    }

  private:
    void add(const Product& product, const std::string& name, const std::string& state) {
        _isEmpty = _isEmpty && state == "missing";
        const std::string productID = formatted("0x%.4X", product.productID);
        _rows.push_back({std::string(product.model), productID, name, state});
        _list.push_back({{"model", product.model}, {"productID", productID}, {"file", name}, {"state", state}});
    }
    void add(const ArchiveProblem& problem) {
        const json entry = {
            {"file", problem.path.filename().string()}, {"message", messageOf(problem)}, {"remedy", remedyOf(problem)}};
        if (std::ranges::count(_problems, entry) > 0) return; // two models may share the file
        _problems.push_back(entry);
        _lines.push_back(describeProblem(problem));
    }

    const fs::path _folder;
    const Bundle _bundle;
    FirmwareArchive _archive;
    std::vector<std::vector<std::string>> _rows = {{"MODEL", "PRODUCT", "FILE", "STATE"}};
    json _list = json::array();
    json _problems = json::array();
    std::vector<std::string> _lines; // the problems for text output
    bool _isEmpty = true;
    bool _isVerified = false;
};

// Shows the archive. The exit status is success if all files are present (and match, when verifying).
int showArchive(const Options& options, const Output& output, bool verify) {
    const fs::path folder = archiveFolder(options);
    std::error_code error;
    if (!fs::is_directory(folder, error)) {
        output.problem("there is no folder " + folder.string() + ". Name the folder with the firmware files.", kFailed);
        return kFailed;
    }
    ArchiveReport report(folder);
    if (const auto problem = verify ? report.digestProblem() : std::nullopt) {
        output.problem(*problem, kCorruption);
        return kCorruption;
    }
    for (const Product& product : allProducts()) {
        if (verify) {
            report.verify(product);
        } else {
            report.list(product);
        }
    }
    report.show(output, readFirmwareDigests(folder).isSample);
    if (report.hasProblem()) return kCorruption;
    // Some models' files may be left out on purpose; without any file, nothing was verified.
    return verify && report.isEmpty() ? kFailed : kDone;
}

int writeDigests(const Options& options, const Output& output) {
    const fs::path folder = archiveFolder(options);
    FirmwareDigests digests;
    // A folder made for virtual printers keeps its mark when its digest file is written again.
    digests.isSample = readFirmwareDigests(folder).isSample;
    for (const Product& product : allProducts()) {
        for (const std::string_view name : product.files) {
            // A file that is missing is left out: a folder may be for some models only.
            const auto contents = contentsOfFile(folder / name);
            const auto digest = contents ? TBUSBPrinterZUL::digestOfBlob(*contents) : std::nullopt;
            if (digest) digests.digests[std::string(name)] = *digest; // an empty file has none: it would never match
        }
    }
    if (digests.digests.empty()) {
        output.problem("no firmware files in " + folder.string() + ". \"zulctl archive list\" names the files.",
                       kFailed);
        return kFailed;
    }
    if (!writeFirmwareDigests(folder, digests)) {
        output.problem("cannot write " + (folder / kDigestFileName).string() + ". Is the folder writable?", kFailed);
        return kFailed;
    }
    if (output.isJson()) {
        output.document({{"file", (folder / kDigestFileName).string()}, {"digests", digests.digests}});
    } else {
        output.line(formatted("%s: %d files", (folder / kDigestFileName).string(), digests.digests.size()));
    }
    return kDone;
}

} // namespace

int runArchive(const Options& options, const Output& output) {
    if (options.command == "archive path") {
        const std::string folder = archiveFolder(options).string();
        if (output.isJson()) {
            output.document({{"folder", folder}});
        } else {
            output.line(folder);
        }
        return kDone;
    }
    if (options.command == "archive digest") return writeDigests(options, output);
    return showArchive(options, output, options.command == "archive verify");
}

int runSRecord(const Options& options, const Output& output) {
    int status = kDone;
    json list = json::array();
    for (const std::string& file : options.arguments) {
        const auto contents = contentsOfFile(file);
        std::string fault;
        if (!contents) {
            fault = "cannot be read";
        } else if (const auto found = findSRecordFault(*contents)) {
            fault = found->line == 0 ? found->reason : formatted("line %d %s", found->line, found->reason);
        }
        if (!fault.empty()) status = kFailed;
        if (output.isJson()) {
            list.push_back({{"file", file}, {"valid", fault.empty()}, {"fault", fault}});
        } else {
            output.line(file + ": " + (fault.empty() ? "valid" : fault));
        }
    }
    if (output.isJson()) output.document(list);
    return status;
}

int runDefaults(const Options& options, const Output& output) {
    UserDefaults defaults(UserDefaults::standardFile());
    // A note, not a failure: settings that cannot be read are shown as absent.
    if (!defaults.lastError().empty()) output.note(defaults.lastError());
    if (options.command == "defaults write") {
        if (defaults.setString(options.arguments[0], options.arguments[1])) return kDone;
        output.problem(defaults.lastError(), kFailed);
        return kFailed;
    }
    if (options.command == "defaults delete") {
        if (defaults.remove(options.arguments[0])) {
            if (defaults.lastError().empty()) return kDone;
            output.problem(defaults.lastError(), kFailed);
            return kFailed;
        }
        output.problem("there is no setting \"" + options.arguments[0] + "\". \"zulctl defaults read\" lists them.",
                       kFailed);
        return kFailed;
    }
    std::map<std::string, std::string> values = defaults.all();
    if (!options.arguments.empty()) {
        const auto value = defaults.stringForKey(options.arguments[0]);
        if (!value) {
            output.problem("there is no setting \"" + options.arguments[0] + "\".", kFailed);
            return kFailed;
        }
        values = {{options.arguments[0], *value}};
    }
    if (output.isJson()) {
        output.document(values);
    } else if (!options.arguments.empty()) {
        output.line(values.begin()->second);
    } else {
        for (const auto& [key, value] : values) output.line(key + " = " + value);
    }
    return kDone;
}

int runHostInfo(const Output& output) {
    if (output.isJson()) {
        output.document({{"text", HOLVEN_Base::startupInfo()}});
    } else {
        output.line(HOLVEN_Base::startupInfo());
    }
    return kDone;
}

} // namespace zul::cli
