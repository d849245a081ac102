"""Shared by the cases of the test guest: registering and running cases, gadgets on numbered ports, logged programs."""
import argparse
import contextlib
import json
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import threading
import time
import traceback

import usbfs

CASES = []
READER_PATIENCE = 5  # s
STATE_FOLDER = pathlib.Path("/var/lib/zul-printer-utility")  # of programs run by root


class Skipped(Exception):
    """The case cannot run on this machine; the text has the reason."""


def case(sentence):
    """Registers a function of one argument (the lab) under the behaviour that it tests."""
    def register(function):
        CASES.append((sentence, function))
        return function
    return register


def expect(condition, what):
    if not condition:
        raise AssertionError(what)


def expect_equal(got, wanted, what):
    expect(got == wanted, f"{what}: got {got!r}, wanted {wanted!r}")


class Gadget:
    """A running vkgadget on dummy_udc.<port>, seen by the host as self.device."""

    def __init__(self, lab, port, model, settings, options):
        self.udc = f"dummy_udc.{port}"
        self.journal = lab.folder / f"gadget-{port}.journal"
        self.journal.unlink(missing_ok=True)
        bus = next(pathlib.Path(f"/sys/bus/platform/devices/dummy_hcd.{port}").glob("usb*")).name[3:]
        self.device = f"{bus}-1"
        self.port_switch = usbfs.DEVICES / f"{bus}-0:1.0" / f"usb{bus}-port1" / "disable"
        self.interfaces = settings.get("interfaces", 1)
        settings = {"restart": 400, "program": 300, "speed": 20000000, **settings}
        text = ",".join([model] + [f"{key}={value}" for key, value in settings.items()])
        command = [lab.vkgadget, text, "--udc", self.udc, "--journal", self.journal, *options]
        self.log = lab.log
        self.log(f"$ {' '.join(map(str, command))} &")
        self.process = subprocess.Popen(list(map(str, command)), stdout=lab.log_file, stderr=lab.log_file)

    def __enter__(self):
        usbfs.wait_for(lambda: self.present() or self.process.poll() is not None, 10, f"{self.device} is on the bus")
        expect(self.process.poll() is None, "vkgadget ended at once")
        return self

    def __exit__(self, *_):
        self.stop()

    def present(self):
        return self.device in usbfs.printers() and os.path.exists(usbfs.node(self.device))

    def stop(self, how=signal.SIGTERM):
        """Stops the gadget; returns its exit status."""
        if self.process.poll() is None:
            self.process.send_signal(how)
        try:
            return self.process.wait(10)
        except subprocess.TimeoutExpired:
            self.log_stacks()
            self.process.kill()
            raise AssertionError("vkgadget did not end within 10 s of being told") from None

    def log_stacks(self):
        """Logs the kernel stacks of its threads, to show which one waits for what."""
        for task in sorted(pathlib.Path(f"/proc/{self.process.pid}/task").iterdir()):
            with contextlib.suppress(OSError):
                self.log(f"{task.name} {(task / 'comm').read_text().strip()}\n{(task / 'stack').read_text()}")

    def entries(self):
        """The printer's journal."""
        lines = self.journal.read_text().splitlines() if self.journal.exists() else []
        return [json.loads(line) for line in lines if line.endswith("}")]  # the last one may be incomplete

    def commands(self):
        """The commands that the printer has received, in order."""
        return [entry["command"] for entry in self.entries() if entry["event"] == "command"]

    def arrivals(self):
        """How often the printer was attached to the bus."""
        return sum(entry["event"] == "arrive" for entry in self.entries())

    def address(self):
        return usbfs.attribute(self.device, "devnum")

    def is_back(self, before):
        """It is attached with another address than before; while it is detached it has none."""
        return self.address() not in (None, before) and self.present()

    def open(self, interface=0):
        printer = usbfs.Printer(self.device, interface)
        printer.claim()
        return printer


