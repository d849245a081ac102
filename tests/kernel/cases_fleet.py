"""Many printers at once, used by a print service, a window and several zulctl."""
import contextlib
import json
import pathlib
import re
import shutil
import time

import usbfs
from lab import Background, case, expect, expect_equal
from print_service import PrintService
from usbfs import switch_off_and_on, wait_for

DONE, BUSY = 0, 5
PRINTERS, FEWER_PRINTERS = 16, 4
# Factors by which this guest is slower than a quiet one. Writing an image has a limit of five seconds, and emulated
# transfers are slow: up to the first factor all images of sixteen printers succeed, above the second too few do.
ALL_ARRIVE, CARRIES_ALL = 1.5, 3.0
MISSED = ("image not taken", "kIOUSBTransactionTimeout",
          "the update is not complete: the printer is still in firmware update mode: it did not accept the firmware. "
          "Switch the printer off and on, then start the update again: that completes it.")
PROGRAM_SLOWLY = 15_000  # ms; long enough for a second update to start while the first one programs the flash
OLD, NEW = "VK14 01.60", "VK14 01.61"
PROGRAM, FIRST_TABLE = "FW_UPDFLASH_PROGRAM", "TBL_WTCTRLD_UPDATE_CW"


def update_command(lab, *more):
    return (lab.zulctl_path, "--json", "--firmware-archive", lab.archive, "update", "--agree", "--yes", *more)


@contextlib.contextmanager
def window(lab):
    """An open window; None without a display."""
    if not lab.window or not shutil.which("Xvfb"):
        yield None
        return
    folder = pathlib.Path(__file__).resolve().parent
    tools = pathlib.Path(lab.journey).parent
    command = ("env", f"PYTHONPATH={tools}", lab.on_display, "/usr/bin/python3", folder / "bystander.py", lab.window,
               "--firmware-archive", lab.archive)
    with Background(lab, *command) as bystander:
        yield bystander


def look(bystander, count, firmware, seconds):
    """Waits until every row of the window shows this firmware."""
    if bystander is None:
        return
    start = len(bystander.lines)
    bystander.process.stdin.write(f"rows {count} {firmware}\n")
    bystander.process.stdin.flush()
    bystander.wait_for_line(lambda line: line == "shown\n", seconds, f"the window shows {firmware} everywhere", start)


def versions_seen(watcher):
    """The last version that a watcher has printed for each printer, by location."""
    versions = {}
    for line in watcher.lines:
        event = json.loads(line)
        if event.get("key") == "firmwareVersion":
            versions[event["location"]] = event["value"]
    return versions


@case("all printers are updated beside a print service, a window, two watchers and a second update")
def _(lab):
    count = PRINTERS if usbfs.slowness <= CARRIES_ALL else FEWER_PRINTERS
    with contextlib.ExitStack() as stack:
        slowly = int(PROGRAM_SLOWLY * usbfs.slowness)
        gadgets = [stack.enter_context(lab.gadget(0, serial="ZUL0000", program=slowly))]
        gadgets += [stack.enter_context(lab.gadget(port, serial=f"ZUL{port:04}")) for port in range(1, count)]
        service = stack.enter_context(PrintService(lab))
        service.add_queue("photos", next(one for one in service.addresses() if "ZUL0001" in one))
        queues = service.queues()  # including those of other cases
        watchers = [stack.enter_context(lab.start(lab.zulctl_path, "--json", "watch")) for _ in range(2)]
        bystander = stack.enter_context(window(lab))
        look(bystander, count, OLD, 240)
        for watcher in watchers:
            wait_for(lambda: len(versions_seen(watcher)) == count, 120, "the watchers show all printers")
        update_all(lab, gadgets)
        look(bystander, count, NEW, 240)
        for watcher in watchers:
            wait_for(lambda: set(versions_seen(watcher).values()) == {NEW}, 60, "the watchers show the new versions")
        if bystander:
            bystander.process.stdin.close()
            bystander.wait_for_line(lambda line: line == "closed 0\n", 60, "the window is closed")
        expect_equal(service.queues(), queues, "queues")


def update_all(lab, gadgets):
    started, slowness = time.monotonic(), usbfs.slowness
    with lab.start(*update_command(lab, "--all", "--give-up", "600")) as update:
        wait_for(lambda: PROGRAM in gadgets[0].commands() or update.process.poll() is not None, 300,
                 "the slow printer has its image")
        second = lab.zulctl("--firmware-archive", lab.archive, "update", "--agree", "--yes", gadgets[0].device,
                            timeout=240)
        listed = lab.zulctl("list", timeout=240)
        update.end(how=None, seconds=900)
        results = [event for event in map(json.loads, update.lines) if event["event"] == "result"]
    expect_equal(sorted(event["printer"] for event in results), sorted({event["printer"] for event in results}),
                 "one result for each printer")
    expect_equal(len(results), len(gadgets), "results")
    incomplete = [event for event in results if event["exit"] != DONE]
    for event in results:
        if event["exit"] == DONE:
            expect_equal((event["version"], event["tablesWritten"]), (NEW, 2), event["message"])
        else:
            expect_equal((event["result"], event.get("code"), event["message"]), MISSED, "why it is not complete")
    usbfs.measure_slowness()
    if max(slowness, usbfs.slowness) <= ALL_ARRIVE:
        expect_equal(incomplete, [], "printers without the image on a quiet machine")
    expect_equal(second.returncode, BUSY, "exit status of the second update")
    holder = re.compile(rf"zulctl uses the printer \(process {update.process.pid}\): update, [a-z ]+, since 20")
    for process, what in ((second, "the second update"), (listed, "the list")):
        expect(holder.search(process.stdout + process.stderr), f"{what} names the first one: {process.stdout}")
    complete_all(lab, gadgets)
    lab.report(f"{len(gadgets)} printers were updated in {time.monotonic() - started:.0f} s, {len(incomplete)} of them "
               f"with a second update")


def complete_all(lab, gadgets):
    """Checks the first run's report, and that a second run updates only the remaining printers."""
    left = [gadget for gadget in gadgets if FIRST_TABLE not in gadget.commands()]
    for gadget in left:
        switch_off_and_on(gadget)
    before = {gadget.device: gadget.commands().count(PROGRAM) for gadget in gadgets}
    again = lab.run(*update_command(lab, "--all", "--give-up", "600"), timeout=900)
    expect_equal(again.returncode, DONE, "exit status of the second run")
    for gadget in gadgets:
        images = gadget.commands().count(PROGRAM) - before[gadget.device]
        expect_equal(images, 1 if gadget in left else 0, f"images that the second run sent to {gadget.device}")
        expect_equal(gadget.commands().count(PROGRAM), 1, f"whole images that {gadget.device} has got")
