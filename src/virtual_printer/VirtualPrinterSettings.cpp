// Parses the text that describes a virtual printer, and generates its help. Both use the two tables here, so that the
// name and form of a setting are written only once. Called by the programs before any printer exists, and by tests.
#include "virtual_printer/VirtualPrinterSettings.h"

#include "virtual_printer/VirtualCommands.h"
#include "virtual_printer/VirtualModels.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <fmt/format.h>
#include <iterator>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace zul {

namespace {

struct FaultName {
    std::string_view name;
    VirtualFaultKind kind;
    std::string_view help;
};

constexpr auto kFaults = std::to_array<FaultName>({
    {"stall", VirtualFaultKind::stall, "the answer, or a command without one, stalls its pipe"},
    {"silence", VirtualFaultKind::silence, "no answer"},
    {"short", VirtualFaultKind::shortReply, "half of the announced body"},
    {"long-header", VirtualFaultKind::longHeader, "announces more than any printer sends"},
    {"no-cr", VirtualFaultKind::noReturn, "a body without its carriage return"},
    {"garbage", VirtualFaultKind::garbage, "a header that is not a number"},
    {"late", VirtualFaultKind::late, "the answer comes after VALUE ms (7000)"},
    {"unplug", VirtualFaultKind::unplug, "leaves after VALUE bytes of the frame (half of it) and comes back"},
    {"never-back", VirtualFaultKind::neverBack, "the restart that the command causes never ends"},
    {"elsewhere", VirtualFaultKind::elsewhere, "comes back from that restart on another port"},
    {"holder", VirtualFaultKind::holder, "at the N-th open another program holds it, for VALUE ms (3000)"},
    {"stay-in-loader", VirtualFaultKind::stayInLoader, "comes back from that restart as its loader"},
    {"no-id", VirtualFaultKind::withoutID, "comes back from that restart without its device ID"},
});

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts(1);
    for (const char character : text) {
        if (character == separator) {
            parts.emplace_back();
        } else {
            parts.back() += character;
        }
    }
    return parts;
}

bool parseNumber(std::string_view text, std::uint32_t& value) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() && !text.empty();
}

bool parseSwitch(const std::string& text, const char* on, const char* off, bool& value) {
    if (text != on && text != off) return false;
    value = text == on;
    return true;
}

bool parseMilliseconds(const std::string& text, std::chrono::milliseconds& value) {
    std::uint32_t number = 0;
    if (!parseNumber(text, number)) return false;
    value = std::chrono::milliseconds(number);
    return true;
}

bool parseStatuses(const std::string& text, std::vector<std::string>& statuses) {
    statuses = split(text, ':');
    for (const std::string& status : statuses) {
        if (status.empty()) return false;
    }
    return true;
}

bool parseLocation(const std::string& text, VirtualPrinterSettings& settings) {
    const auto parts = split(text, '-');
    std::uint32_t bus = 0;
    std::uint32_t port = 0;
    if (parts.size() != 2 || !parseNumber(parts[0], bus) || !parseNumber(parts[1], port)) return false;
    if (bus < 1 || bus > 255 || port < 1 || port > 15) return false;
    settings.location = {static_cast<std::uint8_t>(bus), static_cast<std::uint8_t>(port)};
    return true;
}

// KIND[@WORD][#N][:VALUE]
bool parseFault(std::string text, VirtualPrinterSettings& settings) {
    VirtualFault fault;
    std::uint32_t number = 0;
    // From the end: each part is cut off, so that the kind remains.
    if (const auto colon = text.find(':'); colon != std::string::npos) {
        if (!parseNumber(std::string_view(text).substr(colon + 1), number)) return false;
        fault.value = number;
        text.resize(colon);
    }
    if (const auto hash = text.find('#'); hash != std::string::npos) {
        if (!parseNumber(std::string_view(text).substr(hash + 1), number) || number == 0) return false;
        if (number > static_cast<std::uint32_t>(std::numeric_limits<int>::max())) return false;
        fault.occurrence = static_cast<int>(number);
        text.resize(hash);
    }
    if (const auto at = text.find('@'); at != std::string::npos) {
        fault.word = text.substr(at + 1);
        text.resize(at);
    }
    for (const FaultName& entry : kFaults) {
        if (entry.name != text) continue;
        fault.kind = entry.kind;
        settings.faults.push_back(fault);
        return true;
    }
    return false;
}

