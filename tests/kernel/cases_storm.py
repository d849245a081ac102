"""Printers that are plugged and unplugged all the time: at the end the programs show the state of the bus."""
import contextlib
import json
import os
import pathlib
import random
import signal
import time

import usbfs
from lab import case, expect, expect_equal
from usbfs import plug, wait_for

DONE = 0
PRINTERS = 4
CYCLES, MANY_CYCLES = 40, 1000
LONGEST_GAP = 0.4  # s
SWAPS, MANY_SWAPS = 3, 150
SEED = 20260707


def shown_places(watcher):
    """The locations at which a watcher shows printers now."""
    places = []
    for line in watcher.lines:
        event = json.loads(line)
        if event["event"] == "arrived":
            places.append(event["location"])
        elif event["event"] == "departed":
            places.remove(event["location"])
    return sorted(places)


def resources(process):
    """Open files and threads of a process."""
    folder = pathlib.Path(f"/proc/{process.pid}")
    return len(os.listdir(folder / "fd")), len(os.listdir(folder / "task"))


def storm(gadgets, cycles, chance):
    """Each cycle unplugs and plugs one printer, at any moment of the effects of the previous cycle."""
    for _ in range(cycles):
        gadget = chance.choice(gadgets)
        plug(gadget, False)
        time.sleep(chance.uniform(0, LONGEST_GAP))
        plug(gadget, True)
        time.sleep(chance.uniform(0, LONGEST_GAP))


@case("after a storm of unplugging the list equals the bus, and a watcher shows the same and leaks no resources")
def _(lab):
    cycles = MANY_CYCLES if lab.is_long else CYCLES
    chance = random.Random(SEED)
    with contextlib.ExitStack() as stack:
        gadgets = [stack.enter_context(lab.gadget(port, serial=f"ZUL{port:04}")) for port in range(PRINTERS - 1)]
        gadgets.append(stack.enter_context(lab.gadget(PRINTERS - 1, serial=f"ZUL{PRINTERS - 1:04}", interfaces=2)))
        watcher = stack.enter_context(lab.start(lab.zulctl_path, "--json", "watch"))
        everywhere = places(gadgets)
        wait_for(lambda: shown_places(watcher) == everywhere, 60, "the watcher shows all printers")
        storm(gadgets, cycles // 10, chance)  # creates what is created only once
        settle(gadgets, watcher)
        before = resources(watcher.process)
        started = time.monotonic()
        storm(gadgets, cycles, chance)
        taken = time.monotonic() - started
        plug(gadgets[0], False)
        settle(gadgets[1:], watcher)
        plug(gadgets[0], True)
        settle(gadgets, watcher)
        after = wait_for_resources(watcher.process, before)
        listed = lab.zulctl("--json", "list")
        expect_equal(listed.returncode, DONE, "exit status of list")
        expect_equal(sorted(row["location"] for row in json.loads(listed.stdout)), everywhere, "the list")
        for row in json.loads(listed.stdout):
            expect_equal(row["firmwareInstalled"], "VK14 01.60", f"firmware of {row['location']}")
        lab.report(f"{cycles} times unplugged and plugged in {taken:.0f} s; open files and threads of the watcher: "
                   f"{before} before, {after} afterwards")


def places(gadgets):
    """The locations of the rows with these printers: one for each interface."""
    return sorted(gadget.device for gadget in gadgets for _ in range(gadget.interfaces))


def settle(gadgets, watcher):
    wait_for(lambda: usbfs.printers() == sorted({*places(gadgets)}), 20, "the bus has these printers")
    wait_for(lambda: shown_places(watcher) == places(gadgets), 60, "the watcher shows the printers of the bus")


def wait_for_resources(process, before):
    """Threads and files of the last arrivals are released when their queries have ended."""
    return wait_for(lambda: all(now <= then for now, then in zip(resources(process), before)) and resources(process),
                    60, f"the watcher has no more files and threads than {before}")


def versions_by_place(watcher):
    """The version of each printer that a watcher shows now."""
    versions = {}
    for line in watcher.lines:
        event = json.loads(line)
        if event["event"] in ("arrived", "departed"):
            versions.pop(event["location"], None)
        elif event.get("key") == "firmwareVersion":
            versions[event["location"]] = event["value"]
    return versions


def take_out(gadget, how):
    """Switches a printer off (SIGKILL), or unplugs it regularly."""
    gadget.stop(how)
    wait_for(lambda: not gadget.present(), 10, "the port is empty")


def plug_in(lab, stack, port, version):
    return stack.enter_context(lab.gadget(port, serial=version[-2:], firmware=version))


def swap(lab, stack, gadgets, chance, versions):
    """Both printers leave, and each returns on the other's port; order, gaps and way are random."""
    for gadget in chance.sample(gadgets, 2):
        take_out(gadget, chance.choice((signal.SIGTERM, signal.SIGKILL)))
        time.sleep(chance.uniform(0, LONGEST_GAP))
    versions.reverse()
    swapped = [None, None]
    for port in chance.sample((0, 1), 2):
        swapped[port] = plug_in(lab, stack, port, versions[port])
        time.sleep(chance.uniform(0, LONGEST_GAP))
    return swapped


@case("printers that swap their ports, some by a loss of power, are shown at their final location")
def _(lab):
    swaps = MANY_SWAPS if lab.is_long else SWAPS
    chance = random.Random(SEED + 1)
    versions = ["VK14 01.58", "VK14 01.59"]  # which identify them
    with contextlib.ExitStack() as stack:
        gadgets = [plug_in(lab, stack, port, versions[port]) for port in range(2)]
        watcher = stack.enter_context(lab.start(lab.zulctl_path, "--json", "watch"))
        before, started = None, time.monotonic()
        for _ in range(swaps):
            gadgets = swap(lab, stack, gadgets, chance, versions)
            before = before or settled_resources(watcher, gadgets, versions)  # after what is created only once
        after = settled_resources(watcher, gadgets, versions, before)
        rows = json.loads(lab.zulctl("--json", "list").stdout)
        expect_equal({row["location"]: row["firmwareInstalled"] for row in rows},
                     {gadget.device: version for gadget, version in zip(gadgets, versions)}, "the list")
        lab.report(f"{swaps} swaps of two ports in {time.monotonic() - started:.0f} s; open files and threads of the "
                   f"watcher: {before} before, {after} afterwards")


def settled_resources(watcher, gadgets, versions, before=None):
    """Open files and threads of a watcher once it shows each printer at its location."""
    wanted = {gadget.device: version for gadget, version in zip(gadgets, versions)}
    wait_for(lambda: usbfs.printers() == sorted(wanted), 20, "the bus has these printers")
    wait_for(lambda: versions_by_place(watcher) == wanted, 60, "the watcher shows each at its location")
    return wait_for_resources(watcher.process, before) if before else resources(watcher.process)
