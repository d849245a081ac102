// Stores written colour tables and replies to queries about them. Called only by their printer, with the lock of the
// printer's owner held.
#include "virtual_printer/VirtualTableMemory.h"

#include "platform/foundation/Data.h"
#include "platform/foundation/Format.h"
#include "protocol/TableFileName.h"
#include "virtual_printer/VirtualModels.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <optional>
#include <string>

namespace zul {

namespace {

constexpr const char* kNumbers[] = {"300", "600", "610", "620"};
constexpr std::size_t kVersionSize = 4;

std::uint16_t checksumOf(const Data& contents) {
    return static_cast<std::uint16_t>(std::accumulate(contents.begin(), contents.end(), 0U));
}

} // namespace

VirtualTableMemory::VirtualTableMemory(const VirtualModel& model, const std::string& version) : _model(model) {
    const std::string initial = version.empty() ? std::string(model.tableVersion) : version;
    std::uint16_t checksum = 0x1200;
    for (const char* number : kNumbers) {
        _tables[number] = {initial, ++checksum};
        _tables[std::string("PP") + number] = {initial, ++checksum};
    }
    _last = "600";
}

void VirtualTableMemory::clear() {
    for (auto& [key, table] : _tables) table = {};
    _writtenNames.clear();
}

void VirtualTableMemory::setName(const Data& record) {
    _name.assign(record.begin(), std::ranges::find(record, std::uint8_t{0}));
}

void VirtualTableMemory::write(const Data& contents) {
    const auto name = parsedTableFileName(_name);
    if (!name) return;
    const auto table = _tables.find((name->isForPP ? "PP" : "") + std::string(name->number));
    if (table == _tables.end()) return;
    table->second = {std::string(name->version.substr(0, kVersionSize)), checksumOf(contents)};
    _last = table->first;
    _writtenNames.push_back(_name);
}

std::optional<std::string> VirtualTableMemory::answerTo(const std::string& command, const std::string& media) const {
    const bool isChecksum = command.ends_with("CHKSUM") || command.ends_with("Checksum");
    std::string key;
    if (command == "TBL_RDVersion" || command == "MNT_RDCTRLD_CHKSUM") {
        if (_model.tables != VirtualTables::single) return std::nullopt;
        key = _last;
    } else if (command.starts_with("TBL_RDCWD") && command.size() > 12) {
        if (_model.tables == VirtualTables::single) return std::nullopt;
        key = command.substr(9, 3);
        if (_model.tables == VirtualTables::byNumberAndMedia && media == "0003") key = "PP" + key;
    }
    const auto table = _tables.find(key);
    if (table == _tables.end()) return std::nullopt;
    return isChecksum ? formatted("%.4X", table->second.checksum) : table->second.version;
}

} // namespace zul
