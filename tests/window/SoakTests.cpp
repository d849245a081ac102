// Long runs: at the end the program holds no more threads, descriptors and printers than at the beginning.
#include "window/Stage.h"
#include "window/Updates.h"

#include "virtual_printer/VirtualBus.h"

#include <doctest/doctest.h>
#include <filesystem>

namespace zul::test {

namespace {

struct Holdings {
    std::ptrdiff_t threads = 0;
    std::ptrdiff_t descriptors = 0;
};

std::ptrdiff_t entriesOf(const char* folder) {
    return std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator());
}

Holdings holdings() {
    return {entriesOf("/proc/self/task"), entriesOf("/proc/self/fd")};
}

enum class Version { older, equal };

void updateOnce(Stage& stage, Version installed) {
    stage.click("Update Firmware…");
    if (installed == Version::equal) {
        stage.waitForAlert("VK14 01.61 is already installed. Install it again?");
        stage.answer("Install Again");
    }
    agreeAndConfirm(stage, "VK14 01.61");
    stage.waitForAlert(kSuccessTitle);
    stage.answer("Finish");
    stage.waitForDeviceInfo();
}

} // namespace

TEST_CASE("200 attachments and 20 updates leak no thread, descriptor or printer") {
    Stage stage({.printers = {"VK14,restart=20,program=20,speed=1000000000"}, .speed = 20});
    stage.waitForDeviceInfo();
    updateOnce(stage, Version::older); // the program makes some objects once, at the first update
    stage.bus().unplug(0);
    stage.waitFor("no rows", [&] { return stage.rows() == 0; });
    stage.waitFor("no queue", [&] { return stage.printerQueues() == 0; });
    const Holdings before = holdings();
    std::vector<std::weak_ptr<TBUSBPrinterZUL>> seen;
    for (int cycle = 0; cycle < 200; ++cycle) {
        stage.bus().plug(0);
        stage.waitFor("a row", [&] { return stage.rows() == 1; });
        seen.push_back(stage.printers().front());
        stage.bus().unplug(0);
        stage.waitFor("no rows", [&] { return stage.rows() == 0; });
    }
    stage.bus().plug(0);
    stage.waitForDeviceInfo();
    for (int update = 0; update < 20; ++update) {
        seen.push_back(stage.printers().front());
        updateOnce(stage, Version::equal);
    }
    stage.bus().unplug(0);
    stage.waitFor("no rows", [&] { return stage.rows() == 0; });
    // The last queue ends after its last block, and the system lists an ended thread for a moment.
    stage.waitFor("no queue", [&] { return stage.printerQueues() == 0; });
    stage.waitFor("no more threads than before", [&] { return holdings().threads <= before.threads; });
    // The history is opened for each record, and the last one may still be written.
    stage.waitFor("no more descriptors than before", [&] { return holdings().descriptors <= before.descriptors; });
    for (const auto& printer : seen) CHECK(printer.expired());
}

} // namespace zul::test
