// A USB device with arbitrary descriptors, strings and device ID: a printer object can always be created for it.
#include "fuzz/FuzzInput.h"

#include "Classes/USBInterfaceHelpers.h"
#include "unit/engine/PrinterBench.h"

using namespace zul;
using namespace zul::test;

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    FuzzInput input(bytes, size);
    PrinterBench bench;
    bench.handle->answerByDefault();
    bench.handle->setDescriptor(0x0100, input.takeBlock()); // device descriptor
    for (const std::uint16_t index : {0, 1, 2, 3}) {
        bench.handle->setDescriptor(static_cast<std::uint16_t>(0x0300 | index), input.takeBlock());
    }
    const std::string direct = input.takeText();
    bench.handle->setDeviceIDReply(input.takeRest());

    bench.printer = std::make_shared<TBUSBPrinterZUL>(bench.environment);
    bench.printer->initWithInterfaceInterface(bench.handle, 7);
    bench.settle();
    require(!bench.printer->descriptionUTF8().empty(), "a printer can be named");
    require(bench.printer->keyUSBdevice().size() == 16, "a key has sixteen digits");
    int decodings = 0;
    bench.printer->decodeDeviceID(direct, [&](const auto& manufacturer, const auto& model, const auto&, const auto&) {
        ++decodings;
        require(manufacturer && model, "who it is is never missing");
    });
    require(decodings == 1, "a device ID is decoded once");

    std::optional<std::string> serial;
    static_cast<void>(usbInterfaceCreateSerialNumberString(bench.handle.get(), &serial));
    std::optional<std::string> string;
    static_cast<void>(usbInterfaceGetDescriptorStringCopy(bench.handle.get(), 1, &string));
    return 0;
}
