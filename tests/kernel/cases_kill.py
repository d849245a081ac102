"""Interrupted updates: the program is killed, or the printer loses its power or its connection. Each of them is
completed by following the programs' texts."""
import json
import random
import signal
import time

from lab import case, expect, expect_equal
from usbfs import switch_off_and_on, wait_for

DONE = 0
NEW, NEW_TABLES = "VK14 01.61", "0161"
ENTER_LOADER, PROGRAM, CLEAR_TABLES, TABLE = ("FW_UPDFLASH_REWRITE", "FW_UPDFLASH_PROGRAM", "TBL_CL",
                                              "TBL_WTCTRLD_UPDATE_CW")
CUTS, MANY_CUTS = 2, 50
SEED = 20260708
SLOW_IMAGE = 1_000_000  # bytes per second, so that some kills happen during the image
COMMANDS = 24  # of an update and the queries before it, up to its last table
LONGEST_PAUSE = 3  # s; the duration of the image
IN_THE_IMAGE, BETWEEN_THE_TABLES = (11, 1), (22, 0)  # numbers of commands, and s
THE_IMAGE = 12  # number of a command
IMPATIENT = ("--stall-timeout", "10", "--give-up", "20")
STARTS = 3  # of the update, until it has to be complete


def update_command(lab, *more):
    return (lab.zulctl_path, "--json", "--firmware-archive", lab.archive, "update", "--agree", "--yes", *more)


def moments(lab, seed, *first):
    """Moments of interruption: the printer has received this many commands, then a pause in which more may come."""
    chance = random.Random(seed)
    count = MANY_CUTS if lab.is_long else CUTS
    more = [(chance.randint(1, COMMANDS), chance.choice((0, chance.uniform(0, LONGEST_PAUSE)))) for _ in range(count)]
    return [*first, *more][:count]


def has_come(gadget, moment):
    count, pause = moment
    if len(gadget.commands()) < count:
        return False
    time.sleep(pause)
    return True


def message_of(lines):
    """The message of a failed update's last line, which must contain a remedy."""
    last = json.loads(lines[-1])
    message = last.get("error", last)["message"]
    expect("start the update again" in message.lower() or "switch it on" in message, f"a remedy is given: {message}")
    return message


def complete(lab, gadget, message=""):
    """Follows the message of a failed update until one succeeds. Returns how often it had to switch the printer off and
    on."""
    cycles = 0
    for _ in range(STARTS):
        wait_for(gadget.present, 30, "the printer is attached")
        if "off and on" in message:
            switch_off_and_on(gadget)
            cycles += 1
        result = lab.run(*update_command(lab, *IMPATIENT), timeout=240)
        if result.returncode == DONE:
            return cycles
        message = message_of(result.stdout.splitlines())
    raise AssertionError(f"not complete after {STARTS} starts: {message}")


def expect_complete(lab):
    """The printer has the new firmware and tables, and no completion is offered."""
    facts = dict(line.split(maxsplit=1) for line in lab.zulctl("info").stdout.splitlines() if " " in line.strip())
    expect_equal([facts[name] for name in ("firmwareVersion", "colorTableVersion", "interrupted")],
                 [NEW, NEW_TABLES, "-"], "the printer's facts")


# ---- the program is killed ------------------------------------------------------------------------------------------


def kill_when(lab, gadget, is_time):
    """Kills an update with SIGKILL at this moment; returns False if it had already ended."""
    with lab.start(*update_command(lab)) as update:
        wait_for(lambda: is_time() or update.process.poll() is not None, 240, "the moment of the kill has come")
        return update.end(signal.SIGKILL) == -signal.SIGKILL


@case("an update killed at a step is completed by the next update")
def _(lab):
    # A step, and the printer's number of arrivals after executing the step's command.
    steps = ((ENTER_LOADER, 2), (PROGRAM, 3), (TABLE, 3)) if lab.is_long else ((ENTER_LOADER, 2), (TABLE, 3))
    for step, arrivals in steps:
        with lab.gadget() as gadget:
            expect(kill_when(lab, gadget, lambda: step in gadget.commands()), f"{step}: the update was killed")
            wait_for(lambda: gadget.arrivals() == arrivals and gadget.present(), 20, "the printer is attached")
            listed = lab.zulctl("list").stdout
            # Right after the order to enter the loader only the loader's mode shows the interruption.
            shown = "start the update to complete it" if step == ENTER_LOADER else "update was interrupted at 20"
            expect(shown in listed or "update was interrupted at 20" in listed, f"{step}: it is shown: {listed}")
            result = lab.run(*update_command(lab), timeout=120)
            expect_equal(result.returncode, DONE, f"{step}: exit status of the completion")
            expect_complete(lab)


