#!/usr/bin/python3
"""Another program that wants a printer for itself, and gets it first.

    holder.py DEVICE FLAG

Reads lines from standard input. "take": waits until DEVICE (such as 1-1) is on the bus, claims its interface, makes the
file FLAG and answers "taken". "release": removes FLAG, releases the printer and answers "released".
"""
import errno
import pathlib
import sys

sys.dont_write_bytecode = True  # the source tree stays as it is

import usbfs  # noqa: E402  (after the switch above)

PATIENCE = 60  # s; also as long as an image takes


def claimed(device):
    """An open printer that is claimed; nothing while somebody has it, or while it is not there."""
    try:
        printer = usbfs.Printer(device)
    except (OSError, StopIteration):  # not yet, or not completely
        return None
    try:
        printer.claim()
        return printer
    except OSError as error:
        printer.close()
        if error.errno in (errno.EBUSY, errno.ENODEV, errno.ENODATA):  # the kernel's driver came in between, or it left
            return None
        raise


def main(device, flag):
    printer = None
    for line in sys.stdin:
        if line == "take\n":
            printer = usbfs.wait_for(lambda: device in usbfs.printers() and claimed(device), PATIENCE,
                                     f"{device} is claimed")
            pathlib.Path(flag).touch()
            print("taken", flush=True)
        else:
            pathlib.Path(flag).unlink()
            printer.close()
            print("released", flush=True)


if __name__ == "__main__":
    main(*sys.argv[1:])
