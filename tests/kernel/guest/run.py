#!/usr/bin/python3
"""Runs one command in the test guest and exits with its exit status.

    run.py --cache DIR --exchange DIR [--timeout S] [--udev-rules FILE] COMMAND [ARGUMENT...]

DIR of --exchange is the only folder that the guest can write to; there it is /mnt/exchange and the command's working
folder. All other files of the host are visible at their own paths, and the command's changes to them are discarded.
With ZUL_LONG_TESTS in the environment, which the command receives too, the time limit is ten times as long.
Exit status: the command's own; 77 if no guest is possible on this machine; 124 after the time limit; 125 if the guest
ended without a status.
"""
import argparse
import os
import pathlib
import shlex
import subprocess
import sys
import time

sys.dont_write_bytecode = True  # the source tree is not changed

import image  # noqa: E402  (after the switch above)

SKIPPED, TIMED_OUT, LOST = 77, 124, 125
LONG = "ZUL_LONG_TESTS"
LONGER = 10  # times the time limit of a short run


def qemu_command(kernel, initrd, packages, exchange):
    def share(tag, path, more):
        return ["-virtfs", f"local,path={path},mount_tag={tag},security_model=none,multidevs=remap{more}"]

    # Emulated even if the processor has virtualization: accelerators hang on some of the test machines.
    return ([image.tool("qemu-system-x86_64"), "-accel", "tcg,thread=multi", "-cpu", "max", "-smp", "2", "-m", "1024",
             "-nodefaults", "-no-reboot", "-display", "none", "-nic", "none",
             "-serial", f"file:{exchange}/console.log", "-kernel", str(kernel), "-initrd", str(initrd),
             "-append", "console=ttyS0 quiet panic=-1 mitigations=off random.trust_cpu=on rdinit=/init"]
            + share("hostroot", "/", ",readonly=on") + share("packages", packages, ",readonly=on")
            + share("exchange", exchange, ""))


class Output:
    """Prints the command's output while it is still running."""

    def __init__(self, path):
        self._path, self._offset = path, 0

    def pass_on(self):
        if self._path.exists():
            with open(self._path, "rb") as file:
                file.seek(self._offset)
                text = file.read()
            self._offset += len(text)
            sys.stdout.buffer.write(text)
            sys.stdout.flush()


def run_guest(arguments, kernel, initrd, modules, packages):
    exchange = arguments.exchange.resolve()
    exchange.mkdir(parents=True, exist_ok=True)
    for name in (".status", ".output", "console.log"):
        (exchange / name).unlink(missing_ok=True)
    (exchange / ".start").write_text((image.HERE / "start").read_text())
    (exchange / ".parameters").write_text(
        f"GUEST_MODULES={shlex.quote(str(modules))}\n"
        f"GUEST_UDEV_RULES={shlex.quote(str(arguments.udev_rules or ''))}\n"
        f"export {LONG}={shlex.quote(os.environ.get(LONG, ''))}\n"
        f"GUEST_COMMAND=({shlex.join(arguments.command)})\n")
    guest = subprocess.Popen(qemu_command(kernel, initrd, packages, exchange), stdin=subprocess.DEVNULL)
    output = Output(exchange / ".output")
    deadline = time.monotonic() + arguments.timeout
    try:
        while guest.poll() is None and time.monotonic() < deadline:
            time.sleep(0.2)
            output.pass_on()
        timed_out = guest.poll() is None
    finally:
        if guest.poll() is None:
            guest.kill()
            guest.wait()
    output.pass_on()
    return verdict(exchange, timed_out, arguments.timeout)


def verdict(exchange, timed_out, timeout):
    status = exchange / ".status"
    if status.exists() and status.read_text().strip():
        return int(status.read_text())
    reason = f"not finished after {timeout} s" if timed_out else "the guest ended without a result"
    print(f"guest: {reason}; the end of {exchange}/console.log:", file=sys.stderr)
    console = exchange / "console.log"
    lines = console.read_text(errors="replace").splitlines() if console.exists() else []
    print("\n".join(lines[-40:]), file=sys.stderr)
    return TIMED_OUT if timed_out else LOST


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--cache", type=pathlib.Path, required=True)
    parser.add_argument("--exchange", type=pathlib.Path, required=True)
    parser.add_argument("--timeout", type=float, default=180)
    parser.add_argument("--udev-rules", type=pathlib.Path)
    parser.add_argument("command", nargs=argparse.REMAINDER)
    arguments = parser.parse_args()
    if not arguments.command:
        parser.error("no command")
    if os.environ.get(LONG):
        arguments.timeout *= LONGER
    os.umask(0o022)
    try:
        guest = image.prepare(arguments.cache.resolve())
    except image.Unavailable as reason:
        print(f"guest: skipped: {reason}")
        return SKIPPED
    return run_guest(arguments, *guest)


if __name__ == "__main__":
    sys.exit(main())
