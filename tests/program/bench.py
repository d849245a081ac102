"""zulctl as a process: running it, looking at what it wrote, and the list of cases."""
import json
import os
import pty
import select
import subprocess
import tempfile
import time

FAST = "restart=100,program=100,speed=100000000"
UPDATE = ("update", "--agree", "--yes")
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


class Bench:
    """One case: a home of its own, and zulctl with virtual printers."""

    def __init__(self, zulctl, archive):
        self.zulctl, self.archive = zulctl, archive
        self.folder = tempfile.TemporaryDirectory(prefix="zul-program-")
        self.home = self.folder.name
        self.env = dict(os.environ, HOME=self.home, XDG_CONFIG_HOME=self.home, LC_ALL="C.UTF-8")

    def path(self, name):
        return os.path.join(self.home, name)

    def run(self, *arguments, printers=("VK14",), input="", timeout=60):
        done = subprocess.run(self.command(arguments, printers), input=input, capture_output=True, text=True,
                              env=self.env, timeout=timeout)
        return Result(done.returncode, done.stdout, done.stderr)

    def command(self, arguments, printers):
        command = [self.zulctl]
        for printer in printers:
            command += ["--virtual", f"{printer},{FAST}" if printer != "help" else printer]
        return command + list(arguments)

    def start(self, *arguments, printers=("VK14",)):
        return subprocess.Popen(self.command(arguments, printers), stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, text=True, env=self.env)

    def terminal(self, *arguments, printers=("VK14",)):
        return Terminal(self.command(arguments, printers), self.env)


class Terminal:
    """A program on a terminal, and a person who reads and types."""

    def __init__(self, command, env):
        self.text = ""
        self.pid, self.fd = pty.fork()
        if self.pid == 0:
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
