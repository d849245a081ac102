"""Other programs that use the printer: the kernel's printer driver, a print service, and other USB clients."""
import json
import re
import subprocess
import time

import usbfs
from lab import case, expect, expect_equal
from print_service import PrintService
from usbfs import wait_for

DONE, BUSY = 0, 5
JOB_BYTES = 400_000
JOB_SPEED = 20_000  # bytes per second; the job takes twenty seconds unless it is cancelled
IN_USE = "In use by other application"
WAIT_FOR_JOB = "Wait until the job is printed. Then start the update again."
CLOSE_PROGRAM = "Close that program or wait until it has finished. Then start the update again."
UPDATED = "updated from VK14 01.60 to VK14 01.61, 2 color tables written"
OPENED_WITHIN = 1.0  # s


class Job:
    """A print job through the kernel's driver for as long as the case needs: cat > /dev/usb/lp0."""

    def __init__(self, lab, gadget):
        wait_for(lambda: usbfs.driver(gadget.device) == "usblp", 10, "usblp is bound")
        self.node = wait_for(lambda: usbfs.driver_node(gadget.device), 5, "the driver's node is there")
        lab.log(f"$ cat > {self.node} &")
        with open(self.node, "wb", buffering=0) as printer:  # the driver can be opened once, here by cat
            self.process = subprocess.Popen(["cat"], stdin=subprocess.PIPE, stdout=printer, stderr=lab.log_file)
        self.write(b"page 1\n")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait()

    def write(self, data):
        self.process.stdin.write(data)
        self.process.stdin.flush()

    def end(self):
        """Ends the job; returns its exit status."""
        self.process.stdin.close()
        return self.process.wait()


def expect_row(lab, holder):
    """Checks that the only listed printer is in use by this holder, and that no value was read from it."""
    listed = lab.zulctl("--json", "list")
    expect_equal(listed.returncode, DONE, "exit status of list")
    row, = json.loads(listed.stdout)
    expect_equal((row["status"], row["holder"], row["firmwareInstalled"]), (IN_USE, holder, None), "row")


def expect_refused(lab, reason):
    refused = lab.zulctl("--firmware-archive", lab.archive, "update", "--agree", "--yes", "--give-up", "5")
    expect_equal(refused.returncode, BUSY, "exit status of update")
    last = refused.stdout.splitlines()[-1]
    expect(re.fullmatch(re.escape(f"VK14 (1-1): not updated: {reason}") + r" \(\d+\.\d s\)", last), f"the reason: {last}")


@case("a print job through the kernel's driver continues while the printer is listed, and an update is refused with 5")
def _(lab):
    with lab.gadget() as gadget, Job(lab, gadget) as job:
        named = f"it is printing (cat, process {job.process.pid})"
        listed = lab.zulctl("list")
        expect_equal(listed.returncode, DONE, "exit status of list")
        expect(f"{IN_USE}: {named}  " in listed.stdout, "the row names the job")
        expect_row(lab, {"kind": "print job", "program": "cat", "pid": job.process.pid})
        expect_refused(lab, f"{named}. {WAIT_FOR_JOB}")
        expect_equal(usbfs.driver(gadget.device), "usblp", "driver of the interface")
        job.write(b"page 2\n")
        expect_equal(job.end(), 0, "exit status of the job")
        expect_equal(gadget.commands(), [], "what was sent to the printer beside the job")


@case("a printer is opened within a second after the end of a print job")
def _(lab):
    with lab.gadget() as gadget, Job(lab, gadget) as job:
        with lab.start(lab.zulctl_path, "--json", "watch") as watch:
            number, _ = watch.wait_for_event(30, "the printer is shown", event="arrived")
            ended = time.monotonic()
            expect_equal(job.end(), 0, "exit status of the job")
            watch.wait_for_event(20, "its version is read", number, key="firmwareVersion", value="VK14 01.60")
            taken = time.monotonic() - ended
            lab.report(f"a printer was read {taken:.2f} s after the end of a print job")
            expect(taken <= OPENED_WITHIN * usbfs.slowness, f"read after {taken:.2f} s")


