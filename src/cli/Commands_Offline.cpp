// Commands that need no printer: the archive, S-record files, settings, the machine.
#include "cli/Commands.h"

#include "Classes/TBUSBPrinterZUL.h"
#include "archive/FirmwareDigests.h"
#include "archive/ProductTable.h"
#include "archive/SRecord.h"
#include "cli/ExitStatus.h"
#include "cli/Output.h"
#include "holven_Base/HOLVEN_Base.h"
#include "platform/foundation/Bundle.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/UserDefaults.h"

#include <filesystem>
#include <nlohmann/json.hpp>

namespace zul::cli {

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

fs::path archiveFolder(const Options& options) {
    if (!options.arguments.empty()) return options.arguments.front();
    return Bundle::mainBundle(options.firmwareArchive).archiveFolder();
}

std::string stateOfFile(const fs::path& file, const FirmwareDigests& digests, bool verify) {
    std::error_code error;
    if (!fs::is_regular_file(file, error)) {
        return error && error != std::errc::no_such_file_or_directory ? "unreadable" : "missing";
    }
    if (!verify) return "found";
    const auto contents = Bundle::contentsOfFile(file);
    if (!contents) return "unreadable";
    const auto expected = digests.digests.find(file.filename().string());
    if (expected == digests.digests.end()) return "no digest";
    return TBUSBPrinterZUL::digestOfBlob(*contents) == expected->second ? "matches" : "differs";
}

// The rows of the archive; whether all files are there (and, when verifying, match).
int showArchive(const Options& options, const Output& output, bool verify) {
    const fs::path folder = archiveFolder(options);
    std::error_code error;
    if (!fs::is_directory(folder, error)) {
        output.problem("there is no folder " + folder.string() + ". Name the folder with the firmware files.", kFailed);
        return kFailed;
    }
    const FirmwareDigests digests = readFirmwareDigests(folder);
    if (verify && !digests.problem.empty()) {
        output.problem(digests.problem + ". Write it with: zulctl archive digest DIR.", kCorruption);
        return kCorruption;
    }
    std::vector<std::vector<std::string>> rows = {{"MODEL", "PRODUCT", "FILE", "STATE"}};
    json list = json::array();
    int status = kDone;
    bool isEmpty = true;
    for (const Product& product : allProducts()) {
        for (const std::string_view name : product.files) {
            const std::string state = stateOfFile(folder / name, digests, verify);
            if (verify && state != "matches" && state != "missing") status = kCorruption;
            isEmpty = isEmpty && state == "missing";
            const std::string productID = formatted("0x%.4X", product.productID);
            rows.push_back({std::string(product.model), productID, std::string(name), state});
            list.push_back({{"model", product.model}, {"productID", productID}, {"file", name}, {"state", state}});
        }
    }
    if (output.isJson()) {
        output.document({{"folder", folder.string()}, {"sample", digests.isSample}, {"files", list}});
    } else {
        output.table(rows);
        if (digests.isSample) output.line("This is the sample archive, for virtual printers only.");
    }
    // Some models' files may be missing on purpose; with none at all nothing has been verified.
    return verify && isEmpty ? kFailed : status;
}

int writeDigests(const Options& options, const Output& output) {
    const fs::path folder = archiveFolder(options);
    FirmwareDigests digests;
    // A folder that was made for virtual printers stays one, whoever counts its digests anew.
    digests.isSample = readFirmwareDigests(folder).isSample;
    for (const Product& product : allProducts()) {
        for (const std::string_view name : product.files) {
            const auto contents = Bundle::contentsOfFile(folder / name);
            if (!contents || contents->empty()) continue;
            digests.digests[std::string(name)] = *TBUSBPrinterZUL::digestOfBlob(*contents);
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
        const auto contents = Bundle::contentsOfFile(file);
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
