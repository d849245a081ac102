// The environment of a run: what it keeps, and which one the operations of a class use.
#include "PrinterBench.h"

#include <optional>

using namespace zul;
using namespace zul::test;

TEST_CASE("a new run knows nothing of the devices and objects of the run before it") {
    std::optional<PrinterBench> bench(std::in_place);
    TBUSBPrinter::deviceInfoForKey("one")->set("fact", std::string("x"));
    CHECK(bench->environment.deviceObjects->add("one", 1));
    bench.reset();
    bench.emplace();
    CHECK(TBUSBPrinter::deviceInfoForKey("one")->count() == 0);
    CHECK(bench->environment.deviceObjects->add("one", 2));
}

TEST_CASE("the operations of a class use the environment that was made last, and the earlier one after its end") {
    PrinterBench first;
    CHECK(&Environment::current() == &first.environment);
    const auto known = TBUSBPrinter::deviceInfoForKey("one");
    {
        const Environment second{.mainQueue = first.mainQueue,
                                 .clock = first.clock,
                                 .registry = first.registry,
                                 .userDefaults = first.defaults,
                                 .mainBundle = first.bundle,
                                 .archive = first.firmwareArchive,
                                 .alerts = first.alerts,
                                 .application = first.application};
        CHECK(&Environment::current() == &second);
        CHECK(TBUSBPrinter::deviceInfoForKey("one") != known);
    }
    CHECK(TBUSBPrinter::deviceInfoForKey("one") == known);
}

TEST_CASE("printers and the controller share one port, and after the controller's end the next use makes a new one") {
    PrinterBench bench;
    const auto port = TBPrinters::sharedNotificationPort(bench.environment);
    bench.inlinePrinter();
    CHECK(TBPrinters::sharedNotificationPort(bench.environment) == port);
    TBPrinters(bench.environment, {}).prepareForTermination();
    CHECK(TBPrinters::sharedNotificationPort(bench.environment) != port);
}