bool parseInterfaces(const std::string& text, int& interfaces) {
    interfaces = text == "2" ? 2 : 1;
    return text == "1" || text == "2";
}

bool isTableVersion(const std::string& text) {
    return text.size() == 4 && text.find_first_not_of("0123456789") == std::string::npos;
}

bool isOfAnswer(VirtualFaultKind kind) {
    using enum VirtualFaultKind;
    return kind == silence || kind == shortReply || kind == longHeader || kind == noReturn || kind == garbage ||
           kind == late;
}

// True for a fault of a reply that is set for commands without one: a test with it would prove nothing.
bool isWithoutEffect(const VirtualFault& fault) {
    if (!isOfAnswer(fault.kind)) return false;
    bool isCommand = false;
    for (const std::string_view text : virtualCommandTexts()) {
        if (text.find(fault.word) == std::string_view::npos) continue;
        if (virtualCommandHasAnswer(text)) return false;
        isCommand = true;
    }
    return isCommand;
}

// The printers have two vendor IDs.
bool parseVendor(const std::string& text, std::uint16_t& vendor) {
    if (text != "0x2A71" && text != "0x2B84") return false;
    vendor = text == "0x2A71" ? 0x2A71 : 0x2B84;
    return true;
}

struct Setting {
    std::string_view key;
    std::string_view form; // syntax of the value
    std::string_view help;
    bool (*set)(const std::string& text, VirtualPrinterSettings& settings); // false: invalid value
};

using Text = const std::string&;
using Settings = VirtualPrinterSettings;

// clang-format off
constexpr auto kSettings = std::to_array<Setting>({
    {"firmware", "TEXT", "version that it reports",
     [](Text text, Settings& s) { return !(s.firmware = text).empty(); }},
    {"serial", "TEXT", "printer serial number",
     [](Text text, Settings& s) { return !(s.serial = text).empty(); }},
    {"usb-serial", "on|off", "whether it has a USB serial number",
     [](Text text, Settings& s) { return parseSwitch(text, "on", "off", s.hasUSBSerial); }},
    {"status", "CODE[:CODE...]", "answers to STATUS in turn; the last one stays",
     [](Text text, Settings& s) { return parseStatuses(text, s.statuses); }},
    {"after-update", "CODE...", "the same after the restart into new firmware",
     [](Text text, Settings& s) { return parseStatuses(text, s.statusesAfterUpdate); }},
    {"lifetime", "N", "lifetime print counter",
     [](Text text, Settings& s) { return parseNumber(text, s.lifetime); }},
    {"tables", "VERSION", "version of its color tables, for example 0161",
     [](Text text, Settings& s) { return isTableVersion(s.tableVersion = text); }},
    {"restart", "MS", "how long a restart keeps it away (2000)",
     [](Text text, Settings& s) { return parseMilliseconds(text, s.restartTime); }},
    {"program", "MS", "how long it programs its flash before it leaves (1000)",
     [](Text text, Settings& s) { return parseMilliseconds(text, s.programTime); }},
    {"speed", "BYTES", "bytes per second that it takes (4000000)",
     [](Text text, Settings& s) { return parseNumber(text, s.speed) && s.speed > 0; }},
    {"vendor", "0x2A71|0x2B84", "USB vendor ID",
     [](Text text, Settings& s) { return parseVendor(text, s.vendorID); }},
    {"location", "BUS-PORT", "where it is attached, for example 1-3",
     [](Text text, Settings& s) { return parseLocation(text, s); }},
    {"mode", "normal|loader", "how it is when it is first attached",
     [](Text text, Settings& s) { return parseSwitch(text, "loader", "normal", s.startsInLoader); }},
    {"id1284", "on|off", "whether it answers the request for its IEEE 1284 device ID",
     [](Text text, Settings& s) { return parseSwitch(text, "on", "off", s.answersDeviceID); }},
    {"interfaces", "1|2", "how many printer interfaces it has; both lead to the same printer",
     [](Text text, Settings& s) { return parseInterfaces(text, s.interfaces); }},
    {"fault", "KIND[@WORD][#N][:VALUE]", "misbehaves at the N-th command whose text holds WORD; kinds:",
     [](Text text, Settings& s) { return parseFault(text, s); }},
});
// clang-format on

