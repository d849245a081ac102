"""zul-printer-utility as a process: its options, its start on embedded printers, and its end."""
import json
import os
import signal
import subprocess
import time

from bench import FAST, case, expect, expect_equal


def window(bench, *arguments, display="offscreen"):
    env = dict(bench.env, QT_QPA_PLATFORM=display, XDG_STATE_HOME=bench.path("state"))
    for name in ("DISPLAY", "WAYLAND_DISPLAY"):
        env.pop(name, None)
    if not display:
        env.pop("QT_QPA_PLATFORM")
    return subprocess.Popen([bench.window, *arguments], env=env, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE, text=True)


def finished(bench, *arguments, **options):
    process = window(bench, *arguments, **options)
    out, err = process.communicate(timeout=30)
    return process.returncode, out, err


def wait_for_command(journal, command):
    end = time.monotonic() + 30
    while time.monotonic() < end:
        if os.path.exists(journal):
            with open(journal, encoding="utf-8") as lines:
                if any(command in line for line in lines):
                    return
        time.sleep(0.1)
    raise AssertionError(f"the printer never saw {command}")


@case("the window prints its options and its version")
def _(bench):
    status, out, _err = finished(bench, "--help")
    expect_equal(status, 0, out)
    for option in ("--virtual", "--firmware-archive", "--admit-product", "--log"):
        expect(option in out, f"{option} in the help")
    expect_equal(finished(bench, "--version")[:2], (0, "zul-printer-utility 2.06\n"), "version")
    expect("fault=KIND" in finished(bench, "--virtual", "help")[1], "the settings of virtual printers")


@case("the window refuses unknown options, with a hint")
def _(bench):
    for arguments in (["--no-such-option"], ["--virtual", "VK99"], ["--admit-product", "x"],
                      ["--virtual-journal", "file"]):
        status, _out, err = finished(bench, *arguments)
        expect_equal(status, 2, f"{arguments}: {err}")
        expect("zul-printer-utility: " in err, err)


@case("the window reports a missing display, and what to use instead")
def _(bench):
    status, _out, err = finished(bench, "--virtual", "VK14", display="")
    expect_equal(status, 1, err)
    expect("Use zulctl" in err, err)


@case("the window queries a printer, keeps a log, and ends when the system requests it")
def _(bench):
    for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
        journal = bench.path(f"journal-{number}")
        process = window(bench, "--virtual", f"VK14,{FAST}", "--virtual-journal", journal)
        wait_for_command(journal, "SERIAL_NUMBER")
        process.send_signal(number)
        out, err = process.communicate(timeout=30)
        expect_equal(process.returncode, 0, out + err)
        with open(journal, encoding="utf-8") as lines:
            expect(json.loads(lines.readline())["event"], "the journal contains events")
    with open(bench.path("state/zul-printer-utility/log.txt"), encoding="utf-8") as log:
        expect("STATUS" in log.read(), "the traffic is in the log")


@case("the window works without its default log, and says so")
def _(bench):
    with open(bench.path("state"), "w", encoding="ascii"):  # in place of its folder
        pass
    journal = bench.path("journal")
    process = window(bench, "--virtual", f"VK14,{FAST}", "--virtual-journal", journal)
    wait_for_command(journal, "SERIAL_NUMBER")
    process.send_signal(signal.SIGTERM)
    _out, err = process.communicate(timeout=30)
    expect_equal(process.returncode, 0, err)
    expect("the log is kept in the log window only" in err, err)


@case("the window works although its default log cannot be opened, and reports its name")
def _(bench):
    os.makedirs(bench.path("state/zul-printer-utility/log.txt"))
    journal = bench.path("journal")
    process = window(bench, "--virtual", f"VK14,{FAST}", "--virtual-journal", journal)
    wait_for_command(journal, "SERIAL_NUMBER")
    process.send_signal(signal.SIGTERM)
    _out, err = process.communicate(timeout=30)
    expect_equal(process.returncode, 0, err)
    expect(bench.path("state/zul-printer-utility/log.txt") in err, err)


@case("the window does not start if the named log cannot be opened")
def _(bench):
    os.mkdir(bench.path("folder"))
    status, _out, err = finished(bench, "--virtual", "VK14", "--log", bench.path("folder"))
    expect_equal(status, 1, err)
    expect(bench.path("folder") in err, err)


@case("the window restores the column positions of its last run")
def _(bench):
    journal = bench.path("journal")
    process = window(bench, "--virtual", f"VK14,{FAST}", "--virtual-journal", journal)
    wait_for_command(journal, "SERIAL_NUMBER")
    process.send_signal(signal.SIGTERM)
    expect_equal(process.wait(30), 0, "exit status")
    result = bench.run("--json", "defaults", "read", printers=())
    expect("windowPrinterColumns" in result.json, result.out)
