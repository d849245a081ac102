// Which handle may use an embedded printer's interface, and how another program's release is reported.
#include "unit/virtual_printer/BusBench.h"

namespace zul {

using std::chrono::milliseconds;

TEST_CASE("an interface is claimed by one handle at a time") {
    BusBench bench;
    const auto one = bench.openHandle();
    const auto other = bench.handle();
    CHECK(one->USBInterfaceOpenSeize() == kIOReturnSuccess);
    CHECK(other->USBInterfaceOpenSeize() == kIOReturnExclusiveAccess);
    CHECK(other->USBInterfaceClose() == kIOReturnError);
    CHECK(one->USBInterfaceClose() == kIOReturnSuccess);
    CHECK(other->USBInterfaceOpenSeize() == kIOReturnSuccess);
}

TEST_CASE("a handle that is destroyed releases its claim") {
    BusBench bench;
    bench.openHandle().reset();
    CHECK(bench.handle()->USBInterfaceOpenSeize() == kIOReturnSuccess);
}

TEST_CASE("an interface that another program holds cannot be opened until it is released") {
    BusBench bench;
    const auto handle = bench.handle();
    bench.bus.setHeldByOther(0, true);
    CHECK(handle->USBInterfaceOpenSeize() == kIOReturnExclusiveAccess);
    CHECK(handle->tryClaim() == kIOReturnExclusiveAccess);
    bench.bus.setHeldByOther(0, false);
    CHECK(handle->tryClaim() == kIOReturnSuccess);
    CHECK(handle->USBInterfaceOpenSeize() == kIOReturnSuccess);
}

TEST_CASE("a watch is called each time that the other program releases the printer, until it is ended") {
    BusBench bench;
    const auto handle = bench.handle();
    int calls = 0;
    bench.bus.setHeldByOther(0, true);
    handle->watchHolder([&] { ++calls; });
    CHECK(calls == 0);
    bench.bus.setHeldByOther(0, false);
    CHECK(calls == 1);
    bench.bus.setHeldByOther(0, true);
    bench.bus.setHeldByOther(0, false);
    CHECK(calls == 2);
    handle->watchHolder(nullptr);
    bench.bus.setHeldByOther(0, true);
    bench.bus.setHeldByOther(0, false);
    CHECK(calls == 2);
}

TEST_CASE("closes by this process are not reported to a watch, and a watch ends with its handle or its attachment") {
    BusBench bench;
    int calls = 0;
    auto handle = bench.openHandle();
    handle->watchHolder([&] { ++calls; });
    CHECK(handle->USBInterfaceClose() == kIOReturnSuccess);
    CHECK(calls == 0);
    handle.reset();
    bench.bus.setHeldByOther(0, true);
    bench.bus.setHeldByOther(0, false);
    CHECK(calls == 0);
    handle = bench.handle();
    handle->watchHolder([&] { ++calls; });
    bench.bus.unplug(0);
    bench.bus.setHeldByOther(0, true);
    bench.bus.setHeldByOther(0, false);
    handle->watchHolder([&] { ++calls; });
    CHECK(calls == 0);
}

TEST_CASE("a watch may own the handle itself and is released with the attachment") {
    BusBench bench;
    std::weak_ptr<IOUSBInterfaceInterface> weak;
    {
        const auto handle = bench.handle();
        weak = handle;
        handle->watchHolder([handle] {});
    }
    CHECK(!weak.expired());
    bench.bus.unplug(0);
    CHECK(weak.expired());
}

TEST_CASE("a holder at the n-th open releases the printer after its time, which is reported on the main queue") {
    BusBench bench({"VK14,fault=holder#2:800"});
    const auto handle = bench.openHandle();
    CHECK(handle->USBInterfaceClose() == kIOReturnSuccess);
    IOReturn code = kIOReturnSuccess;
    milliseconds freeAt{0};
    bench.onQueue([&] {
        code = handle->USBInterfaceOpenSeize();
        handle->watchHolder([&] { freeAt = bench.elapsed(); });
    });
    bench.settle();
    CHECK(code == kIOReturnExclusiveAccess);
    bench.advance(milliseconds(799));
    CHECK(freeAt == milliseconds(0));
    bench.advance(milliseconds(1));
    CHECK(freeAt == milliseconds(800));
    CHECK(handle->USBInterfaceOpenSeize() == kIOReturnSuccess);
}

TEST_CASE("the other holder is reported by its name while it holds the printer") {
    BusBench bench;
    const auto handle = bench.openHandle();
    CHECK(handle->holder() == InterfaceHolder{});
    bench.bus.setHeldByOther(0, true);
    CHECK(handle->holder().kind == InterfaceHolder::Kind::process);
    CHECK(handle->holder().program == "another program");
    bench.bus.setHeldByOther(0, false);
    CHECK(handle->holder() == InterfaceHolder{});
}

TEST_CASE("a holder that has released the printer when the watch begins is reported by that watch") {
    BusBench bench;
    const auto handle = bench.handle();
    int calls = 0;
    handle->watchHolder([&] { ++calls; });
    bench.settle();
    CHECK(calls == 1);
    bench.bus.setHeldByOther(0, true);
    handle->watchHolder([&] { ++calls; });
    bench.settle();
    CHECK(calls == 1);
    bench.bus.setHeldByOther(0, false);
    CHECK(calls == 2);
}

TEST_CASE("an interface that another handle holds is neither free nor reported as free") {
    BusBench bench;
    const auto first = bench.openHandle();
    const auto second = bench.handle();
    CHECK(first->tryClaim() == kIOReturnSuccess);
    CHECK(second->tryClaim() == kIOReturnExclusiveAccess);
    int calls = 0;
    second->watchHolder([&] { ++calls; });
    bench.settle();
    CHECK(calls == 0);
}

} // namespace zul
