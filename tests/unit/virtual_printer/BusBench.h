// A test bench for the embedded bus: the clock is simulated, arrivals and departures are recorded, and handles are used
// from a separate queue as in the engine, or directly from the test.
#pragma once

#include "support/SimulatedClock.h"
#include "unit/virtual_printer/Wire.h"
#include "virtual_printer/VirtualBus.h"

#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace zul {

using InterfacePtr = std::shared_ptr<IOUSBInterfaceInterface>;

class BusBench {
  public:
    /// Each description is one printer; the bus starts with them attached.
    explicit BusBench(const std::vector<std::string>& descriptions = {"VK14"}) {
        watch(ServiceNotification::matched, "arrived");
        watch(ServiceNotification::terminated, "left");
        for (const std::string& description : descriptions) bus.add(described(description));
        REQUIRE(bus.start(registry) == kIOReturnSuccess);
        settle();
    }
    ~BusBench() {
        queue.reset();
        drain();
        while (SerialQueue::liveThreads() > 0) std::this_thread::yield();
    }
    BusBench(const BusBench&) = delete;
    BusBench& operator=(const BusBench&) = delete;

    void settle() { clock.settle(mainQueue); }
    void drain() { clock.drain(mainQueue); }
    void advance(std::chrono::milliseconds span) { clock.advance(mainQueue, span); }
    std::chrono::milliseconds elapsed() {
        return std::chrono::duration_cast<std::chrono::milliseconds>(clock.elapsed());
    }

    /// The services on the bus, in the order of their arrival.
    std::vector<ServiceToken> tokens() const { return registry.services(); }
    std::shared_ptr<USBService> service(std::size_t index = 0) const { return registry.service(tokens().at(index)); }
    InterfacePtr handle(std::size_t index = 0) const {
        InterfacePtr made;
        REQUIRE(service(index)->createInterfaceInterface(made) == kIOReturnSuccess);
        return made;
    }
    InterfacePtr openHandle(std::size_t index = 0) const {
        InterfacePtr made = handle(index);
        REQUIRE(made->USBInterfaceOpenSeize() == kIOReturnSuccess);
        return made;
    }
    /// Queues the block; it runs during the next settle(), drain() or advance().
    void onQueue(Block block) { queue->async(std::move(block)); }

    static IOReturn write(IOUSBInterfaceInterface& handle, const Data& bytes) {
        return handle.WritePipeTO(1, bytes.data(), static_cast<std::uint32_t>(bytes.size()), 5000, 5000);
    }
    static IOReturn read(IOUSBInterfaceInterface& handle, std::string& text, std::uint32_t size = 256) {
        Data buffer(size);
        const IOReturn code = handle.ReadPipeTO(2, buffer.data(), size, 5000, 5000);
        text.assign(buffer.begin(), buffer.begin() + size);
        return code;
    }
    /// Header and body of the reply to a command, or the name of the failure.
    static std::string ask(IOUSBInterfaceInterface& handle, const std::string& command) {
        std::string text;
        std::string answer;
        if (write(handle, frame(command)) != kIOReturnSuccess) return "(not written)";
        if (read(handle, text, 8) != kIOReturnSuccess) return "(no header)";
        answer = text + ' ';
        if (read(handle, text) != kIOReturnSuccess) return answer + "(no body)";
        return answer + text;
    }

    SimulatedClock clock;
    MainQueue mainQueue{clock};
    ServiceRegistry registry;
    std::shared_ptr<VirtualJournal> journal = std::make_shared<VirtualJournal>(clock);
    VirtualBus bus{mainQueue, clock, journal};
    NotificationPort port{registry};
    std::vector<std::string> events; // "arrived 0x101", "left 0x101"
    std::unique_ptr<SerialQueue> queue = std::make_unique<SerialQueue>("printer", clock);

  private:
    void watch(ServiceNotification kind, const char* name) {
        const auto note = [this, name](ServiceIterator& iterator) {
            while (const ServiceToken token = iterator.next()) {
                char text[32];
                std::snprintf(text, sizeof(text), "%s 0x%x", name, token);
                events.emplace_back(text);
            }
        };
        note(*port.addMatchingNotification(kind, {"IOUSBInterface", 7, 1}, note));
    }
};

} // namespace zul
