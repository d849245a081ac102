"""vkgadget as seen by the kernel and by an independent USB client."""
import errno
import grp
import hashlib
import json
import os
import pathlib
import signal
import time

import usbfs
from lab import case, expect, expect_equal
from usbfs import frame, wait_for

CONFIGFS = pathlib.Path("/sys/kernel/config/usb_gadget")


def reply(printer):
    """(announced length, body), read as two transfers."""
    header = printer.read()
    expect_equal(len(header), 8, f"header transfer {header!r}")
    return int(header), printer.read()


def ask(printer, text):
    printer.write(frame(text))
    return reply(printer)[1]


@case("a gadget has one bi-directional printer interface with its identity")
def _(lab):
    with lab.gadget(serial="ZUL0042") as gadget:
        device = gadget.device
        expect_equal(usbfs.attribute(device, "idVendor"), "2a71", "vendor")
        expect_equal(usbfs.attribute(device, "idProduct"), "0003", "product")
        expect_equal(usbfs.attribute(device, "speed"), "480", "speed")
        expect_equal(usbfs.attribute(device, "bNumInterfaces"), "1", "interfaces")
        expect(usbfs.attribute(device, "product"), "it has a product string")
        names = ("bInterfaceClass", "bInterfaceSubClass", "bInterfaceProtocol", "bNumEndpoints")
        expect_equal([usbfs.attribute(f"{device}:1.0", name) for name in names], ["07", "01", "02", "02"], "interface")


@case("the kernel's printer driver binds to a gadget and reads its 1284 ID")
def _(lab):
    with lab.gadget() as gadget:
        wait_for(lambda: usbfs.driver(gadget.device) == "usblp", 10, "usblp is bound")
        # The kernel creates the attribute a moment after the link.
        text = wait_for(lambda: usbfs.attribute(f"{gadget.device}:1.0", "ieee1284_id"), 5, "usblp shows an ID")
        expect("MDL:VK14" in text, f"usblp read {text!r}")


@case("the udev rule gives the group lp and the local user access to a printer and its loader")
def _(lab):
    with lab.gadget() as gadget:
        expect_rights_by_rule(lab, gadget)
        enter_loader(gadget)
        expect_rights_by_rule(lab, gadget)


def expect_rights_by_rule(lab, gadget):
    def tagged_node():
        """The node once it exists and udev has processed it: after a restart both take a moment."""
        node = usbfs.node(gadget.device)
        lab.run("udevadm", "settle", "--timeout=10")
        properties = lab.run("udevadm", "info", "--query=property", node).stdout.splitlines()
        return node if any(line.startswith("TAGS=") and ":uaccess:" in line for line in properties) else None

    status = os.stat(wait_for(tagged_node, 20, "the node is tagged"))
    expect_equal((grp.getgrgid(status.st_gid).gr_name, oct(status.st_mode & 0o777)), ("lp", "0o664"), "rights")


@case("the 1284 ID has a big-endian length that includes itself")
def _(lab):
    with lab.gadget() as gadget, usbfs.Printer(gadget.device) as printer:
        answer = printer.device_id()
        expect_equal(int.from_bytes(answer[:2], "big"), len(answer), "length")
        expect(b"MFG:" in answer and b"MDL:VK14" in answer, f"text {answer!r}")


@case("an unknown control request is stalled and the next one is answered")
def _(lab):
    with lab.gadget() as gadget, gadget.open() as printer:
        try:
            printer.control_in(0xA1, 0x55, 0, 0, 8)
            raise AssertionError("an answer came")
        except OSError as error:
            expect_equal(error.errno, errno.EPIPE, "refusal")
        expect(printer.device_id(), "the 1284 ID is still answered")


@case("a reply is sent as two transfers that each end with a short packet")
def _(lab):
    with lab.gadget() as gadget, gadget.open() as printer:
        printer.write(frame("STATUS"))
        # Reading more than is sent returns only because a short packet ends each part.
        expect_equal(printer.read(4096), b"00000006", "header")
        expect_equal(printer.read(4096), b"00000\r", "body")
        expect_equal(ask(printer, "INFO  FVER"), b"VK14 01.60\r", "version")


@case("commands are recognised when they arrive in pieces and when two arrive in one transfer")
def _(lab):
    with lab.gadget() as gadget, gadget.open() as printer:
        whole = frame("STATUS")
        printer.write(whole[:5])
        printer.write(whole[5:31])
        printer.write(whole[31:])
        expect_equal(reply(printer), (6, b"00000\r"), "reply to the split frame")
        printer.write(whole + frame("INFO  FVER"))
        expect_equal(reply(printer), (6, b"00000\r"), "first reply")
        expect_equal(reply(printer), (11, b"VK14 01.60\r"), "second reply")


