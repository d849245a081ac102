"""The window on the real USB stack: the operator's journey on a display of its own."""
from lab import case, expect, expect_equal


@case("the window updates a printer on the bus through both restarts")
def _(lab):
    with lab.gadget() as gadget:
        result = lab.run(lab.on_display, lab.window_tests, "--no-skip", "--test-case=usb:*", timeout=120)
        expect_equal(result.returncode, 0, "exit status")
        expect("1 passed" in result.stdout, "the case ran")
        journal = gadget.journal.read_text()
        order = [journal.find(command) for command in ("FLASH_REWRITE", "FLASH_PROGRAM", "TBL_WTCTRLD_UPDATE_CW")]
        expect(-1 not in order and order == sorted(order), f"loader, image and tables in their order: {order}")
