// The virtual printer as a USB host sees it: bytes in pieces of any size never yield more than the printer has, and the
// same bytes in one piece yield the same result.
#include "fuzz/FuzzInput.h"

#include "virtual_printer/VirtualPrinter.h"

#include <vector>

using namespace zul;
using namespace zul::test;

namespace {

std::vector<std::string> commandsOf(const VirtualPrinterSettings& settings, const std::vector<Data>& pieces) {
    std::vector<std::string> commands;
    VirtualPrinter printer(settings, [&](const VirtualCommand& command) { commands.push_back(command.text); });
    printer.attach();
    for (const Data& piece : pieces) {
        const VirtualEffects effects = printer.receive(piece);
        require(printer.bytesWanted() > 0, "a printer always waits for something");
        if (effects.departure || effects.stallsOut) break;
    }
    return commands;
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    FuzzInput input(bytes, size);
    const VirtualPrinterParse parse = parseVirtualPrinter(input.takeText());
    require(parse.settings.has_value() == parse.problem.empty(), "a text is settings or a problem");
    if (!parse.settings) return 0;
    std::vector<Data> pieces;
    Data whole;
    while (!input.isEmpty()) {
        pieces.push_back(input.takeBlock());
        whole.insert(whole.end(), pieces.back().begin(), pieces.back().end());
    }
    const auto inPieces = commandsOf(*parse.settings, pieces);
    if (!parse.settings->faults.empty()) return 0; // they may happen between two pieces
    const auto atOnce = commandsOf(*parse.settings, {whole});
    require(inPieces.size() <= atOnce.size() && std::equal(inPieces.begin(), inPieces.end(), atOnce.begin()),
            "pieces of a frame make the same command");
    return 0;
}
