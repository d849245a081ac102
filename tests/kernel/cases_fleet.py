"""Many printers at once beside a print service, a window and other copies of zulctl; and updates that are killed."""
import contextlib
import json
import pathlib
import random
import shutil
import signal
import time

import usbfs
from lab import Background, case, expect, expect_equal
from print_service import PrintService
from usbfs import plug, wait_for

DONE, BUSY = 0, 5
PRINTERS, FEWER_PRINTERS = 16, 4
CARRIES_ALL = 3.0  # times slower than a quiet guest; beyond it, images of sixteen printers miss the time-out of a write
PROGRAM_SLOWLY = 15_000  # ms; long enough for a second update to come while the first one programs the flash
OLD, NEW = "VK14 01.60", "VK14 01.61"
ENTER_LOADER, PROGRAM, FIRST_TABLE = "FW_UPDFLASH_REWRITE", "FW_UPDFLASH_PROGRAM", "TBL_WTCTRLD_UPDATE_CW"
KILLS, MANY_KILLS = 2, 50
SEED = 20260708
SLOW_IMAGE = 1_000_000  # bytes per second, so that some kills meet the image
COMMANDS = 22  # of an update and the questions before it, about
LONGEST_PAUSE = 3  # s; as long as the image takes


def update_command(lab, *more):
    return (lab.zulctl_path, "--json", "--firmware-archive", lab.archive, "update", "--agree", "--yes", *more)


@contextlib.contextmanager
def window(lab):
    """A window that somebody has open; nothing where there is no display to be had."""
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
    """Every row of the window shows this firmware."""
    if bystander is None:
        return
    start = len(bystander.lines)
    bystander.process.stdin.write(f"rows {count} {firmware}\n")
    bystander.process.stdin.flush()
    bystander.wait_for_line(lambda line: line == "shown\n", seconds, f"the window shows {firmware} everywhere", start)


def versions_seen(watcher):
    """What a watcher was told last of each printer's version, by place."""
    versions = {}
    for line in watcher.lines:
        event = json.loads(line)
        if event.get("key") == "firmwareVersion":
            versions[event["location"]] = event["value"]
    return versions


@case("all printers are brought up to date beside a print service, a window, two watchers and a second update")
def _(lab):
    count = PRINTERS if usbfs.slowness <= CARRIES_ALL else FEWER_PRINTERS
    with contextlib.ExitStack() as stack:
        slowly = int(PROGRAM_SLOWLY * usbfs.slowness)
        gadgets = [stack.enter_context(lab.gadget(0, serial="ZUL0000", program=slowly))]
        gadgets += [stack.enter_context(lab.gadget(port, serial=f"ZUL{port:04}")) for port in range(1, count)]
        service = stack.enter_context(PrintService(lab))
        service.add_queue("photos", next(one for one in service.addresses() if "ZUL0001" in one))
        queues = service.queues()  # with those of other cases
        watchers = [stack.enter_context(lab.start(lab.zulctl_path, "--json", "watch")) for _ in range(2)]
        bystander = stack.enter_context(window(lab))
        look(bystander, count, OLD, 240)
        for watcher in watchers:
            wait_for(lambda: len(versions_seen(watcher)) == count, 120, "the watchers know all printers")
        update_all(lab, gadgets)
        look(bystander, count, NEW, 240)
        for watcher in watchers:
            wait_for(lambda: set(versions_seen(watcher).values()) == {NEW}, 60, "the watchers know the new versions")
        if bystander:
            bystander.process.stdin.close()
            bystander.wait_for_line(lambda line: line == "closed 0\n", 60, "the window is closed")
        expect_equal(service.queues(), queues, "queues")


