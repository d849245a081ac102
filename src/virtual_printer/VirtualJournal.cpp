// One list under a lock, and the file with the same entries.
// Called by every embedded printer on any thread.
#include "virtual_printer/VirtualJournal.h"

#include "platform/foundation/Data.h"

#include <array>
#include <chrono>
#include <ios>
#include <mutex>
#include <nlohmann/json.hpp>
#include <openssl/sha.h>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zul {

std::string sha256Of(const Data& data) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::array<unsigned char, SHA256_DIGEST_LENGTH> digest{};
    SHA256(data.data(), data.size(), digest.data());
    std::string text;
    for (const unsigned char byte : digest) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

bool VirtualJournal::writeTo(const std::string& file) {
    const std::scoped_lock lock(_mutex);
    _file.open(file, std::ios::app);
    return _file.is_open();
}

void VirtualJournal::add(VirtualJournalEntry entry) {
    entry.time = std::chrono::duration_cast<std::chrono::milliseconds>(_clock.now() - _begin);
    const std::scoped_lock lock(_mutex);
    if (_file.is_open()) {
        nlohmann::json line = {{"time", static_cast<double>(entry.time.count()) / 1000.0},
                               {"printer", entry.printer},
                               {"event", entry.event}};
        if (!entry.command.empty()) line["command"] = entry.command;
        if (entry.event == "command" || entry.event == "read" || entry.event == "write") line["length"] = entry.length;
        if (!entry.sha256.empty()) line["sha256"] = entry.sha256;
        if (!entry.result.empty()) line["result"] = entry.result;
        // A printer's texts may contain any bytes: invalid UTF-8 is replaced, because dump() would throw.
        // Flushed by the line end: tests and people read the file while the program runs.
        _file << line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << std::endl;
    }
    _entries.push_back(std::move(entry));
}

std::vector<VirtualJournalEntry> VirtualJournal::entries() const {
    const std::scoped_lock lock(_mutex);
    return _entries;
}

std::vector<std::string> VirtualJournal::commands(const std::string& printer) const {
    std::vector<std::string> texts;
    for (const VirtualJournalEntry& entry : entries()) {
        if (entry.event == "command" && (printer.empty() || entry.printer == printer)) texts.push_back(entry.command);
    }
    return texts;
}

void VirtualJournal::clear() {
    const std::scoped_lock lock(_mutex);
    _entries.clear();
}

} // namespace zul