@case("usblp is bound again a second after the last query, also while watch is running")
def _(lab):
    with lab.gadget() as gadget:
        wait_for(lambda: usbfs.driver(gadget.device) == "usblp", 10, "usblp is bound")
        with lab.start(lab.zulctl_path, "--json", "watch") as watch:
            watch.wait_for_event(30, "its version is read", key="firmwareVersion", value="VK14 01.60")
            wait_for(lambda: usbfs.driver(gadget.device) == "usblp", 5, "usblp is bound again")
            expect_equal(watch.process.poll(), None, "watch still runs")
            # A job prints normally meanwhile.
            with Job(lab, gadget) as job:
                expect_equal(job.end(), 0, "exit status of the job")


@case("a job of the print service is not interrupted but reported, and the printer is queried when it has ended")
def _(lab):
    with lab.gadget(serial="ZUL0042", speed=JOB_SPEED) as gadget, PrintService(lab) as service:
        address = next(one for one in service.addresses() if "VK14" in one)
        service.add_queue("photos", address)
        file = lab.folder / "page"
        file.write_bytes(b"page\n" * (JOB_BYTES // 5))
        service.print_file("photos", file)
        wait_for(lambda: usbfs.driver(gadget.device) == "usbfs", 30, "the back end has claimed the interface")
        (pid, name), = usbfs.users(usbfs.node(gadget.device))
        expect_row(lab, {"kind": "program", "program": name, "pid": pid})
        expect_refused(lab, f"another program uses the printer ({name}, process {pid}). {CLOSE_PROGRAM}")
        expect_equal(usbfs.driver(gadget.device), "usbfs", "the back end still has the interface")
        expect_equal(gadget.commands(), [], "what was sent to the printer beside the job")
        service.cancel_all()
        wait_for(service.is_idle, 60, "the job has ended")
        expect_equal(lab.zulctl("status").returncode, DONE, "exit status of status afterwards")


@case("a change of the USB serial number removes the print queues made without one, and no others")
def _(lab):
    kept = {"other_model": "usb://ZUL/QP-VK260?serial=1", "no_question": "usb://ZUL/QP-VK26",
            "vk14": "usb://ZUL/VK14?serial=ZUL0042", "network": "ipp://127.0.0.1/QP-VK26"}
    gone = {"photos": "usb://ZUL/QP-VK26?serial=000001", "photos_2": "usb://ZUL/QP-VK26?location=1-1"}
    with lab.gadget(model="VK26") as gadget, PrintService(lab) as service:
        product = "0x" + usbfs.attribute(gadget.device, "idProduct")
        for name, address in {**kept, **gone}.items():
            service.add_queue(name, address)
        expect_equal(service.queues(), sorted({**kept, **gone}), "queues before")
        result = lab.zulctl("--admit-product", product, "usb-serial", "off", "1")
        expect_equal(result.returncode, DONE, "exit status")
        expect_equal(service.queues(), sorted(kept), "queues afterwards")
    with lab.gadget(model="VK26"):  # without a print service
        result = lab.zulctl("--admit-product", product, "usb-serial", "off", "1")
        expect_equal((result.returncode, "lpstat" in result.stderr), (DONE, False), "without a print service")


class WithoutUdevd:
    """Stops the guest's udevd for as long as the case needs."""

    def __init__(self, lab):
        self._lab = lab

    def __enter__(self):
        self._lab.run("udevadm", "control", "--exit")
        wait_for(lambda: not is_udevd_running(), 20, "udevd has ended")

    def __exit__(self, *_):
        self._lab.run("/lib/systemd/systemd-udevd", "--daemon")
        self._lab.run("udevadm", "trigger", "--subsystem-match=usb", "--action=add")
        self._lab.run("udevadm", "settle", "--timeout=20")


def is_udevd_running():
    return subprocess.run(["pidof", "systemd-udevd"], stdout=subprocess.DEVNULL).returncode == 0


@case("without udevd an update uses the kernel's events")
def _(lab):
    with lab.gadget(), WithoutUdevd(lab):
        result = lab.zulctl("--firmware-archive", lab.archive, "update", "--agree", "--yes", timeout=120)
        expect_equal(result.returncode, DONE, "exit status")
        expect(UPDATED in result.stdout, "it is reported")
