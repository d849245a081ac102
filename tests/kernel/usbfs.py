"""A USB client that uses a few ioctls of the kernel's device nodes.

It shares no code with the tested programs, so it sees a gadget as the kernel does. It also plays the other program that
holds a printer.
"""
import contextlib
import ctypes
import fcntl
import hashlib
import os
import pathlib
import time

DEVICES = pathlib.Path("/sys/bus/usb/devices")

_CONTROL, _BULK = 0xC0185500, 0xC0185502
_CLAIM, _RELEASE, _CLEAR_HALT = 0x8004550F, 0x80045510, 0x80045515
_DRIVER_IOCTL, _DISCONNECT = 0xC0105512, 0x5516


class _Control(ctypes.Structure):
    _fields_ = [("type", ctypes.c_uint8), ("request", ctypes.c_uint8), ("value", ctypes.c_uint16),
                ("index", ctypes.c_uint16), ("length", ctypes.c_uint16), ("timeout", ctypes.c_uint32),
                ("data", ctypes.c_void_p)]


class _Bulk(ctypes.Structure):
    _fields_ = [("endpoint", ctypes.c_uint), ("length", ctypes.c_uint), ("timeout", ctypes.c_uint),
                ("data", ctypes.c_void_p)]


class _DriverIoctl(ctypes.Structure):
    _fields_ = [("interface", ctypes.c_int), ("code", ctypes.c_int), ("data", ctypes.c_void_p)]


def attribute(device, name):
    try:
        return (DEVICES / device / name).read_text().strip()
    except OSError:
        return None


def printers():
    """The sysfs names (such as 1-1) of the devices whose first interface is a printer, in order."""
    return sorted(path.name.split(":")[0] for path in DEVICES.glob("*:1.0")
                  if attribute(path.name, "bInterfaceClass") == "07")


# By which factor this machine is slower than the one on which the limits were chosen, at least 1.
slowness = 1.0
_REFERENCE = 0.1  # s; a quiet guest
_SLOWEST = 8.0  # on a slower machine, a case that fails anyway only fails later


def measure_slowness():
    """Starts processes and computes, like all limited steps. Uses the best of several runs: the first one also reads
    files from disk."""
    def taken():
        started = time.monotonic()
        for _ in range(3):
            os.spawnv(os.P_WAIT, "/bin/true", ["true"])
        hashlib.sha256(bytes(1 << 18)).digest()
        return time.monotonic() - started
    global slowness
    slowness = min(max(1.0, min(taken() for _ in range(3)) / _REFERENCE), _SLOWEST)


def wait_for(condition, seconds, what):
    """Waits for the condition; returns its first true result."""
    deadline = time.monotonic() + seconds * slowness
    while time.monotonic() < deadline:
        result = condition()
        if result:
            return result
        time.sleep(0.02)
    raise AssertionError(f"after {seconds} s still not: {what}")


def node(device):
    """The device node's path; a path of no file if the device is detached."""
    bus, address = attribute(device, "busnum"), attribute(device, "devnum")
    return f"/dev/bus/usb/{int(bus or 0):03}/{int(address or 0):03}"


def driver(device, interface=0):
    """The driver bound to the printer interface, or None."""
    link = DEVICES / f"{device}:1.{interface}" / "driver"
    return os.path.basename(os.readlink(link)) if link.is_symlink() else None


def driver_node(device):
    """The node of the kernel's printer driver, such as /dev/usb/lp0, or None."""
    names = [path.name for path in (DEVICES / f"{device}:1.0").glob("usbmisc/lp*")]
    return f"/dev/usb/{names[0]}" if names and os.path.exists(f"/dev/usb/{names[0]}") else None


def users(path):
    """The processes that have this file open: pairs of process id and name, in order."""
    found = set()
    for link in pathlib.Path("/proc").glob("[0-9]*/fd/*"):
        with contextlib.suppress(OSError):  # it has ended meanwhile
            if os.readlink(link) == path:
                found.add((int(link.parts[2]), (link.parents[1] / "comm").read_text().strip()))
    return sorted(found)


def plug(gadget, is_in):
    """Simulates that the gadget's plug is pulled or put in."""
    gadget.port_switch.write_text("0" if is_in else "1")


def switch_off_and_on(gadget):
    plug(gadget, False)
    wait_for(lambda: not gadget.present(), 10, "the printer is detached")
    plug(gadget, True)
    wait_for(gadget.present, 20, "the printer is attached")


class Printer:
    """An open printer; one of its interfaces is claimed after claim()."""

    def __init__(self, device, interface=0):
        self.device, self._interface = device, interface
        self._fd = os.open(node(device), os.O_RDWR | os.O_CLOEXEC)
        self.endpoints = sorted(int(path.name[3:], 16) for path in (DEVICES / f"{device}:1.{interface}").glob("ep_*"))
        self._out = next(address for address in self.endpoints if not address & 0x80)
        self._in = next(address for address in self.endpoints if address & 0x80)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        if self._fd >= 0:
            os.close(self._fd)
            self._fd = -1

    def claim(self):
        if driver(self.device, self._interface):
            fcntl.ioctl(self._fd, _DRIVER_IOCTL, _DriverIoctl(self._interface, _DISCONNECT, None))
        fcntl.ioctl(self._fd, _CLAIM, ctypes.c_uint(self._interface))

    def release(self):
        fcntl.ioctl(self._fd, _RELEASE, ctypes.c_uint(self._interface))

    def control_in(self, request_type, request, value, index, length, timeout=1000):
        buffer = ctypes.create_string_buffer(length)
        got = fcntl.ioctl(self._fd, _CONTROL, _Control(request_type, request, value, index, length, timeout,
                                                       ctypes.addressof(buffer)))
        return buffer.raw[:got]

    def device_id(self):
        return self.control_in(0xA1, 0, 0, 0, 1024)

    def _bulk(self, endpoint, buffer, length, timeout):
        return fcntl.ioctl(self._fd, _BULK, _Bulk(endpoint, length, timeout, ctypes.addressof(buffer)))

    def write(self, data, timeout=5000):
        """One transfer per 16 KiB; returns the number of bytes written."""
        sent = 0
        while sent < len(data):
            piece = data[sent:sent + 16384]
            sent += self._bulk(self._out, ctypes.create_string_buffer(piece, len(piece)), len(piece), timeout)
        return sent

    def read(self, length=4096, timeout=3000):
        """One transfer: ends with a short or zero-length packet, or after length bytes."""
        buffer = ctypes.create_string_buffer(length)
        got = self._bulk(self._in, buffer, length, timeout)
        return buffer.raw[:got]

    def clear_halt(self):
        for address in self.endpoints:
            fcntl.ioctl(self._fd, _CLEAR_HALT, ctypes.c_uint(address))


def frame(text, payload=b""):
    """A command in wire format: escape, P, the command text to byte 23, the payload's size."""
    size = f"{len(payload):08}" if payload else " " * 8
    return b"\x1bP" + text.ljust(22).encode() + size.encode() + payload
