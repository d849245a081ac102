"""Commands that query, set or reset printers."""
import json
import os
import shutil
import signal
import subprocess
import time

from bench import case, expect, expect_equal


@case("list shows every printer with its versions, as text and as JSON")
def _(bench):
    result = bench.run("list", printers=("VK14", "VK14,serial=777"))
    expect_equal(result.status, 0, "exit status")
    for wanted in ("2A71000301100000", "VK14 01.60", "VK14 01.61", "777", "1-2", "Idle"):
        expect(wanted in result.out, f"{wanted} is shown")
    expect("Update available" in result.out.splitlines()[1], "what the first one needs is shown")
    rows = bench.run("--json", "list", printers=("VK14", "VK14,serial=777")).json
    expect_equal([row["updateState"] for row in rows], ["update available"] * 2, "states")
    expect_equal([row["printerSerialNumber"] for row in rows], ["000001", "777"], "serial numbers")
    expect_equal((rows[0]["firmwareOffered"], rows[0]["firmwareFile"]), ("VK14 01.61", "ready"), "offered")


@case("a version whose file cannot be installed is listed with the reason by list and info")
def _(bench):
    folder = bench.copied_archive()
    firmware = os.path.join(folder, "VK14 01.61.fw")
    archive = ("--firmware-archive", folder)

    def expect_shown(text, state):
        for command in ("list", "info"):
            expect(f"VK14 01.61, {text}  " in bench.run(*archive, command).out.replace("\n", "  "), f"{text} in {command}")
        facts = bench.run("--json", *archive, "list").json[0]
        expect_equal((facts["firmwareOffered"], facts["firmwareFile"]), (None, state), "json")

    with open(firmware, "r+b") as file:
        file.write(b"X")
    expect_shown("file damaged", "damaged")
    os.remove(firmware)
    expect_shown("file missing", "missing")
    shutil.copy(os.path.join(bench.archive, "VK14 01.61.fw"), firmware)
    os.remove(os.path.join(folder, "digests.json"))
    expect_shown("file not verified", "no digest")


@case("a model is listed only if it is admitted")
def _(bench):
    expect_equal(bench.run("--json", "list", printers=("VK26",)).json, [], "not admitted")
    expect_equal(len(bench.run("--json", "--admit-product", "0x8B01", "list", printers=("VK26",)).json), 1, "admitted")


@case("info shows the device info, and finds a printer by key, serial number, location and position")
def _(bench):
    for name in ("2A71000301200000", "777", "1-2", "2"):
        facts = bench.run("--json", "info", name, printers=("VK14", "VK14,serial=777,lifetime=9")).json
        expect_equal(facts["deviceInfo"]["TBPrinterLifetimeCounter"], "9", f"found by {name}")
    text = bench.run("info").out
    for wanted in ("MFG:Zul Imaging Company;MDL:VK14;", "firmwareVersion", "no program", "Unavailable"):
        expect(wanted in text, f"{wanted} is shown")


@case("an unknown printer exits with 4 and lists the attached ones")
def _(bench):
    for words in (("info", "nobody"), ("status", "nobody"), ("update", "--agree", "--yes", "nobody"),
                  ("soft-reset", "nobody"), ("reset-counter", "A", "nobody"), ("usb-serial", "on", "nobody")):
        result = bench.run(*words)
        expect_equal(result.status, 4, f"exit status of {words}")
        expect("2A71000301100000" in result.err, "the attached one is named")


@case("several printers without a name are wrong usage for a command on one printer")
def _(bench):
    result = bench.run("info", printers=("VK14", "VK14"))
    expect_equal(result.status, 2, "exit status")
    expect("name one" in result.err, result.err)


@case("status sends a query and shows code and text")
def _(bench):
    expect_equal(bench.run("status", printers=("VK14,status=00000:01300",)).out, "01300  Paper Jam\n", "text")
    answer = bench.run("--json", "status").json
    expect_equal((answer["code"], answer["status"]), ("00000", "Idle"), "json")


@case("status of an unresponsive printer exits with 8")
def _(bench):
    result = bench.run("status", printers=("VK14,fault=silence@STATUS#2,fault=silence@STATUS#3",))
    expect_equal(result.status, 8, "exit status")
    expect("does not answer" in result.err, result.err)


@case("status of a printer that another program holds exits with 5")
def _(bench):
    result = bench.run("status", printers=("VK14,fault=holder#2:60000",))
    expect_equal(result.status, 5, "exit status")
    expect("another program" in result.err, result.err)


def journal(bench, *words, printers=("VK14",)):
    file = bench.path("journal")
    result = bench.run("--virtual-journal", file, *words, printers=printers)
    with open(file, encoding="utf-8") as lines:
        return result, [json.loads(line) for line in lines]


@case("a counter reset is sent to the printer")
def _(bench):
    result, seen = journal(bench, "reset-counter", "B", "1")
    expect_equal(result.status, 0, "exit status")
    commands = [entry["command"] for entry in seen if entry["event"] == "command"]
    expect_equal(commands[-1], "MNT_WTCOUNTER_CLR", "the last command")


@case("a refused command is reported as text; only the log and JSON have the return code")
def _(bench):
    printers = ("VK14,fault=stall@MNT_WTCOUNTER_CLR",)
    result = bench.run("reset-counter", "A", "1", printers=printers)
    expect_equal(result.status, 1, "exit status")
    expect_equal(result.err, "zulctl: VK14 000001 (1-1) did not accept the command: the printer refused the data. "
                             "Switch it off and on, then try again.\n", "the problem")
    log = bench.run("-v", "reset-counter", "A", "1", printers=printers).err
    expect("Switch it off and on, then try again. (kIOUSBPipeStalled)" in log, log)
    error = bench.run("--json", "reset-counter", "A", "1", printers=printers).json["error"]
    expect_equal((error["exit"], error["code"]), (1, "kIOUSBPipeStalled"), "in JSON")
    expect("kIO" not in error["message"], error["message"])


