// Writes results and problems to the standard streams. Called by all commands, on the main thread before the queues run
// and on the main queue afterwards.
#include "cli/Output.h"

#include "cli/ExitStatus.h"
#include "cli/StandardStream.h"
#include "platform/foundation/PrintableText.h"

#include <algorithm>
#include <cstddef>
#include <iostream>
#include <nlohmann/json.hpp>
#include <string>
#include <system_error>
#include <vector>

namespace zul::cli {

namespace {

// Values come from printers and may contain any bytes: invalid UTF-8 is replaced, because dump() would throw.
std::string dumped(const nlohmann::json& value, int indent) {
    return printableJson(value.dump(indent, ' ', false, nlohmann::json::error_handler_t::replace));
}

bool isInsideCharacter(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

// Columns are counted in characters, not bytes.
std::size_t width(const std::string& text) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char byte) { return !isInsideCharacter(byte); }));
}

} // namespace

std::string shortened(std::string text, std::size_t columns) {
    std::size_t used = 0;
    for (std::size_t index = 0; index < text.size(); ++index) {
        if (isInsideCharacter(text[index])) continue;
        if (++used > columns) text.resize(index);
    }
    return text;
}

void Output::line(const std::string& text) const {
    std::cout << printable(text) << std::endl;
}
void Output::document(const nlohmann::json& value) const {
    std::cout << dumped(value, 2) << std::endl;
}
void Output::object(const nlohmann::json& value) const {
    std::cout << dumped(value, -1) << std::endl;
}

void Output::problem(const std::string& text, int exitStatus, const std::string& code) const {
    if (_json) {
        nlohmann::json error = {{"message", text}, {"exit", exitStatus}};
        if (!code.empty()) error["code"] = code;
        object({{"error", error}});
    } else {
        std::cerr << "zulctl: " << printable(text) << std::endl;
    }
}

void Output::note(const std::string& text) const {
    std::cerr << (_json ? dumped({{"note", text}}, -1) : "zulctl: " + printable(text)) << std::endl;
}

bool Output::isLost() const {
    return StandardStream::output().isLost();
}

int Output::finish(int exitStatus) const {
    // A user who interrupts the program does not want to wait for a slow reader.
    const auto reader =
        exitStatus == kInterrupted ? StandardStream::Reader::givenUp : StandardStream::Reader::waitedFor;
    const int error = StandardStream::output().finish(reader);
    if (error == 0) {
        static_cast<void>(StandardStream::error().finish(reader));
        return exitStatus;
    }
    const std::string text = "cannot write to standard output (" + std::generic_category().message(error) +
                             "). What it shows is not complete.";
    // An earlier failure keeps its status: it is the more useful one.
    const int status = exitStatus == kDone ? static_cast<int>(kFailed) : exitStatus;
    const nlohmann::json problem = {{"error", {{"message", text}, {"exit", status}}}};
    std::cerr << (_json ? dumped(problem, -1) : "zulctl: " + text) << std::endl;
    static_cast<void>(StandardStream::error().finish(reader));
    return status;
}

void Output::table(const std::vector<std::vector<std::string>>& rows) const {
    std::vector<std::size_t> widths;
    for (const auto& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t column = 0; column < row.size(); ++column) {
            widths[column] = std::max(widths[column], width(printableInLine(row[column])));
        }
    }
    for (const auto& row : rows) {
        std::string text;
        for (std::size_t column = 0; column < row.size(); ++column) {
            const std::string cell = printableInLine(row[column]);
            text += cell;
            if (column + 1 < row.size()) text.append(widths[column] - width(cell) + 2, ' ');
        }
        line(text);
    }
}

} // namespace zul::cli
