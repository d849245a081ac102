// Printers in the kernel's list of devices.
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
    tree.addDevice("1-3", "1d6b", "0002", 5); // of another vendor
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
    CHECK(printers[1].driverNodes.empty()); // it has no node yet
}

TEST_CASE("the nodes of the kernel's printer driver are found for every interface that it is bound to") {
    UsbTree tree;
    tree.addDevice("1-2.4", "2a71", "0003", 12);
    tree.addDriverNode("1-2.4:1.1", "lp3");
    tree.addDriverNode("1-2.4:1.0", "lp12");
    tree.addDriverNode("1-2:1.0", "lp0"); // of another device
    std::filesystem::create_directories(tree.folder / "sys/bus/usb/devices/1-2.4:1.0/usbmisc/hiddev0");
    const std::string folder = tree.folders().dev + "/usb/";
    CHECK(printerDriverNodes(tree.folders(), "1-2.4") == std::vector<std::string>{folder + "lp12", folder + "lp3"});
    CHECK(attachedPrinters(tree.folders()).at(0).driverNodes.size() == 2);
    CHECK(printerDriverNodes({.sys = (tree.folder / "none").string()}, "1-2.4").empty());
}

TEST_CASE("a device that is being detached while it is read, and a machine without USB, cause no error") {
    UsbTree tree;
    tree.addDevice("1-1", "2a71", "0003", 4);
    std::filesystem::remove(tree.folder / "sys/bus/usb/devices/1-1/devnum");
    CHECK(attachedPrinters(tree.folders()).empty());
    CHECK(attachedPrinters({.sys = (tree.folder / "none").string()}).empty());
}