@case("the rewrite command makes the printer leave and return on its port as a loader")
def _(lab):
    with lab.gadget() as gadget:
        before = gadget.address()
        with gadget.open() as printer:
            printer.write(frame("FW_UPDFLASH_REWRITE"))
            wait_for(lambda: gadget.address() != before, 5, "the printer has left")
        wait_for(lambda: gadget.is_back(before), 10, "the printer is back")
        with gadget.open() as printer:
            expect_equal(ask(printer, "STATUS"), b"FU00001\r", "status in the loader")
            printer.write(frame("INFO  FVER"))
            try:
                printer.read(8, timeout=300)
                raise AssertionError("the loader answered a version query")
            except OSError as error:
                expect_equal(error.errno, errno.ETIMEDOUT, "silence")
            expect_equal(ask(printer, "STATUS"), b"FU00001\r", "status after the silence")


def image(lab):
    """The sample firmware of a VK14, in the format for the loader."""
    data = (pathlib.Path(lab.archive) / "VK14 01.61.fw").read_bytes()
    return data + bytes(-len(data) % 4)


def enter_loader(gadget):
    before = gadget.address()
    with gadget.open() as printer:
        printer.write(frame("FW_UPDFLASH_REWRITE"))
    wait_for(lambda: gadget.is_back(before), 10, "the loader is attached")


@case("a loader accepts a whole image, reports its status meanwhile and returns with the new firmware")
def _(lab):
    with lab.gadget() as gadget:
        enter_loader(gadget)
        before = gadget.address()
        with gadget.open() as printer:
            printer.write(frame("FW_UPDFLASH_PROGRAM", image(lab)))
            expect_equal(ask(printer, "STATUS"), b"FU00001\r", "status while it programs")
        wait_for(lambda: gadget.is_back(before), 10, "the new firmware is attached")
        with gadget.open() as printer:
            expect_equal(ask(printer, "INFO  FVER"), b"VK14 01.61\r", "version")


@case("a printer unplugged during an image fails the host's write and is a loader again afterwards")
def _(lab):
    with lab.gadget(fault="unplug@FW_UPDFLASH_PROGRAM") as gadget:
        enter_loader(gadget)
        before = gadget.address()
        with gadget.open() as printer:
            try:
                printer.write(frame("FW_UPDFLASH_PROGRAM", image(lab)))
                raise AssertionError("the whole image was accepted")
            except OSError as error:
                # The code depends on the kernel's progress in removing the device.
                expect(error.errno in (errno.ENODEV, errno.EIO, errno.EPROTO, errno.ESHUTDOWN), f"write: {error}")
        wait_for(lambda: gadget.is_back(before), 10, "it is attached again")
        with gadget.open() as printer:
            expect_equal(ask(printer, "STATUS"), b"FU00001\r", "status")


@case("a reply of exactly one packet is ended by a zero-length packet")
def _(lab):
    with lab.gadget(firmware="V" * 511) as gadget, gadget.open() as printer:
        printer.write(frame("INFO  FVER"))
        expect_equal(printer.read(4096), b"00000512", "header")
        expect_equal(len(printer.read(4096)), 512, "body")
        expect_equal(ask(printer, "STATUS"), b"00000\r", "the next reply is in step")


@case("faults of the printer are visible on the bus: a stalled pipe, a missing reply, a late reply")
def _(lab):
    faults = {"fault": "stall@STATUS#1,fault=silence@STATUS#2,fault=late@STATUS#3:300"}
    with lab.gadget(**faults) as gadget, gadget.open() as printer:
        printer.write(frame("STATUS"))
        expect_equal(failure(printer), errno.EPIPE, "read of a stalled pipe")
        printer.clear_halt()
        printer.write(frame("STATUS"))
        expect_equal(failure(printer), errno.ETIMEDOUT, "read in silence")
        started = time.monotonic()
        expect_equal(ask(printer, "STATUS"), b"00000\r", "late answer")
        expect(time.monotonic() - started >= 0.3, "it is late")


def failure(printer):
    try:
        return printer.read(4096, timeout=500)
    except OSError as error:
        return error.errno


@case("a printer whose restart never ends remains detached and its gadget can still be stopped")
def _(lab):
    with lab.gadget(fault="never-back@REWRITE") as gadget:
        with gadget.open() as printer:
            printer.write(frame("FW_UPDFLASH_REWRITE"))
        wait_for(lambda: not gadget.present(), 5, "it is detached")
        time.sleep(1)
        expect(not gadget.present(), "it remains detached")
        expect_equal(gadget.stop(), 0, "exit status")


@case("a printer can return from a restart on another port")
def _(lab):
    with lab.gadget(fault="elsewhere@REWRITE") as gadget:
        with gadget.open() as printer:
            printer.write(frame("FW_UPDFLASH_REWRITE"))
        place = wait_for(lambda: [device for device in usbfs.printers() if device != gadget.device], 10, "elsewhere")
        expect(not gadget.present(), "the old port is empty")
        wait_for(lambda: os.path.exists(usbfs.node(place[0])), 5, "the node exists")


