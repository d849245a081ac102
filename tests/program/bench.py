"""Runs zulctl as a process and collects its output; also the list of cases."""
import fcntl
import json
import os
import pty
import select
import shutil
import struct
import subprocess
import tempfile
import termios
import threading
import time

FAST = "restart=100,program=100,speed=100000000"
UPDATE = ("update", "--agree", "--yes")
LONGEST = 60  # seconds; limit of any run
CASES = []


def case(sentence):
    def register(function):
        CASES.append((sentence, function))
        return function
    return register


def expect(condition, what):
    if not condition:
        raise AssertionError(what)


def expect_equal(got, wanted, what):
    if got != wanted:
        raise AssertionError(f"{what}: got {got!r} instead of {wanted!r}")


class Result:
    def __init__(self, status, out, err):
        self.status, self.out, self.err = status, out, err

    @property
    def json(self):
        return json.loads(self.out)

    @property
    def lines(self):
        return [json.loads(line) for line in self.out.splitlines() if line.strip()]


class ProgramBench:
    """One case: a private home folder, and zulctl with virtual printers."""

    def __init__(self, options):
        self.zulctl, self.window, self.archive = options.zulctl, options.window, options.firmware_archive
        self.history_writer = options.history_writer
        self.folder = tempfile.TemporaryDirectory(prefix="zul-program-")
        self.home = self.folder.name
        self.started = []
        self.env = dict(os.environ, HOME=self.home, XDG_CONFIG_HOME=self.home, XDG_STATE_HOME=self.path("state"),
                        LC_ALL="C.UTF-8")

    def path(self, name):
        return os.path.join(self.home, name)

    def copied_archive(self):
        """A copy of the sample files for a case to change."""
        return shutil.copytree(self.archive, self.path("archive"))

    def run(self, *arguments, printers=("VK14",), input="", timeout=60):
        done = subprocess.run(self.command(arguments, printers), input=input, capture_output=True, text=True,
                              env=self.env, timeout=timeout)
        return Result(done.returncode, done.stdout, done.stderr)

    def command(self, arguments, printers):
        command = [self.zulctl]
        for printer in printers:
            model, _, settings = printer.partition(",")
            # Settings of the case come last, so that they override the quick ones.
            command += ["--virtual", printer if printer == "help" else ",".join(filter(None, (model, FAST, settings)))]
        return command + list(arguments)

    def start(self, *arguments, printers=("VK14",), stdout=subprocess.PIPE, stderr=subprocess.PIPE):
        process = subprocess.Popen(self.command(arguments, printers), stdin=subprocess.DEVNULL, stdout=stdout,
                                   stderr=stderr, text=True, env=self.env)
        # A reader of its output must not wait for ever.
        watchdog = threading.Timer(LONGEST, process.kill)
        watchdog.daemon = True
        watchdog.start()
        self.started.append((process, watchdog))
        return process

    def close(self):
        for process, watchdog in self.started:
            watchdog.cancel()
            process.kill()
            process.wait()
        self.folder.cleanup()

    def terminal(self, *arguments, printers=("VK14",), columns=100):
        return Terminal(self.command(arguments, printers), self.env, columns)


class Terminal:
    """A program on a terminal, with a simulated user who reads and types."""

    def __init__(self, command, env, columns):
        self.text = ""
        self.pid, self.fd = pty.fork()
        if self.pid == 0:
            fcntl.ioctl(0, termios.TIOCSWINSZ, struct.pack("HHHH", 25, columns, 0, 0))
            os.execve(command[0], command, env)

    def read_until(self, wanted, timeout=30):
        end = time.monotonic() + timeout
        while wanted not in self.text:
            left = end - time.monotonic()
            if left <= 0 or not select.select([self.fd], [], [], left)[0]:
                raise AssertionError(f"the terminal never showed {wanted!r}; it shows:\n{self.text}")
            try:
                chunk = os.read(self.fd, 4096)
            except OSError:
                chunk = b""
            if not chunk:
                raise AssertionError(f"the program ended before it showed {wanted!r}; it showed:\n{self.text}")
            self.text += chunk.decode("utf-8", "replace")

    def type(self, line):
        self.text = ""
        os.write(self.fd, (line + "\n").encode())

    def end_input(self):
        self.text = ""
        os.write(self.fd, b"\x04")

    def interrupt(self):
        os.write(self.fd, b"\x03")

    def wait(self):
        while True:
            try:
                chunk = os.read(self.fd, 4096)
            except OSError:
                break
            if not chunk:
                break
            self.text += chunk.decode("utf-8", "replace")
        return os.waitstatus_to_exitcode(os.waitpid(self.pid, 0)[1])
