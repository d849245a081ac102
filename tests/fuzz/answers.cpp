// A printer with arbitrary replies: every query of the engine gets arbitrary transfers, and each resulting value is a
// short text or absent.
#include "fuzz/FuzzInput.h"

#include "unit/engine/PrinterBench.h"

using namespace zul;
using namespace zul::test;

namespace {

constexpr std::uint16_t kProducts[] = {3, 4, 5, 8, 0x8B01, 0x9001, 0x1234};
constexpr std::size_t kLongestFact = 4096; // bytes of a reply

void ask(TBUSBPrinterZUL& printer) {
    printer.getPrinterStatus([](const auto&) {});
    printer.getPrinterFirmwareVersion();
    printer.getPrinterColorTableVersion({});
    printer.getPrinterColorTableChecksum({});
    printer.getPrinterLifetimeCounter();
    printer.getUSB_ISerial();
    printer.updateInfo();
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    FuzzInput input(bytes, size);
    PrinterBench bench;
    const std::uint16_t product = kProducts[input.takeByte() % std::size(kProducts)];
    const auto printer = bench.inlinePrinter(product);
    static_cast<void>(printer->openInterface());
    while (!input.isEmpty()) bench.handle->enqueueRead(input.takeBlock());
    ask(*printer);
    bench.settle();
    for (const char* key :
         {HOLVEN_TBPrinterFirmwareVersion, HOLVEN_TBPrinterSerialNumber, HOLVEN_TBPrinterColorTableVersion,
          HOLVEN_TBPrinterColorTableChecksum300, HOLVEN_TBPrinterLifetimeCounter}) {
        const auto value = printer->infoText(key);
        require(!value || value->size() <= kLongestFact, "a fact is no longer than a reply");
    }
    return 0;
}
