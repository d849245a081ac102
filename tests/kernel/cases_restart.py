"""Another program claims the printer when it returns from a restart of its update."""
import contextlib
import json
import pathlib
import time

from lab import case, expect, expect_equal
from usbfs import wait_for

DONE, BUSY = 0, 5
NEW = "VK14 01.61"
PROGRAM, TABLE = "FW_UPDFLASH_PROGRAM", "TBL_WTCTRLD_UPDATE_CW"
HELD = 3  # s
GIVE_UP = "6"  # s
# The phase of the update when the printer returns, and its number of arrivals by then.
RESTARTS = {"in the loader": 2, "restarted": 3}
SHORT_RESTARTS = {"in the loader": 2}
RULE = pathlib.Path("/run/udev/rules.d/00-held-first.rules")


class Holder:
    """Another program that always claims the printer first: until then udevd reports no printer."""

    def __init__(self, lab, gadget):
        self._lab = lab
        self._flag = lab.folder / "held"
        self._flag.unlink(missing_ok=True)
        lab.run("udevadm", "settle", "--timeout=20")  # the attached printer must not wait
        RULE.write_text('ACTION=="add", SUBSYSTEM=="usb", ENV{DEVTYPE}=="usb_device", ATTR{bDeviceClass}=="00", '
                        f"PROGRAM=\"/bin/sh -c 'until test -e {self._flag}; do sleep 0.02; done'\"\n")
        self._reload()
        program = pathlib.Path(__file__).resolve().parent / "holder.py"
        self._background = lab.start(program, gadget.device, self._flag)
        self.name, self.pid = program.name, self._background.process.pid

    def __enter__(self):
        return self

    def __exit__(self, *_):
        RULE.unlink()
        self._flag.touch()  # ends all waits
        self._reload()
        self._background.__exit__()
        self._flag.unlink(missing_ok=True)

    def _reload(self):
        self._lab.run("udevadm", "control", "--reload")

    def _order(self, order, answer):
        start = len(self._background.lines)
        self._background.process.stdin.write(order + "\n")
        self._background.process.stdin.flush()
        self._background.wait_for_line(lambda line: line == answer + "\n", 60, f"the printer is {answer}", start)

    def take(self):
        self._order("take", "taken")

    def release(self):
        self._order("release", "released")


def update_command(lab, *more):
    return (lab.zulctl_path, "--json", "--firmware-archive", lab.archive, "update", "--agree", "--yes", *more)


def text_while_held(holder):
    return f"another program uses the printer ({holder.name}, process {holder.pid})"


def take_after_restart(gadget, holder, arrivals):
    wait_for(lambda: gadget.arrivals() == arrivals, 60, f"the printer has arrived {arrivals} times")
    holder.take()


def wait_until_named(update, holder, start=0):
    """Waits for the line in which the update names the holder; returns the number of the next line."""
    number, _ = update.wait_for_line(lambda line: text_while_held(holder) in line, 60, "the holder is named", start)
    return number + 1


@case("an update continues after another program has held the printer for three seconds after each of its restarts")
def _(lab):
    with contextlib.ExitStack() as stack:
        gadget = stack.enter_context(lab.gadget())
        holder = stack.enter_context(Holder(lab, gadget))
        update = stack.enter_context(lab.start(*update_command(lab)))
        seen = 0
        for phase, arrivals in RESTARTS.items():
            take_after_restart(gadget, holder, arrivals)
            held_since = time.monotonic()
            before = gadget.commands()
            seen = wait_until_named(update, holder, seen)
            time.sleep(max(0, held_since + HELD - time.monotonic()))
            expect_equal(gadget.commands(), before, f"{phase}: what the printer got while another program had it")
            holder.release()
        expect_equal(update.end(how=None, seconds=120), DONE, "exit status")
        result = json.loads(update.lines[-1])
        expect_equal((result["result"], result["version"], result["tablesWritten"]), ("succeeded", NEW, 2), "result")
        expect_equal((gadget.commands().count(PROGRAM), gadget.commands().count(TABLE)), (1, 2), "image and tables")


@case("an update whose printer another program keeps after a restart ends with 5, names it and is completed later")
def _(lab):
    for phase, arrivals in (RESTARTS if lab.is_long else SHORT_RESTARTS).items():
        with lab.gadget() as gadget:
            with Holder(lab, gadget) as holder, lab.start(*update_command(lab, "--give-up", GIVE_UP)) as update:
                if arrivals > 2:
                    take_after_restart(gadget, holder, 2)
                    wait_until_named(update, holder)
                    holder.release()
                take_after_restart(gadget, holder, arrivals)
                expect_equal(update.end(how=None, seconds=120), BUSY, f"{phase}: exit status")
                result = json.loads(update.lines[-1])
                expect_equal((result["result"], result["holder"]),
                             ("busy", {"kind": "program", "program": holder.name, "pid": holder.pid}), phase)
                expect(text_while_held(holder) in result["message"], f"{phase}: the message names it")
            result = lab.run(*update_command(lab), timeout=120)
            expect_equal(result.returncode, DONE, f"{phase}: exit status when the printer is free")
            expect(NEW in lab.zulctl("info").stdout, f"{phase}: the printer has the new version")
