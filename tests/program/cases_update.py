"""The update as a process: the commands to the printer, the text for the operator, and every kind of end."""
import json
import os
import signal
import tempfile

from bench import UPDATE, case, expect, expect_equal

FACTS = ["STATUS", "INFO  FVER", "MNT_RDCOUNTER_LIFE", "TBL_RDVersion", "MNT_RDCTRLD_CHKSUM", "INFO  SERIAL_NUMBER"]
TABLES = ["TBL_CL", "TBL_RDVersion", "MNT_RDCTRLD_CHKSUM"] + 2 * [
    "TBL_WTVersion", "TBL_WTCTRLD_UPDATE_CW", "TBL_RDVersion", "MNT_RDCTRLD_CHKSUM"]


@case("an update sends the whole sequence of commands and reports both versions")
def _(bench):
    file = bench.path("journal")
    result = bench.run("--virtual-journal", file, *UPDATE)
    expect_equal(result.status, 0, "exit status")
    with open(file, encoding="utf-8") as lines:
        commands = [entry["command"] for entry in map(json.loads, lines) if entry["event"] == "command"]
    wanted = FACTS + ["STATUS", "STATUS", "FW_UPDFLASH_REWRITE", "INFO  FVER", "STATUS", "FW_UPDFLASH_PROGRAM"]
    expect_equal(commands[:len(wanted)], wanted, "up to the image")
    # After the image one more query may still reach the printer before it restarts.
    rest = commands[len(wanted):]
    if rest[0] == "STATUS":
        rest = rest[1:]
    expect_equal(rest, ["INFO  FVER", "STATUS"] + TABLES + ["STATUS"] + FACTS, "after the image")
    for wanted in ("Firmware version updated from VK14 01.60 to VK14 01.61", "in the loader (",
                   "updated from VK14 01.60 to VK14 01.61, 2 color tables written"):
        expect(wanted in result.out, f"{wanted!r} is shown")


@case("with --json an update is one object per line, and the last one is its result")
def _(bench):
    result = bench.run("--json", *UPDATE)
    lines = result.lines
    expect_equal(result.status, 0, "exit status")
    expect_equal((lines[-1]["event"], lines[-1]["exit"]), ("result", 0), "the last line")
    phases = []
    for line in lines:
        if line["event"] == "phase" and line["phase"] not in phases[-1:]:
            phases.append(line["phase"])
    # A very short phase may not be reported; no phase is reported out of order.
    order = iter(["checking", "entering loader", "restarting into loader", "in the loader", "writing", "programming",
                  "restarting", "restarted", "color tables"])
    expect(all(phase in order for phase in phases), f"phases in their order: {phases}")
    expect("in the loader" in phases and "writing" in phases, f"the long ones are reported: {phases}")
    expect_equal(result.err, "", "standard error")


for model, product, tables in (("VK18", "4", 2), ("VK-RZ7", "5", 2), ("VK18DUP", "8", 2), ("VK26", "0x8B01", 3),
                               ("VK28", "0x9001", 8)):
    @case(f"an admitted {model} is updated with its {tables} tables")
    def _(bench, model=model, product=product, tables=tables):
        result = bench.run("--admit-product", product, *UPDATE, printers=(model,))
        expect_equal(result.status, 0, "exit status")
        expect(f"{tables} color tables written" in result.out, result.out)


@case("two printers are updated in parallel with --all")
def _(bench):
    result = bench.run("--json", *UPDATE, "--all", printers=("VK14", "VK14"))
    ends = [line for line in result.lines if line["event"] == "result"]
    expect_equal(result.status, 0, "exit status")
    expect_equal(sorted(line["printer"] for line in ends), ["2A71000301100000", "2A71000301200000"], "printers")
    expect(max(line["elapsed"] for line in ends) < 1.8 * min(line["elapsed"] for line in ends), "at the same time")


@case("with several printers the status is that of the first one that failed")
def _(bench):
    result = bench.run(*UPDATE, "--all", printers=("VK14", "VK14,status=01000", "VK14,firmware=VK14 01.70"))
    expect_equal(result.status, 6, "exit status")
    expect("2 color tables written" in result.out, "the first one is updated nevertheless")


@case("without a terminal and without options for the answers update refuses and lists the missing ones")
def _(bench):
    for words, missing in ((("update",), "--agree and --yes"), (("update", "--agree"), "--yes"),
                           (("update", "--yes"), "--agree")):
        result = bench.run(*words)
        expect_equal(result.status, 2, f"exit status of {words}")
        expect(f"missing: {missing}." in result.err, result.err)