@case("an update killed at any moment is completed by following the next one's message")
def _(lab):
    cycles, killed, cuts = [], 0, moments(lab, SEED)
    for number, moment in enumerate(cuts, 1):
        with lab.gadget(speed=SLOW_IMAGE, program=1000) as gadget:
            was_killed = kill_when(lab, gadget, lambda: has_come(gadget, moment))
            lab.log(f"kill {number}: {'killed' if was_killed else 'over before'} after {gadget.commands()[-1:]}")
            killed += was_killed
            cycles.append(complete(lab, gadget))
            expect_complete(lab)
    lab.report(f"{killed} of {len(cuts)} updates were killed before their end, all are complete; with a power cycle: "
               f"{sum(map(bool, cycles))}")


# ---- the printer is cut off -----------------------------------------------------------------------------------------


def memory_of(gadget):
    """The stored state of a printer without power, as settings of the gadget for its next start."""
    if gadget.arrivals() == 1:
        return {}
    if gadget.arrivals() == 2:  # its loader has no memory of a partially written image
        return {"mode": "loader"}
    commands = gadget.commands()
    tables = {"tables": NEW_TABLES if commands.count(TABLE) == 2 else "0000"} if CLEAR_TABLES in commands else {}
    return {"firmware": NEW, **tables}


def expect_one_image_per_stay(gadget):
    """An image is sent to a printer at most once per attachment."""
    images = 0
    for entry in gadget.entries():
        images = 0 if entry["event"] == "arrive" else images + (entry.get("command") == PROGRAM)
        expect(images <= 1, "one image")


@case("a printer that loses its power at any moment of its update is completed by following the programs' texts")
def _(lab):
    cuts = moments(lab, SEED + 1, IN_THE_IMAGE, BETWEEN_THE_TABLES)
    cycles, cut, by_itself = [], 0, 0
    for number, moment in enumerate(cuts, 1):
        gadget = lab.gadget(speed=SLOW_IMAGE, program=1000)
        with gadget, lab.start(*update_command(lab, *IMPATIENT)) as update:
            wait_for(lambda: has_come(gadget, moment) or update.process.poll() is not None, 240, "the moment has come")
            was_under_way = update.process.poll() is None
            gadget.stop(signal.SIGKILL)
            wait_for(lambda: not gadget.present(), 10, "the printer is detached")
            expect_one_image_per_stay(gadget)
            settings = memory_of(gadget)
            lab.log(f"cut {number}: {'cut' if was_under_way else 'over before'} after {gadget.commands()[-1:]}, back "
                    f"with {settings}")
            with lab.gadget(speed=SLOW_IMAGE, program=1000, **settings) as again:
                ended_well = update.end(how=None, seconds=240) == DONE
                expect_one_image_per_stay(again)
                cut += was_under_way
                by_itself += was_under_way and ended_well
                if not ended_well:
                    cycles.append(complete(lab, again, message_of(update.lines)))
                expect_complete(lab)
    lab.report(f"{cut} of {len(cuts)} printers lost their power before the end of their update, all are complete: "
               f"{by_itself} by themselves, {sum(map(bool, cycles))} with one more power cycle")


@case("a printer unplugged at any command of its update is completed by following the programs' texts")
def _(lab):
    numbers = range(1, COMMANDS + 1) if lab.is_long else [THE_IMAGE]
    cycles, by_itself = [], 0
    for number in numbers:
        with lab.gadget(fault=f"unplug#{number}") as gadget:
            with lab.start(*update_command(lab, *IMPATIENT)) as update:
                ended_well = update.end(how=None, seconds=240) == DONE
            lab.log(f"unplugged at command {number}, after {gadget.commands()[number - 2:number - 1]}")
            by_itself += ended_well
            if not ended_well:
                cycles.append(complete(lab, gadget, message_of(update.lines)))
            expect_one_image_per_stay(gadget)
            expect_complete(lab)
    lab.report(f"unplugged at a command of their update: {len(numbers)}, all are complete: {by_itself} by themselves, "
               f"{sum(map(bool, cycles))} with a power cycle")
