// Our printers in the kernel's list of devices.
#include "session/AttachedPrinters.h"
#include "unit/session/UsbTree.h"

#include <doctest/doctest.h>

using namespace zul;
using namespace zul::test;

TEST_CASE("printers of our vendors are found among the machine's devices, with their nodes, keys and drivers") {
    UsbTree tree;
    tree.addDevice("1-2.4", "2a71", "0003", 12);
    tree.addInterface("1-2.4:1.0", "usblp");
    tree.addInterface("1-2.4:1.1", "");
    tree.addDevice("1-1", "2b84", "8b01", 4);
    tree.addDevice("1-3", "1d6b", "0002", 5); // another vendor's
    tree.addInterface("1-3:1.0", "hub");
    const auto printers = attachedPrinters(tree.folders());
    REQUIRE(printers.size() == 2);
    CHECK(printers[0].location == "1-1");
    CHECK(printers[0].product == 0x8B01);
    CHECK(printers[0].drivers.empty());
    CHECK(printers[1].key == "2A71000301240000");
    CHECK(printers[1].location == "1-2.4");
    CHECK(printers[1].node == tree.folders().dev + "/bus/usb/001/012");
    CHECK(printers[1].vendor == 0x2A71);
    CHECK(printers[1].product == 3);
    CHECK(printers[1].drivers == std::vector<std::string>{"usblp"});
}

TEST_CASE("a device that is leaving while it is read, and a machine without USB, are no error") {
    UsbTree tree;
    tree.addDevice("1-1", "2a71", "0003", 4);
    std::filesystem::remove(tree.folder / "sys/bus/usb/devices/1-1/devnum");
    CHECK(attachedPrinters(tree.folders()).empty());
    CHECK(attachedPrinters({.sys = (tree.folder / "none").string()}).empty());
}
