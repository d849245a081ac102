// Judges an update by what the printer and the bus reported. The text of the engine's own report is not used. Called by
// the supervisor on the main queue; the monitor uses isTableVersion() on any thread.
#include "update/UpdateVerdict.h"

#include "Classes/ColorTables.h"
#include "Classes/DeviceInfoKeys.h"
#include "archive/ProductTable.h"
#include "protocol/TableFileName.h"
#include "update/UpdateRecord.h"
#include "update/UpdateState.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace zul {

namespace {

constexpr std::size_t kVersionDigits = 4;

using TableVersions = std::map<std::string, std::string>;

TableVersions tableVersionsOf(const UpdateState& state) {
    TableVersions versions;
    for (const auto& [key, value] : state.tableReplies) {
        if (value && isTableVersion(*value)) versions[key] = *value;
    }
    return versions;
}

} // namespace

bool isImageTaken(const UpdateState& state) {
    if (state.image == ImageState::taken) return true;
    if (state.image == ImageState::notSent) return false;
    const bool isAvailableNow = state.currentVersion && state.currentVersion == state.availableVersion;
    const bool isChanged = state.previousVersion && state.previousVersion != state.currentVersion;
    return isAvailableNow && (isChanged || state.isWholeImageSent);
}

bool isTableVersion(const std::string& text) {
    return text.size() == kVersionDigits && text.find_first_not_of("0123456789") == std::string::npos;
}

UpdateExpectation expectationFor(std::uint16_t productID) {
    UpdateExpectation expectation;
    const Product* const product = productWithID(productID);
    if (product == nullptr) return expectation;
    expectation.version = std::filesystem::path(product->files.front()).stem().string();
    for (const std::string_view file : product->files.subspan(1)) {
        ++expectation.tables;
        const auto table = parsedTableFileName(file);
        if (!table || !isTableVersion(std::string(table->version))) continue;
        // A model that reports one version for all tables may report that of any of them.
        const ColorTable* const row = colorTableOfFile(table->number, table->isForPP);
        if (!hasOneTableAnswer(productID) && row == nullptr) continue;
        const char* const key = hasOneTableAnswer(productID) ? HOLVEN_TBPrinterColorTableVersion : row->versionKey;
        expectation.tableVersions[key].emplace(table->version);
    }
    return expectation;
}

std::string differingTable(const UpdateState& state, const UpdateExpectation& expectation) {
    for (const auto& [key, versions] : expectation.tableVersions) {
        const auto read = state.tableReplies.find(key);
        // A text that is not a version does not show which table is installed.
        if (read == state.tableReplies.end()) continue;
        const std::optional<std::string>& reply = read->second;
        if (reply && isTableVersion(*reply) && !versions.contains(*reply)) return key;
    }
    return {};
}

UpdateResult judgeByReplies(const UpdateState& state, const UpdateExpectation& expectation) {
    // In order of weight: with the wrong version no table matters.
    if (!state.currentVersion) return UpdateResult::versionUnread;
    if (state.currentVersion != expectation.version) return UpdateResult::otherVersion;
    if (state.tablesWritten < expectation.tables || !state.anyTable) return UpdateResult::tablesMissing;
    if (!differingTable(state, expectation).empty()) return UpdateResult::tablesDiffer;
    if (state.isClearRefused) return UpdateResult::clearRefused;
    return isImageTaken(state) ? UpdateResult::succeeded : UpdateResult::imageNotTaken;
}

bool lacksAnswersOnly(const UpdateState& state, const UpdateExpectation& expectation) {
    const UpdateResult result = judgeByReplies(state, expectation);
    if (result == UpdateResult::versionUnread) return true;
    if (result != UpdateResult::succeeded) return false;
    return std::ranges::any_of(expectation.tableVersions, [&](const auto& table) {
        const auto read = state.tableReplies.find(table.first);
        return read == state.tableReplies.end() || !read->second;
    });
}

bool hasOtherReplies(const UpdateState& state, const UpdateState& judged) {
    return state.currentVersion != judged.currentVersion || tableVersionsOf(state) != tableVersionsOf(judged) ||
           state.image != judged.image || state.tablesWritten != judged.tablesWritten ||
           state.isClearRefused != judged.isClearRefused;
}

const char* nameOfResult(UpdateResult result) {
    static constexpr auto kNames = std::to_array<const char*>(
        {"open",           "succeeded",     "up to date",      "newer installed", "declined",       "busy",
         "not ready",      "no answer",     "not opened",      "bad files",       "cannot follow",  "left",
         "reconnected",    kRefusedVerdict, "image not taken", "identity lost",   "version unread", "other version",
         "tables missing", "tables differ", "clear refused",   "not back",        "stopped"});
    static_assert(kNames.size() == static_cast<std::size_t>(UpdateResult::stopped) + 1);
    return kNames.at(static_cast<std::size_t>(result));
}

} // namespace zul
