#include "virtual_printer/VirtualPrinterSettings.h"

#include "virtual_printer/VirtualCommands.h"
#include "virtual_printer/VirtualModels.h"

#include <array>
#include <charconv>
#include <functional>
#include <limits>
#include <map>
#include <string_view>

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
    {"garbage", VirtualFaultKind::garbage, "a header that is no number"},
    {"late", VirtualFaultKind::late, "the answer comes after VALUE ms (7000)"},
    {"unplug", VirtualFaultKind::unplug, "leaves after VALUE bytes of the frame (half of it) and comes back"},
    {"never-back", VirtualFaultKind::neverBack, "the restart that the command causes never ends"},
    {"elsewhere", VirtualFaultKind::elsewhere, "comes back from that restart on another port"},
    {"holder", VirtualFaultKind::holder, "at the N-th open another program holds it, for VALUE ms (3000)"},
    {"stay-in-loader", VirtualFaultKind::stayInLoader, "comes back from that restart as its loader"},
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

bool isTableVersion(const std::string& text) {
    return text.size() == 4 && text.find_first_not_of("0123456789") == std::string::npos;
}

bool isOfAnswer(VirtualFaultKind kind) {
    using enum VirtualFaultKind;
    return kind == silence || kind == shortReply || kind == longHeader || kind == noReturn || kind == garbage ||
           kind == late;
}

// A fault of an answer at commands that have none: a test that asks for it would show nothing.
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

// Printers are sold under two vendor IDs.
bool parseVendor(const std::string& text, std::uint16_t& vendor) {
    if (text != "0x2A71" && text != "0x2B84") return false;
    vendor = text == "0x2A71" ? 0x2A71 : 0x2B84;
    return true;
}

using Setter = std::function<bool(const std::string&, VirtualPrinterSettings&)>;

const std::map<std::string, Setter>& setters() {
    using Settings = VirtualPrinterSettings;
    static const std::map<std::string, Setter> table = {
        {"firmware", [](auto& text, Settings& s) { return !(s.firmware = text).empty(); }},
        {"serial", [](auto& text, Settings& s) { return !(s.serial = text).empty(); }},
        {"usb-serial", [](auto& text, Settings& s) { return parseSwitch(text, "on", "off", s.hasUSBSerial); }},
        {"status", [](auto& text, Settings& s) { return parseStatuses(text, s.statuses); }},
        {"after-update", [](auto& text, Settings& s) { return parseStatuses(text, s.statusesAfterUpdate); }},
        {"lifetime", [](auto& text, Settings& s) { return parseNumber(text, s.lifetime); }},
        {"tables", [](auto& text, Settings& s) { return isTableVersion(s.tableVersion = text); }},
        {"restart", [](auto& text, Settings& s) { return parseMilliseconds(text, s.restartTime); }},
        {"program", [](auto& text, Settings& s) { return parseMilliseconds(text, s.programTime); }},
        {"speed", [](auto& text, Settings& s) { return parseNumber(text, s.speed) && s.speed > 0; }},
        {"vendor", [](auto& text, Settings& s) { return parseVendor(text, s.vendorID); }},
        {"location", [](auto& text, Settings& s) { return parseLocation(text, s); }},
        {"mode", [](auto& text, Settings& s) { return parseSwitch(text, "loader", "normal", s.startsInLoader); }},
        {"id1284", [](auto& text, Settings& s) { return parseSwitch(text, "on", "off", s.answersDeviceID); }},
        {"interfaces",
         [](auto& text, Settings& s) {
             s.interfaces = text == "2" ? 2 : 1;
             return text == "1" || text == "2";
         }},
        {"fault", [](auto& text, Settings& s) { return parseFault(text, s); }},
    };
    return table;
}

std::string listOfModels() {
    std::string text;
    for (const VirtualModel& model : virtualModels()) text += (text.empty() ? "" : ", ") + std::string(model.name);
    return text;
}

std::string listOfFaults() {
    std::string text;
    for (const FaultName& fault : kFaults) text += (text.empty() ? "" : ", ") + std::string(fault.name);
    return text;
}

std::string listOfKeys() {
    std::string text;
    for (const auto& [key, setter] : setters()) text += (text.empty() ? "" : ", ") + key;
    return text;
}

} // namespace

VirtualPrinterParse parseVirtualPrinter(const std::string& text) {
    const auto parts = split(text, ',');
    VirtualPrinterSettings settings;
    settings.model = virtualModelNamed(parts.front());
    if (settings.model == nullptr) {
        return {std::nullopt, "\"" + parts.front() + "\" is no model; the models are " + listOfModels()};
    }
    settings.firmware = settings.model->firmware;
    for (std::size_t index = 1; index < parts.size(); ++index) {
        const auto equals = parts[index].find('=');
        const std::string key = parts[index].substr(0, equals);
        const auto setter = setters().find(key);
        if (setter == setters().end()) {
            return {std::nullopt, "\"" + key + "\" is no setting; the settings are " + listOfKeys()};
        }
        const std::string value = equals == std::string::npos ? "" : parts[index].substr(equals + 1);
        if (!setter->second(value, settings)) {
            const std::string kinds = key == "fault" ? "; the kinds are " + listOfFaults() : "";
            return {std::nullopt, "\"" + value + "\" is no value for \"" + key + "\"" + kinds + "; see --virtual help"};
        }
        if (key == "fault" && isWithoutEffect(settings.faults.back())) {
            return {std::nullopt, "\"" + value + "\" would do nothing: a command with \"" +
                                      settings.faults.back().word + "\" in its text has no answer; see --virtual help"};
        }
    }
    return {settings, ""};
}

std::string virtualPrinterHelp() {
    std::string text = "MODEL[,key=value...]\n\nmodels: " + listOfModels() +
                       "\n\n"
                       "  firmware=TEXT          version that it reports\n"
                       "  serial=TEXT            printer serial number\n"
                       "  usb-serial=on|off      whether it has a USB serial number\n"
                       "  status=CODE[:CODE...]  answers to STATUS in turn; the last one stays\n"
                       "  after-update=CODE...   the same after the restart into new firmware\n"
                       "  lifetime=N             lifetime print counter\n"
                       "  tables=VERSION         version of its color tables, for example 0161\n"
                       "  restart=MS             how long a restart keeps it away (2000)\n"
                       "  program=MS             how long it programs its flash before it leaves (1000)\n"
                       "  speed=BYTES            bytes per second that it takes (4000000)\n"
                       "  vendor=0x2A71|0x2B84   USB vendor ID\n"
                       "  location=BUS-PORT      where it is attached, for example 1-3\n"
                       "  mode=normal|loader     how it is when it is first attached\n"
                       "  id1284=on|off          whether it tells its IEEE 1284 device ID\n"
                       "  interfaces=1|2         how many printer interfaces it has\n"
                       "  fault=KIND[@WORD][#N][:VALUE]\n"
                       "                         misbehaves at the N-th command whose text holds WORD; kinds:\n";
    for (const FaultName& fault : kFaults) {
        std::string name(fault.name);
        name.resize(15, ' ');
        text += "      " + name + std::string(fault.help) + '\n';
    }
    return text + "\nexample: VK14,serial=123456,restart=500,fault=silence@STATUS#2\n";
}

} // namespace zul
