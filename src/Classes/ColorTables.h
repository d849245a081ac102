// The colour tables that printers can have: the commands that query each, the keys under which its answers are kept,
// and its names. One table, which the queries, the verdicts and the windows read. Constants, any thread.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace zul {

/// The media that a table is for, on models that have tables for two.
enum class Media { any, SD, PP };

struct ColorTable {
    std::string_view number; // "600": the size of the print; also in the names of the table's files
    Media media;
    const char* name;          // as in the list of printers: "600HD"
    const char* versionKey;    // of the device info
    const char* checksumKey;   // of the device info
    const char* versionLabel;  // for the operator, to be looked up
    const char* checksumLabel; // for the operator, to be looked up
    std::uint32_t versionCommand;
    std::uint32_t checksumCommand;
};

/// All tables that any model has, in the order in which they are shown.
std::span<const ColorTable> allColorTables();
/// Whether the model answers for all of its tables with one version and one checksum, kept as those of table 300.
bool hasOneTableAnswer(std::uint16_t productID);
/// The tables that a model is asked for, in this order; empty for an unknown product.
std::vector<const ColorTable*> colorTablesOf(std::uint16_t productID);
/// The table that a file with this number in its name is for; null if no model has it. isForPP: the file is for the
/// other media.
const ColorTable* colorTableOfFile(std::string_view number, bool isForPP);

} // namespace zul
