"""Updates with a failure: what is reported, what is sent, how they end, and how they are completed."""
import json
import os
import signal

from bench import UPDATE, case, expect, expect_equal

IMAGE = "VK14 01.61.fw"


def header_record(text):
    contents = bytes([len(text) + 3, 0, 0]) + text.encode()
    return f"S0{contents.hex().upper()}{~sum(contents) & 0xFF:02X}"


def commands_of(file):
    with open(file, encoding="utf-8") as lines:
        return [entry["command"] for entry in map(json.loads, lines) if entry["event"] == "command"]


def events_of(result):
    return [line["event"] for line in result.lines]


@case("firmware that reports another version than the available one is not a success, whatever was reported")
def _(bench):
    folder = bench.copied_archive()
    image = os.path.join(folder, IMAGE)
    with open(image, encoding="ascii", newline="") as file:
        first, rest = file.read().split("\n", 1)
    with open(image, "w", encoding="ascii", newline="") as file:
        file.write(header_record("VK14 01.59") + ("\r" if first.endswith("\r") else "") + "\n" + rest)
    expect_equal(bench.run("archive", "digest", folder, printers=()).status, 0, "digests")
    result = bench.run("--firmware-archive", folder, *UPDATE)
    expect_equal(result.status, 1, result.out)
    expect("Firmware update was successful!" in result.out, "the report")
    expect("reports VK14 01.59 after the update instead of VK14 01.61" in result.out.splitlines()[-1], "device info")


@case("files that were verified before the printer restarts are used although they were removed meanwhile")
def _(bench):
    folder = bench.copied_archive()
    process = bench.start("--firmware-archive", folder, "--json", *UPDATE, printers=("VK14,restart=1500",))
    for line in process.stdout:
        if json.loads(line).get("phase") == "restarting into loader":
            os.remove(os.path.join(folder, IMAGE))
            os.remove(os.path.join(folder, "VK14_300_0161.cwd"))
            break
    last = json.loads(process.stdout.read().splitlines()[-1])
    expect_equal((process.wait(), last["tablesWritten"]), (0, 2), str(last))


@case("an archive without the firmware file exits with 7 and sends no command")
def _(bench):
    folder, file = bench.copied_archive(), bench.path("journal")
    os.remove(os.path.join(folder, IMAGE))
    result = bench.run("--firmware-archive", folder, "--virtual-journal", file, *UPDATE)
    expect_equal(result.status, 7, result.out)
    expect(not any(command.startswith("FW_UPD") for command in commands_of(file)), "no firmware command")


@case("an image that the bus does not accept ends the update at once, with its code only in the JSON")
def _(bench):
    result = bench.run("--json", *UPDATE, printers=("VK14,fault=stall@FLASH_PROGRAM",))
    expect_equal(result.status, 1, result.out)
    last = result.lines[-1]
    expect_equal((last["result"], last["code"]), ("image not taken", "kIOUSBPipeStalled"), "result")
    expect("it did not accept the firmware" in last["message"] and "kIO" not in last["message"], last["message"])


@case("a failed command to restart leaves the printer unchanged, and this is reported")
def _(bench):
    result = bench.run("--json", *UPDATE, printers=("VK14,fault=stall@FLASH_REWRITE",))
    expect_equal(result.status, 1, result.out)
    expect("did not accept the command to restart. Nothing has been changed" in result.lines[-1]["message"], result.out)


@case("a printer unplugged during the image is reported, and the next run updates it")
def _(bench):
    result = bench.run("--json", *UPDATE, printers=("VK14,fault=unplug@FW_UPDFLASH_PROGRAM",))
    expect_equal(result.status, 1, result.out)
    last = result.lines[-1]["message"]
    expect("firmware update mode" in last and "start the update again: that completes it" in last, last)
    result = bench.run(*UPDATE, printers=("VK14,mode=loader",))
    expect_equal(result.status, 0, result.out)


@case("a printer unresponsive before the first command exits with 8 and is reported as unchanged")
def _(bench):
    file = bench.path("journal")
    result = bench.run("--json", "--virtual-journal", file, *UPDATE, "--stall-timeout", "1", "--give-up", "2",
                       printers=("VK14,fault=silence@STATUS#2,fault=silence@STATUS#3",))
    expect_equal(result.status, 8, result.out)
    expect_equal(events_of(result)[-2:], ["stalled", "result"], "events")
    expect("Nothing has been changed" in result.lines[-1]["message"], result.out)
    expect("FW_UPDFLASH_REWRITE" not in commands_of(file), "no command was sent")


@case("a printer that returns on another port is not taken for the awaited one")
def _(bench):
    file = bench.path("journal")
    result = bench.run("--virtual-journal", file, *UPDATE, "--give-up", "3",
                       printers=("VK14,fault=elsewhere@FLASH_REWRITE",))
    expect_equal(result.status, 8, result.out)
    expect("FW_UPDFLASH_PROGRAM" not in commands_of(file), "no image is sent to it")


@case("a printer with an open cover after its restart gets its tables when the cover is closed")
def _(bench):
    result = bench.run("--json", *UPDATE, printers=("VK14,after-update=01000:01000:00000",))
    expect_equal(result.status, 0, result.out)
    expect(any(": Cover Open (" in line.get("text", "") for line in result.lines), "the cause is shown while it lasts")
    expect_equal((result.lines[-1]["version"], result.lines[-1]["tablesWritten"]), ("VK14 01.61", 2), "the facts")