@case("a newer installed version exits with 3, or with 0 if that is requested")
def _(bench):
    result = bench.run(*UPDATE, printers=("VK14,firmware=VK14 01.70",))
    expect_equal(result.status, 3, "exit status")
    expect("This printer has firmware version 1.70 installed." in result.out, result.out)
    result = bench.run(*UPDATE, "--not-needed-ok", printers=("VK14,firmware=VK14 01.70",))
    expect_equal(result.status, 0, "exit status with --not-needed-ok")


@case("a printer that is up to date is skipped with status 0, and flashed with --reinstall")
def _(bench):
    printers = ("VK14,firmware=VK14 01.61,tables=0161",)

    def commands(*words):
        file = os.path.join(tempfile.mkdtemp(dir=bench.home), "journal")
        result = bench.run("--virtual-journal", file, *UPDATE, *words, printers=printers)
        expect_equal(result.status, 0, f"exit status with {words}: {result.out}")
        with open(file, encoding="utf-8") as lines:
            return result, [entry["command"] for entry in map(json.loads, lines) if entry["event"] == "command"]

    result, sent = commands()
    expect("up to date" in result.out.splitlines()[-1], result.out)
    expect(not any(command.startswith(("FW_UPDFLASH", "TBL_WT")) for command in sent), f"no data is written: {sent}")
    result, sent = commands("--reinstall")
    expect("updated from VK14 01.61 to VK14 01.61, 2 color tables written" in result.out.splitlines()[-1], result.out)
    expect_equal(sent.count("FW_UPDFLASH_PROGRAM"), 1, "images")


@case("a printer with two interfaces gets one image with --all, also with a time limit")
def _(bench):
    file = bench.path("journal")
    result = bench.run("--json", "--virtual-journal", file, *UPDATE, "--all", "--give-up", "30",
                       printers=("VK14,interfaces=2",))
    expect_equal(result.status, 0, result.out)
    expect_equal([line["exit"] for line in result.lines if line["event"] == "result"], [0], "one update")
    with open(file, encoding="utf-8") as lines:
        sent = [entry["command"] for entry in map(json.loads, lines) if entry["event"] == "command"]
    for command in ("FW_UPDFLASH_REWRITE", "FW_UPDFLASH_PROGRAM"):
        expect_equal(sent.count(command), 1, command)


@case("a printer that is not ready exits with 6 and reports its problem")
def _(bench):
    result = bench.run(*UPDATE, printers=("VK14,status=01000",))
    expect_equal(result.status, 6, "exit status")
    expect("Please correct the following issue: Cover Open" in result.out, result.out)


@case("a printer that another program holds exits with 5")
def _(bench):
    result = bench.run(*UPDATE, printers=("VK14,fault=holder#2:60000",))
    expect_equal(result.status, 5, "exit status")
    expect("Another application is using the printer." in result.out, result.out)


def expect_refused(bench, folder, *texts, printers=("VK14",)):
    """An update with these files is refused before its first question, with these texts; no command is sent."""
    file = os.path.join(tempfile.mkdtemp(dir=bench.home), "journal")
    result = bench.run("--firmware-archive", folder, "--virtual-journal", file, *UPDATE, printers=printers)
    expect_equal(result.status, 7, "exit status")
    expect("Attention" not in result.out, "no question")
    for text in ("not updated, nothing was sent: ", *texts):
        expect(text in result.out.splitlines()[-1], f"{text!r} is in the result: {result.out}")
    with open(file, encoding="utf-8") as lines:
        commands = [entry["command"] for entry in map(json.loads, lines) if entry["event"] == "command"]
    expect_equal(commands, FACTS * len(printers), "only the questions of every start")
    return result


@case("damaged firmware files are reported before the first question, with status 7, and no command is sent")
def _(bench):
    folder = bench.copied_archive()
    with open(os.path.join(folder, "VK14_600_0161.cwd"), "r+b") as table:
        table.write(b"X")
    expect_refused(bench, folder, f"VK14_600_0161.cwd in {folder} is damaged",
                   f"run: zulctl archive verify {folder} (")


@case("a missing color table is reported before the first question, with its remedy")
def _(bench):
    folder = bench.copied_archive()
    os.remove(os.path.join(folder, "VK14_300_0161.cwd"))
    expect_refused(bench, folder, f"VK14_300_0161.cwd is missing in {folder}. Copy it from the vendor's download into "
                                  f"{folder}, then run: zulctl archive verify {folder} (")
    result = bench.run("--json", "--firmware-archive", folder, *UPDATE)
    last = json.loads(result.out.splitlines()[-1])
    expect_equal((last["exit"], last["result"]), (7, "bad files"), str(last))


