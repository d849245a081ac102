"""The window on the real USB stack: the program on a display of its own, worked by keys and told by a screen reader."""
import usbfs
from lab import case, expect, expect_equal

STEP = 4000  # ms that each step of the update lasts at least; a slow guest takes seconds for one look at the window


@case("the window updates a printer on the bus through both restarts, and tells a screen reader every step")
def _(lab):
    step = int(STEP * usbfs.slowness)
    with lab.gadget(restart=step, program=step) as gadget:
        result = lab.run(lab.on_display, "/usr/bin/python3", lab.journey, lab.window,
                         "--firmware-archive", lab.archive, timeout=240)
        expect_equal(result.returncode, 0, "exit status")
        expect("journey: done" in result.stdout, "the whole way was gone")
        journal = gadget.journal.read_text()
        order = [journal.find(command) for command in ("FLASH_REWRITE", "FLASH_PROGRAM", "TBL_WTCTRLD_UPDATE_CW")]
        expect(-1 not in order and order == sorted(order), f"loader, image and tables in their order: {order}")


@case("the window says that the samples are not for a printer on the bus, and sends nothing")
def _(lab):
    with lab.gadget() as gadget:
        result = lab.run(lab.on_display, "/usr/bin/python3", lab.journey, "--with-samples", lab.window, timeout=240)
        expect_equal(result.returncode, 0, "exit status")
        expect("FW_UPD" not in gadget.journal.read_text(), "nothing was sent")
