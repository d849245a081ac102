// Collects the frames of a virtual printer, with the faults that occur while they arrive. Complete commands are
// executed in VirtualPrinter_Commands.cpp. Called by the printer's owner, one call at a time.
#include "virtual_printer/VirtualPrinter.h"

#include "platform/foundation/Data.h"
#include "virtual_printer/VirtualCommands.h"
#include "virtual_printer/VirtualModels.h"
#include "virtual_printer/VirtualPrinterSettings.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace zul {

namespace {

constexpr std::size_t kHeaderSize = 32;
constexpr std::size_t kTextOffset = 2;
constexpr std::size_t kTextSize = 22;
constexpr std::size_t kSizeOffset = 24;
constexpr std::size_t kSizeSize = 8;
constexpr std::uint8_t kEscape = 0x1B;
constexpr auto kDefaultHold = std::chrono::milliseconds(3000);

std::string fieldText(const Data& frame, std::size_t offset, std::size_t size) {
    std::string text(frame.begin() + static_cast<std::ptrdiff_t>(offset),
                     frame.begin() + static_cast<std::ptrdiff_t>(offset + size));
    text.resize(text.find_last_not_of(' ') + 1);
    return text;
}

// Outside a frame, only the two bytes that begin one are significant; an escape before any other byte does not begin a
// frame.
bool skipsGarbage(Data& frame, std::span<const std::uint8_t>& bytes) {
    if (frame.empty() && bytes.front() != kEscape) {
        bytes = bytes.subspan(1);
        return true;
    }
    if (frame.size() == 1 && bytes.front() != 'P') {
        frame.clear(); // keeps the byte: it may be an escape itself
        return true;
    }
    return false;
}

// nullopt for a field that is neither blank nor a number.
std::optional<std::size_t> sizeOf(const std::string& field) {
    std::size_t size = 0;
    for (const char digit : field) {
        if (digit < '0' || digit > '9') return std::nullopt;
        size = size * 10 + static_cast<std::size_t>(digit - '0');
    }
    return size;
}

} // namespace

VirtualPrinter::VirtualPrinter(VirtualPrinterSettings settings, std::function<void(const VirtualCommand&)> sawCommand)
    : _settings(std::move(settings)), _sawCommand(std::move(sawCommand)), _faults(_settings.faults),
      _isLoader(_settings.startsInLoader), _nextIsLoader(_settings.startsInLoader),
      _answersDeviceID(_settings.answersDeviceID), _firmware(_settings.firmware), _nextFirmware(_settings.firmware),
      _statuses(_settings.statuses), _serialSetting(_settings.hasUSBSerial),
      _hasSerial(_settings.hasUSBSerial), _counters{{'A', 12}, {'B', 34}, {'M', 56},
                                                    {'P', 78}, {'T', 90}, {'L', _settings.lifetime}},
      _tables(*_settings.model, _settings.tableVersion) {}

VirtualEffects VirtualPrinter::receive(std::span<const std::uint8_t> bytes) {
    VirtualEffects effects;
    while (!bytes.empty()) {
        if (skipsGarbage(_frame, bytes)) continue;
        // Reads an escape alone, so that the byte after it can be checked.
        std::size_t count = _frame.empty() ? 1 : std::min(bytes.size(), bytesWanted());
        // Stops exactly at the byte at which the fault unplugs the printer.
        if (_unplugAt > _frame.size()) count = std::min(count, _unplugAt - _frame.size());
        _frame.insert(_frame.end(), bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count));
        bytes = bytes.subspan(count);
        if (_frame.size() == kHeaderSize) takeHeader(effects);
        if (effects.stallsOut) return effects;
        if (_unplugAt != 0 && _frame.size() >= _unplugAt) {
            effects.departure = restart(std::chrono::milliseconds(0));
            reset();
            return effects;
        }
        if (_frame.size() >= kHeaderSize && bytesWanted() == 0) finishFrame(effects);
    }
    return effects;
}