@case("a printer that is not ready after its restart is given up with its status")
def _(bench):
    result = bench.run(*UPDATE, "--give-up", "8", printers=("VK14,after-update=01100",))
    expect_equal(result.status, 8, result.out)
    expect("the printer reports: Paper End" in result.out.splitlines()[-1], result.out)


@case("if one printer is lost the others are still updated, and the run ends")
def _(bench):
    result = bench.run("--json", *UPDATE, "--all", "--give-up", "8",
                       printers=("VK14,status=01000", "VK14", "VK14,fault=never-back@FLASH_REWRITE"))
    ends = {line["printer"]: line["exit"] for line in result.lines if line["event"] == "result"}
    expect_equal(ends, {"2A71000301100000": 6, "2A71000301200000": 0, "2A71000301300000": 8}, "results")
    expect_equal(result.status, 6, "exit status of the run: that of the first one that failed")


@case("a printer that is named twice is updated once")
def _(bench):
    file = bench.path("journal")
    result = bench.run("--virtual-journal", file, *UPDATE, "1", "000001", "1-1")
    expect_equal(result.status, 0, result.out)
    expect_equal(commands_of(file).count("FW_UPDFLASH_PROGRAM"), 1, "images")


@case("the same version is installed again without a question")
def _(bench):
    result = bench.run(*UPDATE, printers=("VK14,firmware=VK14 01.61",))
    expect_equal(result.status, 0, result.out)
    expect("updated from VK14 01.61 to VK14 01.61" in result.out, result.out)


@case("a newer version is replaced if the setting allows it")
def _(bench):
    bench.run("defaults", "write", "installOlderFirmwareVersion", "true", printers=())
    result = bench.run(*UPDATE, printers=("VK14,firmware=VK14 01.70",))
    expect_equal(result.status, 0, result.out)


@case("plain output has no carriage returns, and every long phase has its line")
def _(bench):
    result = bench.run(*UPDATE)
    expect("\r" not in result.out and "\x1b" not in result.out, repr(result.out))
    for wanted in ("checking", "restarting into the loader", "in the loader", "programming its flash",
                   "restarting into the new firmware"):
        expect(wanted in result.out, f"{wanted!r} is shown")
    expect("usually done within 30 s" in result.out, "the usual time is shown")


def wait_for_phase(process, phase):
    for line in process.stdout:
        if json.loads(line).get("phase") == phase:
            return
    raise AssertionError(f"the update ended before {phase!r}")


@case("one interrupt during an update warns and changes nothing")
def _(bench):
    process = bench.start("--json", *UPDATE)
    wait_for_phase(process, "in the loader")
    process.send_signal(signal.SIGINT)
    out, err = process.communicate(timeout=60)
    expect("Interrupt once more" in err, err)
    expect_equal(process.returncode, 0, out)
    expect_equal(json.loads(out.splitlines()[-1])["exit"], 0, "the result")


@case("an interrupt before the first command ends the run at once")
def _(bench):
    process = bench.start("--json", *UPDATE, printers=("VK14,fault=silence@STATUS#2,fault=silence@STATUS#3",))
    wait_for_phase(process, "checking")
    process.send_signal(signal.SIGINT)
    _, err = process.communicate(timeout=10)
    expect_equal((process.returncode, err), (130, ""), "exit status and standard error")


@case("an archive damaged while the printer restarts exits with 7 and reports that the printer is in its loader")
def _(bench):
    folder = bench.copied_archive()
    process = bench.start("--firmware-archive", folder, "--json", *UPDATE, printers=("VK14,restart=1500",))
    for line in process.stdout:
        if json.loads(line).get("phase") == "restarting into loader":
            with open(os.path.join(folder, IMAGE), "a", encoding="ascii") as file:
                file.write("!")
            break
    events = [json.loads(line) for line in process.stdout.read().splitlines()]
    last = events[-1]
    expect_equal(process.wait(), 7, str(last))
    expect("The printer is in firmware update mode" in last["message"], str(last))
    alerts = [event for event in events if event["event"] == "alert"]
    expect("There was a problem with the firmware file!" in str(alerts), str(events))


@case("an archive damaged before the tables exits with 7 and reports the files")
def _(bench):
    folder = bench.copied_archive()
    process = bench.start("--firmware-archive", folder, "--json", *UPDATE, printers=("VK14,program=1500",))
    for line in process.stdout:
        if json.loads(line).get("phase") == "programming":
            with open(os.path.join(folder, IMAGE), "a", encoding="ascii") as file:
                file.write("!")
            break
    last = json.loads(process.stdout.read().splitlines()[-1])
    expect_equal(process.wait(), 7, str(last))
    expect("The firmware files are damaged" in last["message"], str(last))


@case("one interrupt while the tables are written only warns")
def _(bench):
    process = bench.start("--json", *UPDATE, printers=("VK14,fault=silence@TBL_RDVersion#3",))
    for line in process.stdout:
        if json.loads(line).get("phase") == "color tables":
            process.send_signal(signal.SIGINT)
            break
    last = json.loads(process.stdout.read().splitlines()[-1])
    expect_equal(process.wait(), 0, str(last))
    expect_equal(last["tablesWritten"], 2, str(last))


@case("a run that gives up on a printer that is not ready shows a remedy that works after its end")
def _(bench):
    result = bench.run("--json", *UPDATE, "--give-up", "8", printers=("VK14,restart=100,program=100,after-update=01100",))
    expect_equal(result.status, 8, result.out)
    last = result.lines[-1]["message"]
    expect("the printer reports: Paper End. Leave the printer switched on, correct that and start the update again."
           in last, last)
