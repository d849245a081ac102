"""vkgadget as the kernel and an independent USB client see it."""
import errno
import os
import pathlib
import signal
import subprocess
import time

import usbfs
from lab import case, expect, expect_equal
from usbfs import frame, wait_for

CONFIGFS = pathlib.Path("/sys/kernel/config/usb_gadget")


def reply(printer):
    """(announced length, body): two transfers."""
    header = printer.read()
    expect_equal(len(header), 8, f"header transfer {header!r}")
    return int(header), printer.read()


def ask(printer, text):
    printer.write(frame(text))
    return reply(printer)[1]


@case("a gadget shows the host one bi-directional printer interface with its identity")
def _(lab):
    with lab.gadget(serial="ZUL0042") as gadget:
        device = gadget.device
        expect_equal(usbfs.attribute(device, "idVendor"), "2a71", "vendor")
        expect_equal(usbfs.attribute(device, "idProduct"), "0003", "product")
        expect_equal(usbfs.attribute(device, "speed"), "480", "speed")
        expect_equal(usbfs.attribute(device, "bNumInterfaces"), "1", "interfaces")
        expect(usbfs.attribute(device, "product"), "a product text is there")
        names = ("bInterfaceClass", "bInterfaceSubClass", "bInterfaceProtocol", "bNumEndpoints")
        expect_equal([usbfs.attribute(f"{device}:1.0", name) for name in names], ["07", "01", "02", "02"], "interface")


@case("the kernel's printer driver binds a gadget and reads its 1284 ID")
def _(lab):
    with lab.gadget() as gadget:
        wait_for(lambda: usbfs.driver(gadget.device) == "usblp", 10, "usblp is bound")
        text = usbfs.attribute(f"{gadget.device}:1.0", "ieee1284_id") or ""
        expect("MDL:VK14" in text, f"usblp read {text!r}")


@case("the 1284 ID carries a big-endian length that counts itself")
def _(lab):
    with lab.gadget() as gadget, usbfs.Printer(gadget.device) as printer:
        answer = printer.device_id()
        expect_equal(int.from_bytes(answer[:2], "big"), len(answer), "length")
        expect(b"MFG:" in answer and b"MDL:VK14" in answer, f"text {answer!r}")


@case("an unknown control request is refused with a stall and the next one is answered")
def _(lab):
    with lab.gadget() as gadget, gadget.open() as printer:
        try:
            printer.control_in(0xA1, 0x55, 0, 0, 8)
            raise AssertionError("an answer came")
        except OSError as error:
            expect_equal(error.errno, errno.EPIPE, "refusal")
        expect(printer.device_id(), "the 1284 ID is still answered")


@case("a reply comes as two transfers that each end with a short packet")
def _(lab):
    with lab.gadget() as gadget, gadget.open() as printer:
        printer.write(frame("STATUS"))
        # Reading far more than is sent returns only because a short packet ends each part.
        expect_equal(printer.read(4096), b"00000006", "header")
        expect_equal(printer.read(4096), b"00000\r", "body")
        expect_equal(ask(printer, "INFO  FVER"), b"VK14 01.60\r", "version")


@case("commands are understood when they arrive in pieces and when two arrive in one transfer")
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


@case("the rewrite command makes the printer leave and come back on its port as a loader")
def _(lab):
    with lab.gadget() as gadget:
        before = gadget.address()
        with gadget.open() as printer:
            printer.write(frame("FW_UPDFLASH_REWRITE"))
            wait_for(lambda: gadget.address() != before, 5, "the printer has left")
        wait_for(lambda: gadget.present() and gadget.address() != before, 10, "the printer is back")
        with gadget.open() as printer:
            expect_equal(ask(printer, "STATUS"), b"FU00001\r", "status in the loader")
            printer.write(frame("INFO  FVER"))
            try:
                printer.read(8, timeout=300)
                raise AssertionError("the loader answered a version query")
            except OSError as error:
                expect_equal(error.errno, errno.ETIMEDOUT, "silence")
            expect_equal(ask(printer, "STATUS"), b"FU00001\r", "status after the silence")


@case("two gadgets on two controllers are two printers that answer for themselves")
def _(lab):
    with lab.gadget(0) as first, lab.gadget(1, firmware="VK14 01.59") as second:
        expect(first.device != second.device, "two devices")
        with first.open() as one, second.open() as two:
            expect_equal(ask(two, "INFO  FVER"), b"VK14 01.59\r", "second")
            expect_equal(ask(one, "INFO  FVER"), b"VK14 01.60\r", "first")


@case("a stopped gadget leaves nothing behind and ends with status 0")
def _(lab):
    for how in (signal.SIGTERM, signal.SIGINT):
        with lab.gadget() as gadget:
            expect_equal(gadget.stop(how), 0, "exit status")
            wait_for(lambda: not gadget.present(), 5, "gone from the bus")
            expect_equal(os.listdir(CONFIGFS), [], "gadgets in configfs")
            expect("vkgadget" not in pathlib.Path("/proc/mounts").read_text(), "FunctionFS is unmounted")


@case("a killed gadget's remains do not hinder the next one")
def _(lab):
    with lab.gadget() as gadget:
        gadget.stop(signal.SIGKILL)
        wait_for(lambda: not gadget.present(), 5, "gone from the bus")
    with lab.gadget() as gadget, gadget.open() as printer:
        expect_equal(ask(printer, "STATUS"), b"00000\r", "status")


def refusal(lab, *command, **options):
    result = lab.run(*command, **options)
    expect(result.returncode not in (0, None), "it is refused")
    expect(result.returncode > 0, "it does not crash")
    return result.stderr


@case("vkgadget says what is missing and what to do about it")
def _(lab):
    program = lab.vkgadget
    expect("root" in refusal(lab, "setpriv", "--reuid=65534", "--clear-groups", program, "VK14"), "not root")
    expect("dummy_udc.0" in refusal(lab, program, "VK14", "--udc", "no_udc"), "the controllers there are")
    expect(refusal(lab, program, "VK99", "--udc", "dummy_udc.0"), "unknown model")
    without_configfs = f"umount /sys/kernel/config && exec {program} VK14"
    expect("mount -t configfs" in refusal(lab, "unshare", "-m", "sh", "-c", without_configfs), "no configfs")
    without_udc = f"mount -t tmpfs none /sys/class/udc && exec {program} VK14"
    expect("dummy_hcd" in refusal(lab, "unshare", "-m", "sh", "-c", without_udc), "no controller")
    with lab.gadget():
        expect("in use" in refusal(lab, program, "VK14", "--udc", "dummy_udc.0", "--name", "other"), "taken")
