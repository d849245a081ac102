"""The window on the real USB stack: on a private display, controlled by keys and read by a screen reader."""
import usbfs
from cases_kill import ENTER_LOADER, kill_when
from lab import case, expect, expect_equal

STEP = 4000  # ms that each step of the update lasts at least; a slow guest takes seconds to read the window once


@case("the window updates a printer on the bus through both restarts, and a screen reader can read every step")
def _(lab):
    step = int(STEP * usbfs.slowness)
    with lab.gadget(restart=step, program=step) as gadget:
        result = lab.run(lab.on_display, "/usr/bin/python3", lab.journey, lab.window,
                         "--firmware-archive", lab.archive, timeout=240)
        expect_equal(result.returncode, 0, "exit status")
        expect("journey: done" in result.stdout, "all steps were shown")
        journal = gadget.journal.read_text()
        order = [journal.find(command) for command in ("FLASH_REWRITE", "FLASH_PROGRAM", "TBL_WTCTRLD_UPDATE_CW")]
        expect(-1 not in order and order == sorted(order), f"loader, image and tables in their order: {order}")


@case("the window reports that samples are not for a printer on the bus, and sends no command")
def _(lab):
    with lab.gadget() as gadget:
        result = lab.run(lab.on_display, "/usr/bin/python3", lab.journey, "--with-samples", lab.window, timeout=240)
        expect_equal(result.returncode, 0, "exit status")
        expect("FW_UPD" not in gadget.journal.read_text(), "no command was sent")


@case("the window offers to complete an update that was killed, and one action of the operator completes it")
def _(lab):
    with lab.gadget() as gadget:
        expect(kill_when(lab, gadget, lambda: ENTER_LOADER in gadget.commands()), "the update was killed")
        usbfs.wait_for(lambda: gadget.arrivals() == 2 and gadget.present(), 20, "the loader is attached")
        result = lab.run(lab.on_display, "/usr/bin/python3", lab.journey, "--complete", lab.window,
                         "--firmware-archive", lab.archive, timeout=240)
        expect_equal(result.returncode, 0, "exit status")
        expect("journey: completed" in result.stdout, "the printer has the firmware and the tables")
        journal = gadget.journal.read_text()
        expect_equal(journal.count("FLASH_PROGRAM"), 1, "one image")
