"""zulctl on the real USB stack: finding, reading and updating a printer, and its messages when that is not possible."""
import json
import os
import shutil

import usbfs
from lab import case, expect, expect_equal
from usbfs import wait_for

DONE, NO_PRINTER, BUSY = 0, 4, 5


def update(lab, *more, timeout=90):
    return lab.zulctl("--firmware-archive", lab.archive, "update", "--agree", "--yes", *more, timeout=timeout)


def installed_version(lab):
    """The version that a new zulctl reads from the printer."""
    result = lab.zulctl("info")
    expect_equal(result.returncode, DONE, "exit status of info")
    return result.stdout


@case("zulctl reports that no printer is attached and exits with 4")
def _(lab):
    expect_equal(usbfs.printers(), [], "printers on the bus")
    expect_equal(lab.zulctl("info").returncode, NO_PRINTER, "exit status")


@case("zulctl list shows a printer on the bus with its versions")
def _(lab):
    with lab.gadget() as gadget:
        result = lab.zulctl("list")
        expect_equal(result.returncode, DONE, "exit status")
        expect("VK14" in result.stdout and "01.60" in result.stdout, "model and installed version are shown")


@case("zulctl info shows the printer's values")
def _(lab):
    with lab.gadget():
        text = installed_version(lab)
        for wanted in ("VK14 01.60", "Idle"):
            expect(wanted in text, f"{wanted} is shown")


@case("zulctl detaches usblp and attaches it again at its end")
def _(lab):
    with lab.gadget() as gadget:
        wait_for(lambda: usbfs.driver(gadget.device) == "usblp", 10, "usblp is bound")
        expect_equal(lab.zulctl("status").returncode, DONE, "exit status")
        wait_for(lambda: usbfs.driver(gadget.device) == "usblp", 5, "usblp is bound again")


@case("zulctl exits with 5 while another program holds the printer")
def _(lab):
    with lab.gadget() as gadget:
        with gadget.open():
            result = lab.zulctl("status")
            expect_equal(result.returncode, BUSY, "exit status")
        expect_equal(lab.zulctl("status").returncode, DONE, "exit status when it is free again")


@case("zulctl updates a printer through both restarts and reports success")
def _(lab):
    with lab.gadget() as gadget:
        result = update(lab)
        expect_equal(result.returncode, DONE, "exit status")
        expect("01.61" in result.stdout, "the new version is reported")
        expect("VK14 01.61" in installed_version(lab), "the printer has the new version")
        expect_equal(gadget.process.poll(), None, "the gadget still runs")


@case("a printer on the bus is not updated from the sample archive unless that is named explicitly")
def _(lab):
    with lab.gadget() as gadget:
        result = lab.zulctl("update", "--agree", "--yes")
        expect_equal(result.returncode, 1, "exit status")
        expect("samples for virtual printers" in result.stderr and "--firmware-archive" in result.stderr, "it says so")
        expect("FW_UPD" not in gadget.journal.read_text(), "no command was sent")


@case("two printers are updated in one run")
def _(lab):
    with lab.gadget(0), lab.gadget(1):
        expect_equal(update(lab, "--all").returncode, DONE, "exit status")
        expect(lab.zulctl("list").stdout.count("01.60") == 0, "no printer has the old version")


@case("a printer with two interfaces is updated once: one result, one image, each table once, and both drivers are "
      "bound again")
def _(lab):
    with lab.gadget(interfaces=2) as gadget:
        result = lab.zulctl("--json", "--firmware-archive", lab.archive, "update", "--agree", "--yes", "--all", timeout=120)
        expect_equal(result.returncode, DONE, "exit status")
        expect_equal(result.stdout.count('"event":"result"'), 1, "results")
        wanted = {"FW_UPDFLASH_REWRITE": 1, "FW_UPDFLASH_PROGRAM": 1, "TBL_CL": 1, "TBL_WTCTRLD_UPDATE_CW": 2}
        expect_equal({command: gadget.commands().count(command) for command in wanted}, wanted, "what was sent")
        rows = json.loads(lab.zulctl("--json", "list").stdout)
        expect_equal([row["firmwareInstalled"] for row in rows], ["VK14 01.61"] * 2, "a row for each interface")
        wait_for(lambda: [usbfs.driver(gadget.device, number) for number in range(2)] == ["usblp"] * 2, 5,
                 "usblp is bound to both")


@case("without rights on the node zulctl reports the node and the udev rule")
def _(lab):
    with lab.gadget() as gadget:
        node = usbfs.node(gadget.device)
        os.chmod(node, 0o600)
        # A user without rights may not be able to reach the build folder either.
        program = shutil.copy(lab.zulctl_path, lab.folder / "zulctl")
        result = lab.run(program, "list", user=65534, group=65534, extra_groups=[])
        text = result.stdout + result.stderr
        expect(node in text and "70-zul-printer-utility.rules" in text, "both are named")
        lines = result.stderr.splitlines()
        expect_equal([line.split(":")[0] for line in lines], ["ERROR", "ERROR", "zulctl"], "the cause, then what to do")
        expect_equal(result.stdout, "No attached printer can be used.\n", "standard output")