@case("the USB serial number follows the printer's setting from the next restart on")
def _(lab):
    with lab.gadget(**{"serial": "ZUL0042", "usb-serial": "off"}) as gadget:
        expect(not usbfs.attribute(gadget.device, "serial"), "none at first")
        with gadget.open() as printer:
            printer.write(frame("MNT_WTUSB_ISERI_SET", b"01\r\0"))
        enter_loader(gadget)
        # The system lists a device a moment before all of its strings.
        wait_for(lambda: usbfs.attribute(gadget.device, "serial") == "ZUL0042", 5, "it has a serial number")


@case("the journal records arrivals, commands with the image's digest, and departures in order")
def _(lab):
    with lab.gadget() as gadget:
        enter_loader(gadget)
        with gadget.open() as printer:
            payload = image(lab)
            printer.write(frame("FW_UPDFLASH_PROGRAM", payload))
            ask(printer, "STATUS")
        entries = [json.loads(line) for line in gadget.journal.read_text().splitlines()]
    shown = [(entry["event"], entry.get("command")) for entry in entries if entry["event"] != "control"]
    expect_equal(shown, [("arrive", None), ("command", "FW_UPDFLASH_REWRITE"), ("leave", None), ("arrive", None),
                         ("command", "FW_UPDFLASH_PROGRAM"), ("command", "STATUS")], "events")
    digest = [entry["sha256"] for entry in entries if entry.get("length", 0) > 1000]
    expect_equal(digest, [hashlib.sha256(payload).hexdigest()], "digest")


@case("two gadgets on two controllers are two independent printers")
def _(lab):
    with lab.gadget(0) as first, lab.gadget(1, firmware="VK14 01.59") as second:
        expect(first.device != second.device, "two devices")
        with first.open() as one, second.open() as two:
            expect_equal(ask(two, "INFO  FVER"), b"VK14 01.59\r", "second")
            expect_equal(ask(one, "INFO  FVER"), b"VK14 01.60\r", "first")


@case("a gadget with two interfaces processes one frame after the other, and replies on the frame's interface")
def _(lab):
    with lab.gadget(interfaces=2) as gadget, gadget.open() as first, gadget.open(1) as second:
        expect_equal(ask(second, "INFO  FVER"), b"VK14 01.60\r", "second interface")
        whole = frame("STATUS")
        first.write(whole[:10])
        first.write(whole[10:20])  # accepted only after the earlier bytes were processed
        second.write(frame("INFO  SERIAL_NUMBER"))
        expect_equal(failure(second), errno.ETIMEDOUT, "read while the other frame is under way")
        first.write(whole[20:])
        expect_equal(reply(first), (6, b"00000\r"), "first interface")
        expect_equal(reply(second), (7, b"000001\r"), "second interface afterwards")


@case("a stopped gadget leaves no files or mounts and exits with status 0")
def _(lab):
    for how in (signal.SIGTERM, signal.SIGINT):
        with lab.gadget() as gadget:
            expect_equal(gadget.stop(how), 0, "exit status")
            wait_for(lambda: not gadget.present(), 5, "it is removed from the bus")
            expect_equal(os.listdir(CONFIGFS), [], "gadgets in configfs")
            expect("vkgadget" not in pathlib.Path("/proc/mounts").read_text(), "FunctionFS is unmounted")


@case("the remains of a killed gadget do not prevent the next one")
def _(lab):
    with lab.gadget() as gadget:
        gadget.stop(signal.SIGKILL)
        wait_for(lambda: not gadget.present(), 5, "it is removed from the bus")
    with lab.gadget() as gadget, gadget.open() as printer:
        expect_equal(ask(printer, "STATUS"), b"00000\r", "status")


def refusal(lab, *command, **options):
    result = lab.run(*command, **options)
    expect(result.returncode not in (0, None), "it is refused")
    expect(result.returncode > 0, "it does not crash")
    return result.stderr


@case("vkgadget reports what is missing and what to do about it")
def _(lab):
    program = lab.vkgadget
    expect("root" in refusal(lab, "setpriv", "--reuid=65534", "--clear-groups", program, "VK14"), "not root")
    expect("dummy_udc.0" in refusal(lab, program, "VK14", "--udc", "no_udc"), "the existing controllers are listed")
    expect(refusal(lab, program, "VK99", "--udc", "dummy_udc.0"), "unknown model")
    without_configfs = f"umount /sys/kernel/config && exec {program} VK14"
    expect("mount -t configfs" in refusal(lab, "unshare", "-m", "sh", "-c", without_configfs), "no configfs")
    without_udc = f"mount -t tmpfs none /sys/class/udc && exec {program} VK14"
    expect("dummy_hcd" in refusal(lab, "unshare", "-m", "sh", "-c", without_udc), "no controller")
    with lab.gadget():
        expect("in use" in refusal(lab, program, "VK14", "--udc", "dummy_udc.0", "--name", "other"), "in use")