std::size_t VirtualPrinter::bytesWanted() const {
    if (_frame.size() < kHeaderSize) return kHeaderSize - _frame.size();
    return kHeaderSize + _payloadSize - _frame.size();
}

void VirtualPrinter::takeHeader(VirtualEffects& effects) {
    const auto size = sizeOf(fieldText(_frame, kSizeOffset, kSizeSize));
    if (!size) {
        reset(); // the end of this frame is unknown: wait for the next one
        return;
    }
    _text = fieldText(_frame, kTextOffset, kTextSize);
    _payloadSize = *size;
    _dueFaults = faultsFor(_text);
    // A command with an answer stalls later, when its answer is read.
    if (hasFault(VirtualFaultKind::stall) && !virtualCommandHasAnswer(_text)) {
        effects.stallsOut = true;
        reset();
        return;
    }
    if (const VirtualFault* unplug = fault(VirtualFaultKind::unplug)) {
        const std::size_t half = (kHeaderSize + _payloadSize) / 2;
        _unplugAt = std::max<std::size_t>(unplug->value.value_or(static_cast<std::uint32_t>(half)), 1);
    }
}

void VirtualPrinter::finishFrame(VirtualEffects& effects) {
    // Taken out before it is executed, because the command may restart the printer and reset the frame.
    VirtualCommand command{_text, Data(_frame.begin() + kHeaderSize, _frame.end()),
                           Data(_frame.begin(), _frame.begin() + kHeaderSize)};
    _frame.clear();
    _payloadSize = 0;
    _unplugAt = 0;
    // Before it is executed, so that the journal has the command before its effects.
    if (_sawCommand) _sawCommand(command);
    handle(command, effects);
    _dueFaults.clear();
}

void VirtualPrinter::reset() {
    _frame.clear();
    _payloadSize = 0;
    _unplugAt = 0;
    _dueFaults.clear();
}

std::vector<VirtualFault> VirtualPrinter::faultsFor(const std::string& command) {
    std::vector<VirtualFault> due;
    for (auto fault = _faults.begin(); fault != _faults.end();) {
        const bool matches = fault->kind != VirtualFaultKind::holder && command.find(fault->word) != std::string::npos;
        if (matches && --fault->occurrence == 0) {
            due.push_back(*fault);
            fault = _faults.erase(fault);
        } else {
            ++fault;
        }
    }
    return due;
}

const VirtualFault* VirtualPrinter::fault(VirtualFaultKind kind) const {
    const auto found = std::ranges::find(_dueFaults, kind, &VirtualFault::kind);
    return found == _dueFaults.end() ? nullptr : &*found;
}

std::optional<std::chrono::milliseconds> VirtualPrinter::holderAtOpen() {
    std::optional<std::chrono::milliseconds> hold;
    // An open is counted for every holder fault, also when another fault happens at it.
    for (auto fault = _faults.begin(); fault != _faults.end();) {
        if (fault->kind != VirtualFaultKind::holder || --fault->occurrence > 0) {
            ++fault;
            continue;
        }
        const auto value = fault->value;
        hold = value ? std::chrono::milliseconds(*value) : kDefaultHold;
        fault = _faults.erase(fault);
    }
    return hold;
}

std::uint32_t VirtualPrinter::counter(char letter) const {
    const auto found = _counters.find(letter);
    return found == _counters.end() ? 0 : found->second;
}

std::string VirtualPrinter::deviceID() const {
    return "MFG:" + manufacturerText() + ";MDL:" + std::string(_settings.model->name) + ";SERN:" + _settings.serial +
           ";";
}

std::string VirtualPrinter::productText() const {
    return std::string(_settings.model->name);
}

std::optional<std::string> VirtualPrinter::serialText() const {
    return _hasSerial ? std::optional(_settings.serial) : std::nullopt;
}

std::uint16_t VirtualPrinter::productID() const {
    return _settings.model->productID;
}

} // namespace zul
