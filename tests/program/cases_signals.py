"""Signals, closed pipes and lost terminals: none of them interrupts a printer's update."""
import json
import os
import signal
import subprocess
import time

from bench import UPDATE, case, expect, expect_equal

WHOLE = ["FW_UPDFLASH_REWRITE", "FW_UPDFLASH_PROGRAM", "TBL_CL", "TBL_WTVersion", "TBL_WTCTRLD_UPDATE_CW",
         "TBL_WTVersion", "TBL_WTCTRLD_UPDATE_CW"]


def changes_in(file):
    with open(file, encoding="utf-8") as lines:
        entries = [json.loads(line) for line in lines]
    kinds = ("FW_UPD", "TBL_CL", "TBL_WT")
    return [entry["command"] for entry in entries
            if entry["event"] == "command" and entry["command"].startswith(kinds)]


def wait_for_phase(process, phase):
    for line in process.stdout:
        if json.loads(line).get("phase") == phase:
            return
    raise AssertionError(f"the phase {phase!r} was never shown")


@case("a reader that closes the pipe does not end an update")
def _(bench):
    file = bench.path("journal")
    process = bench.start("--json", "--virtual-journal", file, *UPDATE)
    wait_for_phase(process, "restarting into loader")
    process.stdout.close()
    expect_equal(process.wait(), 0, "exit status")
    expect_equal(changes_in(file), WHOLE, "what the printer got")


class FullPipe:
    """A pipe whose reader does not read, like a terminal after Ctrl-S: a write to it does not return."""

    def __init__(self):
        self.reader, self.writer = os.pipe()
        os.set_blocking(self.writer, False)
        self.size = 0
        try:
            while True:
                self.size += os.write(self.writer, b" " * 4096)
        except BlockingIOError:
            os.set_blocking(self.writer, True)

    def read_all(self):
        """Reads until the program has ended; returns the text without the filling."""
        os.close(self.writer)
        with os.fdopen(self.reader, encoding="utf-8") as stream:
            return stream.read()[self.size:]


def lines_read_after_update(bench, option, stream):
    """Runs an update with a stream that is read only after the last table was sent; returns the text read then."""
    file, pipe = bench.path("journal"), FullPipe()
    process = bench.start(option, "--virtual-journal", file, *UPDATE, **{stream: pipe.writer})
    while not os.path.exists(file) or changes_in(file) != WHOLE:
        expect_equal(process.poll(), None, "exit status while the update is under way")
        time.sleep(0.05)
    lines = pipe.read_all().splitlines()
    expect_equal(process.wait(), 0, "exit status")
    return lines


@case("an update continues while its output is not read, and all output arrives when it is read")
def _(bench):
    lines = lines_read_after_update(bench, "--json", "stdout")
    expect_equal(json.loads(lines[-1])["result"], "succeeded", "result")
    expect(any(json.loads(line).get("phase") == "restarting into loader" for line in lines), lines)


@case("an update continues while its log lines are not read")
def _(bench):
    lines = lines_read_after_update(bench, "-v", "stderr")
    expect(any("printer firmware version" in line for line in lines), lines)