@case("a bus that cannot be watched is reported as text; only the log and JSON have the return code")
def _(bench):
    def listed(*words):
        # Too few descriptors for the bus, but enough for the steps before it.
        command = ["sh", "-c", 'ulimit -n 12; exec "$0" "$@"', bench.zulctl, *words, "list"]
        result = subprocess.run(command, capture_output=True, text=True, env=bench.env, timeout=30)
        expect_equal(result.returncode, 1, result.stdout + result.stderr)
        return result.stdout + result.stderr

    problem = listed()
    expect(problem.startswith("zulctl: the USB bus cannot be watched. Close other programs"), problem)
    expect("kIO" not in problem, problem)
    expect("the USB bus cannot be watched: kIOReturn" in listed("-v"), "the code is in the log")
    error = json.loads(listed("--json"))["error"]
    expect_equal((error["exit"], error["code"].startswith("kIOReturn")), (1, True), "in JSON")


@case("the USB serial number is switched on for a model that has it and refused for one without it")
def _(bench):
    result, seen = journal(bench, "--admit-product", "0x8B01", "usb-serial", "on", "1",
                           printers=("VK26,usb-serial=off",))
    expect_equal(result.status, 0, "exit status")
    expect("Enabled" in result.out and "power-cycle" in result.err, "the next step is shown")
    commands = [entry["command"] for entry in seen if entry["event"] == "command"]
    expect_equal(commands[-2:], ["MNT_WTUSB_ISERI_SET", "MNT_RDUSB_ISERI_SET"], "the last commands")
    result = bench.run("usb-serial", "on", "1")
    expect(result.status == 1 and "no such setting" in result.err, "a VK14 has none")


@case("resets reach the printer")
def _(bench):
    for command, event in (("soft-reset", "reset"), ("reset", "reset"), ("reenumerate", "leave")):
        bench.path("journal")
        file = bench.path(command)
        result = bench.run("--virtual-journal", file, command, "1")
        expect_equal(result.status, 0, f"exit status of {command}")
        with open(file, encoding="utf-8") as lines:
            expect(event in [json.loads(line)["event"] for line in lines], f"{command} shows as {event}")


@case("watch reports an arrival and its values as JSON lines and exits with 130 after an interrupt")
def _(bench):
    process = bench.start("--json", "watch")
    seen = []
    while not any(line.get("key") == "printerSerialNumber" for line in seen):
        seen.append(json.loads(process.stdout.readline()))
    process.send_signal(signal.SIGINT)
    process.communicate(timeout=20)
    expect_equal(process.returncode, 130, "exit status")
    expect_equal(seen[0]["event"], "arrived", "the first event")
    expect(any(line.get("key") == "firmwareVersion" and line["value"] == "VK14 01.60" for line in seen), "a value")


@case("the log file and -v show what was sent")
def _(bench):
    file = bench.path("log")
    result = bench.run("--log", file, "-v", "list")
    expect("sending printer command STATUS with payload size 0" in result.err, "-v")
    with open(file, encoding="utf-8") as log:
        expect("1b 50 53 54 41 54 55 53" in log.read(), "the traffic is dumped")


@case("a counter of a printer in its loader is not reported as reset")
def _(bench):
    result = bench.run("reset-counter", "A", "1", printers=("VK14,mode=loader",))
    expect_equal(result.status, 6, result.out + result.err)
    expect("Firmware Update Mode" in result.err, result.err)


@case("serial numbers of virtual printers differ, also if another setting's name ends with serial")
def _(bench):
    result = bench.run("--json", "--admit-product", "0x8B01", "list", printers=("VK26,usb-serial=on", "VK26,usb-serial=on"))
    expect_equal([row["printerSerialNumber"] for row in result.json], ["000001", "000002"], result.out)


@case("an interrupt ends a command that waits for an unresponsive printer with 130")
def _(bench):
    process = bench.start("status", printers=("VK14,fault=silence@STATUS",))
    time.sleep(1)
    process.send_signal(signal.SIGINT)
    expect_equal(process.wait(), 130, "exit status")


@case("two virtual printers at one location are refused, and an explicit location is reserved for its printer")
def _(bench):
    result = bench.run("list", printers=("VK14,location=1-2", "VK14,location=1-2"))
    expect_equal(result.status, 2, result.err)
    expect("another printer is at that location already" in result.err, result.err)
    result = bench.run("--json", "list", printers=("VK14", "VK14,location=1-1"))
    expect_equal([row["location"] for row in result.json], ["1-2", "1-1"], result.out)


@case("a printer with the other vendor ID is found like any other")
def _(bench):
    result = bench.run("--json", "info", printers=("VK14,vendor=0x2B84",))
    expect_equal(result.json["vendorID"], "0x2B84", result.out)
    expect_equal(result.json["firmwareInstalled"], "VK14 01.60", result.out)


@case("a printer with bad replies is listed with a remedy, and one that replies to the second query is not")
def _(bench):
    mute = ("VK14,fault=silence@FVER#1,fault=silence@FVER#2",)
    expect("Idle: gives no valid answers, switch it off and on" in bench.run("list", printers=mute).out, "list")
    expect_equal(bench.run("--json", "list", printers=mute).json[0]["notAnswering"], True, "in JSON")
    slow = ("VK14,fault=silence@FVER#1",)
    expect("does not answer" not in bench.run("list", printers=slow).out, "list")
    expect_equal(bench.run("--json", "list", printers=slow).json[0]["notAnswering"], False, "in JSON")
