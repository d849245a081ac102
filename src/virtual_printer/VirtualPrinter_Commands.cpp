// Executes complete commands: replies, counters, settings, tables, and the two that lead to restarts.
// Called by VirtualPrinter::receive().
#include "platform/foundation/Data.h"
#include "platform/foundation/Format.h"
#include "virtual_printer/FirmwareImage.h"
#include "virtual_printer/VirtualModels.h"
#include "virtual_printer/VirtualPrinter.h"
#include "virtual_printer/VirtualPrinterSettings.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>

namespace zul {

namespace {

using std::chrono::milliseconds;

constexpr const char* kLoaderStatusText = "FU00001";
constexpr const char* kEnterLoader = "FW_UPDFLASH_REWRITE";
constexpr const char* kProgramFlash = "FW_UPDFLASH_PROGRAM";
// Long enough for the host to close the interface after the command, as with real printers.
constexpr auto kLeaveForLoader = milliseconds(50);
// How long an intermediate firmware runs before it restarts by itself.
constexpr auto kIntermediateRun = milliseconds(3000);
constexpr auto kLate = milliseconds(7000);
// With 0 the printer would depart during the write that carries the last byte of its image.
constexpr auto kShortestProgramTime = milliseconds(1);

// The leading number; nullopt if there is none.
std::optional<std::uint32_t> leadingNumber(const Data& payload) {
    std::uint32_t number = 0;
    std::size_t digits = 0;
    for (; digits < payload.size() && payload[digits] >= '0' && payload[digits] <= '9'; ++digits) {
        number = number * 10 + (payload[digits] - std::uint32_t{'0'});
    }
    return digits == 0 ? std::nullopt : std::optional(number);
}

} // namespace

void VirtualPrinter::attach() {
    reset();
    _isLoader = _nextIsLoader;
    _answersDeviceID = _settings.answersDeviceID && !std::exchange(_nextIsWithoutID, false);
    _firmware = _nextFirmware;
    _hasSerial = _serialSetting; // the setting takes effect at a restart
    _statuses =
        _isUpdated && !_settings.statusesAfterUpdate.empty() ? _settings.statusesAfterUpdate : _settings.statuses;
    _statusIndex = 0;
}

VirtualDeparture VirtualPrinter::restart(milliseconds after) const {
    VirtualDeparture departure;
    departure.after = after;
    departure.away = _settings.restartTime;
    departure.comesBack = !hasFault(VirtualFaultKind::neverBack);
    departure.elsewhere = hasFault(VirtualFaultKind::elsewhere);
    return departure;
}

void VirtualPrinter::handle(const VirtualCommand& command, VirtualEffects& effects) {
    if (_isLoader) {
        handleInLoader(command, effects);
        return;
    }
    if (command.text == kEnterLoader) {
        enterLoader(effects);
    } else if (const auto body = answerTo(command)) {
        answer(*body, effects);
    } else {
        handleWrite(command);
    }
}

// A loader replies to STATUS and accepts an image; it reads and ignores every other command.
void VirtualPrinter::handleInLoader(const VirtualCommand& command, VirtualEffects& effects) {
    if (command.text == "STATUS") {
        answer(kLoaderStatusText, effects);
    } else if (command.text == kProgramFlash) {
        programFlash(command.payload, effects);
    }
}

void VirtualPrinter::enterLoader(VirtualEffects& effects) {
    _nextIsLoader = true;
    _nextIsWithoutID = hasFault(VirtualFaultKind::withoutID);
    effects.departure = restart(kLeaveForLoader);
}

void VirtualPrinter::programFlash(const Data& image, VirtualEffects& effects) {
    const auto version = versionOfFirmwareImage(image);
    effects.departure = restart(std::max(_settings.programTime, kShortestProgramTime));
    _nextIsWithoutID = hasFault(VirtualFaultKind::withoutID);
    if (!version || hasFault(VirtualFaultKind::stayInLoader)) return; // returns in its loader
    _nextIsLoader = false;
    _isUpdated = true;
    if (_settings.model->intermediateFirmware.empty()) {
        _nextFirmware = *version;
    } else {
        _nextFirmware = _settings.model->intermediateFirmware;
        _finalFirmware = *version;
    }
}

std::optional<VirtualDeparture> VirtualPrinter::departureAfterAttach() {
    if (_finalFirmware.empty() || _isLoader || _firmware != _settings.model->intermediateFirmware) return std::nullopt;
    _nextFirmware = _finalFirmware;
    _finalFirmware.clear();
    return restart(kIntermediateRun);
}

void VirtualPrinter::handleWrite(const VirtualCommand& command) {
    if (command.text == "TBL_CL") {
        _tables.clear();
    } else if (command.text == "TBL_WTVersion") {
        _tables.setName(command.payload);
    } else if (command.text == "TBL_WTCTRLD_UPDATE_CW") {
        _tables.write(command.payload);
    } else if (command.text == "MNT_WTCOUNTER_CLR" && command.payload.size() >= 2 && command.payload[0] == 'C') {
        const auto counted = _counters.find(static_cast<char>(command.payload[1]));
        if (counted != _counters.end() && counted->first != 'L') counted->second = 0;
    } else if (command.text == "MNT_WTCOUNTERP_SET") {
        if (const auto count = leadingNumber(command.payload)) _counters['P'] = *count;
    } else if (command.text == "MNT_WTUSB_ISERI_SET" && command.payload.size() >= 2) {
        _serialSetting = command.payload[1] == '1';
    }
}

std::string VirtualPrinter::nextStatus() {
    const std::string status = _statuses[_statusIndex];
    if (_statusIndex + 1 < _statuses.size()) ++_statusIndex;
    return status;
}

std::optional<std::string> VirtualPrinter::answerTo(const VirtualCommand& command) {
    const std::string& text = command.text;
    if (text == "STATUS") return nextStatus();
    if (text == "INFO  FVER") return _firmware;
    if (text == "INFO  SERIAL_NUMBER") return _settings.serial;
    if (text == "INFO  MEDIA") return "MEDIA600";
    if (text == "INFO  FREE_PBUFFER") return "FBP02";
    if (text == "INFO  MQTY") return "MN0400";
    if (text == "MNT_RDUSB_ISERI_SET") return _serialSetting ? "0001" : "0000";
    if (text.starts_with("MNT_RDCOUNTER_")) return counterAnswer(text);
    if (text.starts_with("TBL_RD") || text == "MNT_RDCTRLD_CHKSUM") {
        return _tables.answerTo(text, std::string(command.payload.begin(), command.payload.end()));
    }
    return std::nullopt;
}

std::optional<std::string> VirtualPrinter::counterAnswer(const std::string& text) const {
    const std::string name = text.substr(std::string("MNT_RDCOUNTER_").size());
    if (name == "LIFE") return formatted("CL%07u", counter('L'));
    if (name == "MATTE") return formatted("CT%07u", counter('T'));
    if (name.size() != 1 || !_counters.contains(name[0])) return std::nullopt;
    return formatted("C%c%07u", name[0], counter(name[0]));
}

// Header and body are two transfers, each ended by a short packet.
void VirtualPrinter::answer(const std::string& body, VirtualEffects& effects) {
    if (hasFault(VirtualFaultKind::silence)) return;
    if (hasFault(VirtualFaultKind::stall)) {
        effects.transfers.push_back({{}, /*isStall=*/true, milliseconds(0)});
        return;
    }
    const std::string whole = hasFault(VirtualFaultKind::noReturn) ? body : body + '\r';
    std::string header = formatted("%08u", whole.size());
    std::string sent = whole;
    if (hasFault(VirtualFaultKind::longHeader)) header = "00004097";
    if (hasFault(VirtualFaultKind::garbage)) header = "????????";
    if (hasFault(VirtualFaultKind::shortReply)) sent.resize(whole.size() / 2);
    milliseconds delay(0);
    if (const VirtualFault* late = fault(VirtualFaultKind::late)) {
        delay = late->value ? milliseconds(*late->value) : kLate;
    }
    effects.transfers.push_back({dataFromText(header), false, delay});
    effects.transfers.push_back({dataFromText(sent), false, delay});
}

} // namespace zul
