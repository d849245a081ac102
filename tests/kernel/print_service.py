"""A print service for the guest, with the back end that uses printers through libusb. Reachable on loopback only."""
import os
import pathlib
import shutil
import subprocess

import usbfs
from lab import Skipped, expect_equal

CONFIGURATION = """
LogLevel debug
Listen /run/cups/cups.sock
Listen 127.0.0.1:631
Browsing No
DefaultAuthType None
<Location />
  Order allow,deny
  Allow all
</Location>
<Policy default>
  <Limit All>
    Order deny,allow
  </Limit>
</Policy>
"""
FILES = """
User lp
Group lp
SystemGroup root
"""
BACK_ENDS = pathlib.Path("/usr/lib/cups/backend")
ERROR_LOG = pathlib.Path("/var/log/cups/error_log")
LOG_TAIL = 8000  # bytes


class PrintService:
    def __init__(self, lab):
        self._lab = lab
        available = BACK_ENDS.parent / "backend-available" / "usb"
        if not shutil.which("cupsd") or not (available.exists() or (BACK_ENDS / "usb").exists()):
            raise Skipped("the print service could not be fetched")
        for folder in ("/run/cups", "/var/spool/cups", "/var/spool/cups/tmp", "/var/cache/cups", "/var/log/cups",
                       "/etc/cups"):
            os.makedirs(folder, exist_ok=True)
        pathlib.Path("/etc/cups/cupsd.conf").write_text(CONFIGURATION)
        pathlib.Path("/etc/cups/cups-files.conf").write_text(FILES)
        if available.exists():
            shutil.copy(available, BACK_ENDS / "usb")
        # The service runs a back end as root only if no other user may run it.
        os.chown(BACK_ENDS / "usb", 0, 0)
        os.chmod(BACK_ENDS / "usb", 0o700)
        ERROR_LOG.unlink(missing_ok=True)

    def __enter__(self):
        self._process = subprocess.Popen(["cupsd", "-f"], stdout=self._lab.log_file, stderr=self._lab.log_file)
        usbfs.wait_for(lambda: self._call("lpstat", "-r").stdout.strip() == "scheduler is running", 30,
                       "the print service is running")
        return self

    def __exit__(self, *_):
        self._process.terminate()
        try:
            self._process.wait(20)
        except subprocess.TimeoutExpired:
            self._process.kill()
            self._process.wait()
        if ERROR_LOG.exists():
            self._lab.log("[end of the print service's log]\n" + ERROR_LOG.read_text(errors="replace")[-LOG_TAIL:])

    def _call(self, *command):
        return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)

    def _do(self, *command):
        result = self._lab.run(*command)
        expect_equal(result.returncode, 0, f"exit status of {command[0]}")
        return result.stdout

    def addresses(self):
        """The printers that the back end finds on the bus, as addresses for queues."""
        lines = self._do(BACK_ENDS / "usb").splitlines()
        return [line.split()[1] for line in lines if line.startswith("direct ")]

    def add_queue(self, name, address):
        self._do("lpadmin", "-p", name, "-E", "-v", address)

    def queues(self):
        lines = self._call("lpstat", "-v").stdout.splitlines()
        return sorted(line.split()[2].rstrip(":") for line in lines if line.startswith("device for "))

    def print_file(self, queue, path):
        self._do("lp", "-d", queue, "-o", "raw", path)

    def is_idle(self):
        return not self._call("lpstat", "-o").stdout.strip()

    def cancel_all(self):
        self._do("cancel", "-a")
