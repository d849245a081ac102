// Defines and checks the options that zulctl and the window share.
// Called by both main functions before any queue runs.
#include "session/SessionOptions.h"

#include "platform/files/Folders.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <cstdint>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

namespace zul {

namespace {

std::optional<std::uint16_t> productNumber(const std::string& text) {
    const bool isHex = text.starts_with("0x") || text.starts_with("0X");
    const std::string digits = isHex ? text.substr(2) : text;
    std::uint16_t number = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number, isHex ? 16 : 10);
    if (digits.empty() || error != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
    return number;
}

} // namespace

bool SessionOptions::asksForVirtualHelp() const {
    // In any place among several --virtual.
    return std::ranges::find(virtualPrinters, "help") != virtualPrinters.end();
}

std::string SessionOptions::problem(const std::string& program) const {
    if (journalFile.empty() || !virtualPrinters.empty()) return "";
    return "--virtual-journal needs --virtual: only virtual printers keep a journal. Try " + program + " --help.";
}

void addSessionOptions(CLI::App& app, SessionOptions& options) {
    app.add_option("--virtual", options.virtualPrinters,
                   "Use a virtual printer instead of the bus; may be repeated; \"help\" explains")
        ->type_name("MODEL[,key=value...]")
        ->allow_extra_args(false);
    app.add_option("--firmware-archive", options.firmwareArchive, "Folder with firmware files and their digests.json")
        ->type_name("DIR")
        ->transform(pathWithHome);
    app.add_option_function<std::vector<std::string>>(
           "--admit-product",
           [&options](const std::vector<std::string>& texts) {
               for (const std::string& text : texts) {
                   const auto number = productNumber(text);
                   if (!number) throw CLI::ValidationError("--admit-product", text + " is no USB product ID");
                   options.admittedProducts.insert(*number);
               }
           },
           "Admit a further USB product ID for this run; may be repeated")
        ->type_name("ID")
        ->allow_extra_args(false);
    app.add_option("--log", options.logFile, "Append the log to a file")->type_name("FILE")->transform(pathWithHome);
    app.add_option("--virtual-journal", options.journalFile, "What the virtual printers saw, as JSON lines")
        ->type_name("FILE")
        ->transform(pathWithHome);
    app.add_flag("-v,--verbose", options.verbose, "Repeat the system log on standard error");
}

} // namespace zul