// Joins the given member of all rows.
template <class Rows, class Member> std::string listOf(const Rows& rows, Member member) {
    std::vector<std::string_view> names;
    std::ranges::transform(rows, std::back_inserter(names), member);
    return fmt::format("{}", fmt::join(names, ", "));
}

// Applies "key=value"; returns the problem, empty if there is none.
std::string apply(const std::string& text, VirtualPrinterSettings& settings) {
    const auto equals = text.find('=');
    const std::string key = text.substr(0, equals);
    const std::string value = equals == std::string::npos ? "" : text.substr(equals + 1);
    const auto* const setting = std::ranges::find(kSettings, std::string_view(key), &Setting::key);
    if (setting == kSettings.end()) {
        return fmt::format("\"{}\" is not a setting; the settings are {}", key, listOf(kSettings, &Setting::key));
    }
    if (!setting->set(value, settings)) {
        const std::string kinds = key == "fault" ? "; the kinds are " + listOf(kFaults, &FaultName::name) : "";
        return fmt::format("\"{}\" is not a value for \"{}\" ({}={}){}; see --virtual help", value, key, key,
                           setting->form, kinds);
    }
    if (key == "fault" && isWithoutEffect(settings.faults.back())) {
        return fmt::format(
            "\"{}\" would do nothing: a command with \"{}\" in its text has no answer; see --virtual help", value,
            settings.faults.back().word);
    }
    return {};
}

} // namespace

VirtualPrinterParse parseVirtualPrinter(const std::string& text) {
    // The model is first; the settings follow in any order, and a later one replaces an earlier one of its key.
    const auto parts = split(text, ',');
    VirtualPrinterSettings settings;
    settings.model = virtualModelNamed(parts.front());
    if (settings.model == nullptr) {
        return {std::nullopt, fmt::format("\"{}\" is not a model; the models are {}", parts.front(),
                                          listOf(virtualModels(), &VirtualModel::name))};
    }
    // Before the settings are applied, so that one of them may replace it.
    settings.firmware = settings.model->firmware;
    for (auto part = std::next(parts.begin()); part != parts.end(); ++part) {
        if (std::string problem = apply(*part, settings); !problem.empty()) return {std::nullopt, std::move(problem)};
    }
    return {std::move(settings), ""};
}

std::string virtualPrinterHelp() {
    std::string text =
        fmt::format("MODEL[,key=value...]\n\nmodels: {}\n\n", listOf(virtualModels(), &VirtualModel::name));
    constexpr std::size_t kHelpColumn = 25;
    for (const Setting& setting : kSettings) {
        std::string left = fmt::format("  {}={}", setting.key, setting.form);
        if (left.size() >= kHelpColumn) left += '\n' + std::string(kHelpColumn, ' ');
        text += fmt::format("{:<25}{}\n", left, setting.help);
    }
    for (const FaultName& fault : kFaults) text += fmt::format("      {:<15}{}\n", fault.name, fault.help);
    return text + "\nexample: VK14,serial=123456,restart=500,fault=silence@STATUS#2\n";
}

} // namespace zul