class Background:
    """A program that runs beside the case. Its lines of standard output are stored as they arrive."""

    def __init__(self, lab, *command):
        command = list(map(str, command))
        lab.log(f"$ {' '.join(command)} &")
        self._lab = lab
        self.lines = []
        # A session of its own, so that its child processes end with it.
        self.process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=lab.log_file,
                                        text=True, errors="replace", start_new_session=True)
        self._changed = threading.Condition()
        self._has_ended = False
        self._reader = threading.Thread(target=self._read, daemon=True)
        self._reader.start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        with contextlib.suppress(ProcessLookupError):
            os.killpg(self.process.pid, signal.SIGKILL)
        self.process.wait()
        self._reader.join(READER_PATIENCE)  # a grandchild in another session may keep the pipe
        self._lab.log(f"[output of process {self.process.pid}]\n{''.join(self.lines)}")

    def _read(self):
        for line in self.process.stdout:
            with self._changed:
                self.lines.append(line)
                self._changed.notify_all()
        with self._changed:
            self._has_ended = True
            self._changed.notify_all()

    def wait_for_line(self, condition, seconds, what, start=0):
        """The first line from number start on that fulfils the condition: (its number, the line)."""
        deadline = time.monotonic() + seconds * usbfs.slowness
        with self._changed:
            while True:
                while start < len(self.lines):
                    if condition(self.lines[start]):
                        return start, self.lines[start]
                    start += 1
                expect(not self._has_ended, f"the program has ended without: {what}")
                expect(self._changed.wait(deadline - time.monotonic()), f"after {seconds} s still not: {what}")

    def wait_for_event(self, seconds, what, start=0, **wanted):
        """The same for a line of JSON with these members."""
        def is_wanted(line):
            event = json.loads(line)
            return all(event.get(key) == value for key, value in wanted.items())
        return self.wait_for_line(is_wanted, seconds, what, start)

    def end(self, how=signal.SIGTERM, seconds=30):
        """Ends the program; returns its exit status."""
        if self.process.poll() is None and how:
            self.process.send_signal(how)
        status = self.process.wait(seconds * usbfs.slowness)
        self._reader.join()
        return status


class Guest:
    def __init__(self, arguments):
        self.vkgadget, self.zulctl_path = arguments.vkgadget, arguments.zulctl
        self.window, self.journey, self.on_display = arguments.window, arguments.journey, arguments.on_display
        self.archive = arguments.firmware_archive
        self.is_long = bool(os.environ.get("ZUL_LONG_TESTS"))  # the storms in full length
        self.folder = pathlib.Path.cwd()
        self.log_file = None

    def log(self, text):
        self.log_file.write((text + "\n").encode())
        self.log_file.flush()

    def gadget(self, port=0, model="VK14", options=(), **settings):
        return Gadget(self, port, model, settings, options)

    def run(self, *command, timeout=30, **options):
        """A finished process with its output as text; all of it is logged."""
        command = list(map(str, command))
        self.log(f"$ {' '.join(command)}")
        started = time.monotonic()
        result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, errors="replace",
                                stdin=subprocess.DEVNULL, timeout=timeout * usbfs.slowness, **options)
        self.log(f"{result.stdout}{result.stderr}[exit status {result.returncode}, {time.monotonic() - started:.1f} s]")
        return result

    def zulctl(self, *arguments, timeout=60, **options):
        return self.run(self.zulctl_path, *arguments, timeout=timeout, **options)

    def start(self, *command):
        return Background(self, *command)

    def report(self, text):
        """Prints a measured value for the person who runs the tests."""
        print(f"kernel: {text}", flush=True)
        self.log(text)


def run_case(lab, number, sentence, function):
    path = lab.folder / f"case-{number:02}.log"
    # The load of the machine may change from case to case.
    usbfs.measure_slowness()
    shutil.rmtree(STATE_FOLDER, ignore_errors=True)  # printers of other cases had the same ports
    started = time.monotonic()
    with open(path, "wb") as lab.log_file:
        lab.log(f"limits are multiplied by {usbfs.slowness:.2f}")
        try:
            function(lab)
            passed = True
        except Skipped as reason:
            print(f"ok {number} - {sentence} # SKIP {reason}", flush=True)
            return True
        except Exception:  # any failure belongs to this case, and the next one starts independently
            lab.log(traceback.format_exc())
            passed = False
    print(f"{'ok' if passed else 'not ok'} {number} - {sentence} ({time.monotonic() - started:.1f} s)", flush=True)
    if not passed:
        for line in path.read_text(errors="replace").splitlines():
            print(f"    {line}", flush=True)
    return passed


def parsed_arguments():
    parser = argparse.ArgumentParser()
    parser.add_argument("--vkgadget", required=True)
    parser.add_argument("--zulctl", help="without it the cases of zulctl are left out")
    parser.add_argument("--window", help="the program with the window; without it its case is left out")
    parser.add_argument("--journey", help="who operates it from outside")
    parser.add_argument("--on-display", help="what gives it a display of its own")
    parser.add_argument("--firmware-archive", required=True)
    parser.add_argument("--only", action="append", help="number of a case, or a part of its sentence; repeatable")
    return parser.parse_args()


def main(arguments):
    lab = Guest(arguments)
    results = [run_case(lab, number, *chosen) for number, chosen in enumerate(CASES, 1)
               if not arguments.only or any(one == str(number) or one in chosen[0] for one in arguments.only)]
    print(f"kernel: {sum(results)} passed, {len(results) - sum(results)} failed", flush=True)
    return 0 if results and all(results) else 1


if __name__ == "__main__":
    sys.exit("run cases.py")
