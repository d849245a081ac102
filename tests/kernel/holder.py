#!/usr/bin/python3
"""Another program that claims a printer before all others.

    holder.py DEVICE FLAG

Reads lines from standard input. "take": waits until DEVICE (such as 1-1) is on the bus, claims its interface, creates
the file FLAG and prints "taken". "release": removes FLAG, releases the printer and prints "released".
"""
import errno
import pathlib
import sys

sys.dont_write_bytecode = True  # the source tree is not changed

import usbfs  # noqa: E402  (after the switch above)

PATIENCE = 60  # s; also the duration of an image


def claimed(device):
    """An open printer that is claimed; None while it is claimed elsewhere or detached."""
    try:
        printer = usbfs.Printer(device)
    except (OSError, StopIteration):  # not attached, or not completely
        return None
    try:
        printer.claim()
        return printer
    except OSError as error:
        printer.close()
        if error.errno in (errno.EBUSY, errno.ENODEV, errno.ENODATA):  # its driver was bound, or it was detached
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