def update_all(lab, gadgets):
    started = time.monotonic()
    with lab.start(*update_command(lab, "--all", "--give-up", "600")) as update:
        wait_for(lambda: PROGRAM in gadgets[0].commands() or update.process.poll() is not None, 300,
                 "the slow printer has its image")
        second = lab.zulctl("--firmware-archive", lab.archive, "update", "--agree", "--yes", gadgets[0].device,
                            timeout=240)
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
            # Emulated transfers of sixteen images at once may miss the time-out of a write.
            expect_equal(event["result"], "image not taken", event["message"])
            expect("then start the update again: that completes it" in event["message"], event["message"])
    expect_equal(second.returncode, BUSY, "exit status of the second update")
    expect(f"zulctl uses the printer (process {update.process.pid})" in second.stdout + second.stderr,
           "the second update names the first one")
    complete_all(lab, gadgets)
    lab.report(f"{len(gadgets)} printers were updated in {time.monotonic() - started:.0f} s, {len(incomplete)} of them "
               f"with a second update")


def complete_all(lab, gadgets):
    """What the first run reported is so, and a second run does only what is left."""
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


def kill_when(lab, gadget, is_time):
    """kill -9 of an update at this moment; False if the update was over before."""
    with lab.start(*update_command(lab)) as update:
        wait_for(lambda: is_time() or update.process.poll() is not None, 240, "the moment of the kill has come")
        return update.end(signal.SIGKILL) == -signal.SIGKILL


@case("an update that was killed at a step is completed by the next update")
def _(lab):
    # A step, and how often the printer has come when it has done what the step ordered.
    for step, arrivals in ((ENTER_LOADER, 2), (PROGRAM, 3), (FIRST_TABLE, 3)):
        with lab.gadget() as gadget:
            expect(kill_when(lab, gadget, lambda: step in gadget.commands()), f"{step}: the update was killed")
            wait_for(lambda: gadget.arrivals() == arrivals and gadget.present(), 20, "the printer is there")
            listed = lab.zulctl("list").stdout
            # Right after the order to enter the loader only the loader shows what happened.
            shown = "start the update to complete it" if step == ENTER_LOADER else "update was interrupted at 20"
            expect(shown in listed or "update was interrupted at 20" in listed, f"{step}: it is shown: {listed}")
            result = lab.run(*update_command(lab), timeout=120)
            expect_equal(result.returncode, DONE, f"{step}: exit status of the completion")
            expect(NEW in lab.zulctl("info").stdout, f"{step}: the printer has the new version")


def switch_off_and_on(gadget):
    plug(gadget, False)
    wait_for(lambda: not gadget.present(), 10, "the printer is off")
    plug(gadget, True)
    wait_for(gadget.present, 20, "the printer is on")


@case("an update that was killed at any moment is completed by following what the next one says")
def _(lab):
    chance = random.Random(SEED)
    kills = MANY_KILLS if lab.is_long else KILLS
    rounds, killed = [], 0
    for number in range(kills):
        with lab.gadget(speed=SLOW_IMAGE, program=1000) as gadget:
            count, pause = chance.randint(1, COMMANDS), chance.choice((0, chance.uniform(0, LONGEST_PAUSE)))
            was_killed = kill_when(lab, gadget, lambda: have_come(gadget, count, pause))
            lab.log(f"kill {number + 1}: {'killed' if was_killed else 'over before'} after {gadget.commands()[-1:]}")
            killed += was_killed
            wait_for(gadget.present, 30, "the printer is there")
            rounds.append(complete(lab, gadget))
            expect(NEW in lab.zulctl("info").stdout, "the printer has the new version")
    lab.report(f"{killed} of {kills} updates were killed before their end, all are complete; with a power cycle: "
               f"{sum(rounds)}")


def have_come(gadget, count, pause):
    """So many commands have come to the printer, and then a while has passed, during which more may have come."""
    if len(gadget.commands()) < count:
        return False
    time.sleep(pause)
    return True


def complete(lab, gadget):
    """True when the printer had to be switched off and on for it, as it was advised."""
    command = update_command(lab, "--stall-timeout", "10", "--give-up", "20")
    result = lab.run(*command, timeout=240)
    if result.returncode == DONE:
        return False
    expect("off and on" in result.stdout, "the advice that helps")
    switch_off_and_on(gadget)
    expect_equal(lab.run(*command, timeout=240).returncode, DONE, "exit status after the power cycle")
    return True
