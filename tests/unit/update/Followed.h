// One update in the monitor, driven by generated events.
#pragma once

#include "protocol/CommandFrame.h"
#include "protocol/StatusTexts.h"
#include "support/SimulatedClock.h"
#include "update/UpdateMonitor.h"

namespace zul::test {

struct Followed {
    Followed() {
        monitor.beginUpdate(
            {.key = "key", .installedVersion = "VK14 01.60", .availableVersion = "VK14 01.61", .tables = 2});
    }
    void report(PrinterEvent::What what) {
        monitor.printerEvent({.key = "key", .location = "1-1", .attachment = attachment, .what = std::move(what)});
    }
    void command(std::uint32_t code, IOReturn result = kIOReturnSuccess, std::uint32_t length = 4) {
        report(events::CommandSent{.command = code, .payloadLength = length, .code = result});
    }
    void status(const char* rawStatus) { report(events::StatusRead{rawStatus}); }
    void version(const char* text) { report(events::FirmwareVersionRead{text}); }
    void image(IOReturn result = kIOReturnSuccess) { command(kCommandProgramFlash, result, 2000); }
    void restart() {
        report(events::Departed{});
        report(events::Arrived{});
    }
    void upToLoader() {
        command(kCommandEnterLoader);
        restart();
    }
    void upToImage() {
        upToLoader();
        report(events::ProgressStored{2});
    }
    void upToTables() {
        upToImage();
        image();
        restart();
        version("VK14 01.61");
    }
    void table(std::int64_t number) { report(events::TableBegun{.number = number, .total = 2, .name = "t"}); }
    void tables(int count) {
        for (int number = 1; number <= count; ++number) {
            table(number);
            command(kCommandTableName);
            command(kCommandTableWrite);
        }
    }
    void bytes(std::uint32_t done, std::uint32_t total) { report(events::WriteProgress{done, total}); }
    void finish(bool anyTable = true) { report(events::UpdateReported{anyTable, "VK14 01.61"}); }
    UpdateState state() const { return *monitor.state("key"); }

    std::uint32_t attachment = 0;
    SimulatedClock clock;
    int changes = 0;
    UpdateMonitor monitor{clock, [this](const std::string&) { ++changes; }};
};

} // namespace zul::test
