"""Two processes of this product and one printer: the output and the effect of the second one."""
import json
import os
import subprocess

from bench import UPDATE, case, expect, expect_equal

KEY = "2A71000301100000"
WAITS = 'read go; exec "$0" "$@"'  # the shell's process becomes zulctl's


class Other:
    """A process that has reserved the printer of a zulctl that has not started yet."""

    def __init__(self, bench, *words, printers=("VK14",)):
        command = ["sh", "-c", WAITS, *bench.command(words, printers)]
        self.zulctl = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                       text=True, env=bench.env)
        # Embedded printers and their locks belong to one process: the lock's name contains its number.
        program = os.path.join(os.path.dirname(bench.zulctl), "lock_holder")
        self.holder = subprocess.Popen([program, f"zul-printer-utility-embedded-{self.zulctl.pid}", "0"],
                                       stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self.name = f"lock_holder uses the printer (process {self.holder.pid}): update, writing the firmware"
        expect_equal(self.ask(f"lock {KEY} update"), "locked", "the other process")
        expect_equal(self.ask("phase writing"), "set", "its phase")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for process in (self.zulctl, self.holder):
            process.kill()
            process.wait()
            for stream in (process.stdin, process.stdout, process.stderr):
                if stream:
                    stream.close()

    def ask(self, line):
        self.holder.stdin.write(line + "\n")
        self.holder.stdin.flush()
        return self.holder.stdout.readline().strip()

    def outcome(self):
        """Starts zulctl; returns its exit status and its output."""
        out, err = self.zulctl.communicate("go\n", timeout=60)
        return self.zulctl.returncode, out, err


def events(file):
    """What the printer saw: its arrivals and departures, and commands."""
    with open(file, encoding="utf-8") as lines:
        return [event.get("command", event["event"]) for event in map(json.loads, lines)]


def flashed(file):
    with open(file, encoding="utf-8") as lines:
        return any("FW_UPDFLASH" in line for line in lines)


@case("an update of a printer that another process is updating is refused, names that process and sends no command")
def _(bench):
    file = bench.path("journal")
    with Other(bench, "--virtual-journal", file, *UPDATE) as other:
        status, out, err = other.outcome()
        expect_equal(status, 5, out + err)
        expect(other.name in out.splitlines()[-1], out)
    expect(not flashed(file), "no command was sent")


@case("commands that change a printer are refused while another process updates it, and that process is named")
def _(bench):
    for words in (("reset-counter", "A", "1"), ("soft-reset", "1"), ("reset", "1"), ("reenumerate", "1")):
        file, untouched = bench.path("journal"), bench.path("untouched")
        bench.run("--virtual-journal", untouched, "list")
        with Other(bench, "--virtual-journal", file, *words) as other:
            status, out, err = other.outcome()
            expect_equal(status, 5, f"exit status of {words}: {out}{err}")
            expect(f"{other.name}. It updates the printer: do not close it" in err, err)
        expect_equal(events(file), events(untouched), f"events of {words}")


@case("the diagnosis names the process that updates a printer")
def _(bench):
    bench.env["DBUS_SYSTEM_BUS_ADDRESS"] = "unix:path=" + bench.path("no-bus")
    with Other(bench, "doctor") as other:
        status, out, err = other.outcome()
        expect_equal(status, 1, out + err)
        expect(other.name in out and f"ps -fp {other.holder.pid}" in out, out)