class LoginService:
    """A login service on a private message bus, which is the system bus for the programs of the case."""

    def __init__(self, bench):
        program = os.path.join(os.path.dirname(bench.zulctl), "login_service")
        self.process = subprocess.Popen([program], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        bench.env["DBUS_SYSTEM_BUS_ADDRESS"] = self.process.stdout.readline().strip()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()
        self.process.stdin.close()
        self.process.stdout.close()

    def ask(self, word):
        self.process.stdin.write(word + "\n")
        self.process.stdin.flush()
        return self.process.stdout.readline().strip()


@case("zulctl keeps the machine from sleeping and shutting down while it updates a printer, and only then")
def _(bench):
    with LoginService(bench) as service:
        for words in (("list",), ("status",), ("update", "--reinstall")):  # no agreement given
            bench.run(*words)
        expect_equal(service.ask("questions"), "0", "locks that were asked for without an update")
        process = bench.start(*UPDATE, printers=("VK14,restart=60000",))
        what, who, why, mode = service.ask("asked").split("|")
        expect_equal((what, mode), ("sleep:shutdown:handle-lid-switch", "block"), "what is kept from happening")
        expect(why, f"{who} names a reason")
        expect_equal((process.poll(), service.ask("held")), (None, "yes"), "while the printer is away")
        process.kill()
        expect_equal(service.ask("released"), "released", "when the program is killed")
        expect_equal(bench.run("update", "--agree", "--yes").status, 0, "a whole update")
        expect_equal((service.ask("questions"), service.ask("released")), ("2", "released"), "afterwards")


@case("an interrupt ends a watch whose output is not read")
def _(bench):
    pipe = FullPipe()
    process = bench.start("watch", stdout=pipe.writer)
    watched = bench.start("watch")
    watched.stdout.readline() # gives the other one time to get as far
    process.send_signal(signal.SIGINT)
    expect(process.wait() in (0, 130), process.returncode)
    os.close(pipe.reader)


@case("a lost connection does not end an update")
def _(bench):
    file = bench.path("journal")
    process = bench.start("--json", "--virtual-journal", file, *UPDATE)
    wait_for_phase(process, "restarting into loader")
    process.send_signal(signal.SIGHUP)
    process.stdout.read()
    expect_equal(process.wait(), 0, "exit status")
    expect_equal(changes_in(file), WHOLE, "what the printer got")


@case("a terminal that is closed does not end an update")
def _(bench):
    file = bench.path("journal")
    terminal = bench.terminal("--virtual-journal", file, *UPDATE)
    terminal.read_until("restarting into the loader")
    os.close(terminal.fd)
    status = os.waitstatus_to_exitcode(os.waitpid(terminal.pid, 0)[1])
    expect_equal(changes_in(file), WHOLE, "what the printer got")
    expect_equal(status, 0, "exit status")


@case("a terminal that is closed during a question cancels the update")
def _(bench):
    file = bench.path("journal")
    terminal = bench.terminal("--virtual-journal", file, "update")
    terminal.read_until("I Agree")
    os.close(terminal.fd)
    status = os.waitstatus_to_exitcode(os.waitpid(terminal.pid, 0)[1])
    expect_equal(changes_in(file), [], "what the printer got")
    expect_equal(status, 1, "exit status")


@case("a system shutdown needs no second request, and the update ends when the whole image is sent")
def _(bench):
    file = bench.path("journal")
    process = bench.start("--json", "--virtual-journal", file, *UPDATE, printers=("VK14,restart=1000,program=30000",))
    wait_for_phase(process, "restarting into loader")
    process.send_signal(signal.SIGTERM)
    out, err = process.communicate()
    expect_equal(process.returncode, 130, "exit status")
    expect("Interrupt once more" not in err, err)
    expect_equal(changes_in(file), WHOLE[:2], "what the printer got")
    last = json.loads(out.splitlines()[-1])
    expect_equal(last["result"], "stopped", "result")
    expect("start the update again: that completes it" in last["message"], last["message"])


@case("a system shutdown ends an update at once before the first command")
def _(bench):
    process = bench.start("--json", *UPDATE, printers=("VK14,fault=silence@STATUS#2,fault=silence@STATUS#3",))
    wait_for_phase(process, "checking")
    process.send_signal(signal.SIGTERM)
    out, _ = process.communicate()
    expect_equal(process.returncode, 130, "exit status")
    expect("Nothing has been changed" in json.loads(out.splitlines()[-1])["message"], out)


@case("a list with a closed output pipe ends silently")
def _(bench):
    process = bench.start("list")
    process.stdout.close()
    expect_equal(process.wait(), 0, "exit status")
    expect_equal(process.stderr.read(), "", "standard error")