@case("a missing folder and a missing digest file are reported before the first question")
def _(bench):
    expect_refused(bench, bench.path("none"), f"The folder {bench.path('none')} with the firmware files is missing",
                   "--firmware-archive DIR")
    folder = bench.copied_archive()
    os.remove(os.path.join(folder, "digests.json"))
    expect_refused(bench, folder, f"digests.json is missing in {folder}", f"run: zulctl archive digest {folder} (")


@case("a missing file is reported for each printer that needs it, and other models' damaged files prevent no update")
def _(bench):
    folder = bench.copied_archive()
    with open(os.path.join(folder, "VK28 01.05.fw"), "r+b") as firmware:
        firmware.write(b"X")
    expect_equal(bench.run("--firmware-archive", folder, *UPDATE).status, 0, "a VK14 beside damaged files of a VK28")
    os.remove(os.path.join(folder, "VK14_300_0161.cwd"))
    result = bench.run("--firmware-archive", folder, *UPDATE, "--all", printers=("VK14", "VK14"))
    expect_equal((result.status, result.out.count("is missing")), (7, 2), result.out)


@case("a printer that never returns is reported, with advice, and exits with 8")
def _(bench):
    result = bench.run(*UPDATE, "--stall-timeout", "1", "--give-up", "3",
                       printers=("VK14,fault=never-back@FLASH_REWRITE",))
    expect_equal(result.status, 8, "exit status")
    for wanted in ("restarting into the loader (", "Leave it switched on", "Still watching"):
        expect(wanted in result.out, f"{wanted!r} is shown")


@case("a printer that returns after the advice is updated")
def _(bench):
    process = bench.start("--json", *UPDATE, "--stall-timeout", "1", printers=("VK14,restart=2500",))
    out, _ = process.communicate(timeout=60)
    lines = [json.loads(line) for line in out.splitlines()]
    expect("stalled" in [line["event"] for line in lines], "advice was given")
    expect_equal(process.returncode, 0, "exit status")


@case("a printer that is back in its loader after the image ends the update at once, with its remedy")
def _(bench):
    result = bench.run(*UPDATE, printers=("VK14,fault=stay-in-loader@FLASH_PROGRAM",))
    expect_equal(result.status, 1, "exit status")
    last = result.out.splitlines()[-1]
    expect("still in firmware update mode" in last and "start the update again: that completes it" in last, last)


@case("a printer found in its loader is updated from there")
def _(bench):
    result = bench.run(*UPDATE, printers=("VK14,mode=loader",))
    expect_equal(result.status, 0, "exit status")
    expect("to VK14 01.61, 2 color tables written" in result.out, result.out)


@case("a lost table makes the update incomplete, whatever was reported")
def _(bench):
    result = bench.run(*UPDATE, printers=("VK14,fault=stall@UPDATE_CW#2",))
    expect_equal(result.status, 1, "exit status")
    expect("Firmware update was successful!" in result.out, "the report")
    expect("only 1 of 2 color tables were sent" in result.out.splitlines()[-1], "the device info")
    expect(result.out.index("The update is not complete.") < result.out.index("Firmware update was successful!"),
           "the device info is shown before the report")


@case("an interrupt during an update warns once, and the second one ends it when the whole image is sent")
def _(bench):
    file = bench.path("journal")
    process = bench.start("--json", "--virtual-journal", file, *UPDATE, printers=("VK14,restart=1000,program=30000",))
    for line in process.stdout:
        if json.loads(line).get("phase") == "restarting into loader":
            break
    process.send_signal(signal.SIGINT)
    warning = process.stderr.readline()
    expect("Interrupt once more" in warning, warning)
    process.send_signal(signal.SIGINT)
    out, _ = process.communicate(timeout=60)
    expect_equal(process.returncode, 130, "exit status")
    last = json.loads(out.splitlines()[-1])
    expect_equal(last["result"], "stopped", "result")
    expect("The printer has the firmware" in last["message"], last["message"])
    with open(file, encoding="utf-8") as lines:
        commands = [entry["command"] for entry in map(json.loads, lines) if entry["event"] == "command"]
    expect_equal(commands.count("FW_UPDFLASH_PROGRAM"), 1, "the image")
