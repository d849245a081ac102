// The table of colour tables, and the look-ups in it. Constants, any thread; read by the printer's questions, the
// verdicts and the windows.
#include "Classes/ColorTables.h"

#include "Classes/DeviceInfoKeys.h"
#include "archive/ProductTable.h"
#include "platform/foundation/Bundle.h"
#include "protocol/CommandFrame.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace zul {

namespace {

// clang-format off
constexpr auto kTables = std::to_array<ColorTable>({
    {"300", Media::SD, "300", HOLVEN_TBPrinterColorTableVersion, HOLVEN_TBPrinterColorTableChecksum300,
     operatorText("Color table"), operatorText("Checksum of the color table"), 24, 28},
    {"600", Media::SD, "600", HOLVEN_TBPrinterColorTableVersion600, HOLVEN_TBPrinterColorTableChecksum600,
     operatorText("Color table 600"), operatorText("Checksum of color table 600"), 25, 29},
    {"610", Media::SD, "610", HOLVEN_TBPrinterColorTableVersion610, HOLVEN_TBPrinterColorTableChecksum610,
     operatorText("Color table 610"), operatorText("Checksum of color table 610"), 26, 30},
    {"620", Media::SD, "620", HOLVEN_TBPrinterColorTableVersion620, HOLVEN_TBPrinterColorTableChecksum620,
     operatorText("Color table 620"), operatorText("Checksum of color table 620"), 27, 31},
    {"300", Media::PP, "300HD", HOLVEN_TBPrinterColorTableVersion300HD, HOLVEN_TBPrinterColorTableChecksum300HD,
     operatorText("Color table 300 HD"), operatorText("Checksum of color table 300 HD"), 24, 28},
    {"600", Media::PP, "600HD", HOLVEN_TBPrinterColorTableVersion600HD, HOLVEN_TBPrinterColorTableChecksum600HD,
     operatorText("Color table 600 HD"), operatorText("Checksum of color table 600 HD"), 25, 29},
    {"610", Media::PP, "610HD", HOLVEN_TBPrinterColorTableVersion610HD, HOLVEN_TBPrinterColorTableChecksum610HD,
     operatorText("Color table 610 HD"), operatorText("Checksum of color table 610 HD"), 26, 30},
    {"620", Media::PP, "620HD", HOLVEN_TBPrinterColorTableVersion620HD, HOLVEN_TBPrinterColorTableChecksum620HD,
     operatorText("Color table 620 HD"), operatorText("Checksum of color table 620 HD"), 27, 31},
});
// clang-format on

// Of the models that have one answer for all tables. Without a number, because no file is looked up by it; its answers
// are kept under the keys of table 300.
constexpr ColorTable kOnlyTable = {"",
                                   Media::any,
                                   "300",
                                   HOLVEN_TBPrinterColorTableVersion,
                                   HOLVEN_TBPrinterColorTableChecksum300,
                                   kTables[0].versionLabel,
                                   kTables[0].checksumLabel,
                                   kCommandTableVersion,
                                   kCommandTableChecksum};

// The largest print first: the order in which a printer is queried.
void addTables(std::vector<const ColorTable*>& tables, Media media) {
    for (auto table = kTables.rbegin(); table != kTables.rend(); ++table) {
        if (table->media == media) tables.push_back(&*table);
    }
}

} // namespace

std::span<const ColorTable> allColorTables() {
    return kTables;
}

bool hasOneTableAnswer(std::uint16_t productID) {
    return productID != kProductVK26 && productID != kProductVK28;
}

std::vector<const ColorTable*> colorTablesOf(std::uint16_t productID) {
    if (productWithID(productID) == nullptr) return {};
    if (hasOneTableAnswer(productID)) return {&kOnlyTable};
    std::vector<const ColorTable*> tables;
    addTables(tables, Media::SD);
    if (productID == kProductVK28) {
        addTables(tables, Media::PP);
    } else {
        tables.erase(tables.begin()); // the VK26 does not print the largest size
    }
    return tables;
}

const ColorTable* colorTableOfFile(std::string_view number, bool isForPP) {
    const auto found = std::ranges::find_if(kTables, [&](const ColorTable& table) {
        return table.number == number && (table.media == Media::PP) == isForPP;
    });
    return found == kTables.end() ? nullptr : &*found;
}

} // namespace zul
