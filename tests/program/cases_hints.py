"""Hints of zulctl, ambiguous names, and which text may reach a terminal or a script."""
import itertools
import json
import os
import signal

from bench import case, expect, expect_equal


@case("a model that is not admitted is reported with the option that admits it")
def _(bench):
    result = bench.run("list", printers=("VK26",))
    expect_equal(result.status, 0, "exit status of list")
    expect_equal(result.out, "No attached printer can be used.\n", "in place of the list")
    expect("VK26 at 1-1" in result.err and "--admit-product 0x8B01" in result.err, result.err)
    result = bench.run("info", printers=("VK26",))
    expect_equal(result.status, 4, "exit status of info")
    hint, problem = result.err.splitlines()
    expect("--admit-product 0x8B01" in hint, hint)
    expect_equal(problem, "zulctl: no attached printer can be used.", "the problem after the hint")


@case("with --json standard output contains one document, and hints are objects on standard error")
def _(bench):
    result = bench.run("--json", "list", printers=("VK14", "VK28"))
    expect_equal([row["model"] for row in result.json], ["VK14"], "the document")
    expect("--admit-product 0x9001" in json.loads(result.err)["note"], result.err)


@case("a serial number of two printers is refused with their keys, and a key selects one")
def _(bench):
    twins = ("VK14,serial=777,lifetime=1", "VK14,serial=777,lifetime=2")
    result = bench.run("info", "777", printers=twins)
    expect_equal(result.status, 2, "exit status")
    expect("several" in result.err and "2A71000301100000" in result.err and "2A71000301200000" in result.err, result.err)
    facts = bench.run("--json", "info", "2A71000301200000", printers=twins).json
    expect_equal(facts["deviceInfo"]["TBPrinterLifetimeCounter"], "2", "the second one")


@case("a serial number is found before a position of the same digits")
def _(bench):
    facts = bench.run("--json", "info", "2", printers=("VK14,serial=2,lifetime=11", "VK14,lifetime=22")).json
    expect_equal(facts["deviceInfo"]["TBPrinterLifetimeCounter"], "11", "the printer whose serial number is 2")


@case("update with both named printers and --all is wrong usage")
def _(bench):
    result = bench.run("update", "--agree", "--yes", "--all", "1")
    expect_equal(result.status, 2, "exit status")
    expect("--all" in result.err, result.err)


@case("update without any printer exits with 4")
def _(bench):
    for words in (("--all",), ()):
        result = bench.run("update", "--agree", "--yes", *words, printers=("VK26",))
        expect_equal(result.status, 4, f"exit status with {words}")


@case("a journal without virtual printers is wrong usage")
def _(bench):
    result = bench.run("--virtual-journal", bench.path("journal"), "hostinfo", printers=())
    expect_equal(result.status, 2, "exit status")
    expect("--virtual-journal needs --virtual" in result.err, result.err)
    expect(not os.path.exists(bench.path("journal")), "no file remains")


@case("a time-out of 0 or of many days is wrong usage, reported with the option and its range")
def _(bench):
    for option in ("--stall-timeout", "--give-up"):
        for value in ("0", "100000", "soon"):
            result = bench.run("update", option, value)
            expect_equal(result.status, 2, f"exit status of {option} {value}")
            expect(option in result.err and "86400" in result.err, result.err)


@case("an archive folder without any firmware file is not reported as verified")
def _(bench):
    with open(bench.path("digests.json"), "w", encoding="ascii") as file:
        file.write("{}")
    result = bench.run("archive", "verify", bench.home, printers=())
    expect_equal(result.status, 1, "exit status")
    expect("missing" in result.out and "matches" not in result.out, result.out)
    result = bench.run("archive", "verify", bench.path("nothing"), printers=())
    expect_equal(result.status, 1, "exit status without the folder")
    expect(bench.path("nothing") in result.err, result.err)


@case("an archive without its digest file exits with 7 and names the command that creates one")
def _(bench):
    os.mkdir(bench.path("empty"))
    result = bench.run("archive", "verify", bench.path("empty"), printers=())
    expect_equal(result.status, 7, "exit status")
    expect("zulctl archive digest" in result.err, result.err)


@case("a sample archive keeps its mark when its digests are written again")
def _(bench):
    with open(bench.path("digests.json"), "w", encoding="ascii") as file:
        file.write('{"sample": true}')
    with open(bench.path("VK14 01.61.fw"), "w", encoding="ascii") as file:
        file.write("S00600004844521B\n")
    document = bench.run("--json", "archive", "digest", bench.home, printers=()).json
    expect_equal(list(document["digests"]), ["VK14 01.61.fw"], "files")
    with open(bench.path("digests.json"), encoding="utf-8") as file:
        expect_equal(json.load(file).get("sample"), True, "the mark")


@case("text from a printer cannot control the terminal, and is unchanged in JSON")
def _(bench):
    evil = "VK14,serial=1\x1b]0;title\x07"
    result = bench.run("list", printers=(evil,))
    expect("\x1b" not in result.out and "\x07" not in result.out, repr(result.out))
    expect("1?]0;title?" in result.out, repr(result.out))
    rows = bench.run("--json", "list", printers=(evil,)).json
    expect_equal(rows[0]["printerSerialNumber"], "1\x1b]0;title\x07", "in JSON")


@case("with a log file, problems are still reported on standard error")
def _(bench):
    result = bench.run("--log", bench.path("log"), "info", "nobody")
    expect_equal(result.status, 4, "exit status")
    expect("no printer is called" in result.err, repr(result.err))


@case("without -v only results and problems are written")
def _(bench):
    for words in (("list",), ("info",), ("status",), ("reset-counter", "A", "1"), ("soft-reset", "1")):
        expect_equal(bench.run(*words).err, "", f"standard error of {words}")


@case("a printer that another program holds is listed as in use")
def _(bench):
    result = bench.run("--json", "list", printers=("VK14,fault=holder:60000",))
    expect_equal(result.json[0]["status"], "In use by other application", "status")
    result = bench.run("--json", "info", printers=("VK14,fault=holder:60000",))
    expect_equal(result.json["heldBy"], "another program", "holder")


@case("a printer without a 1284 ID is listed, and its update ends with a remedy")
def _(bench):
    printers = ("VK14,id1284=off",)
    expect_equal(bench.run("--json", "list", printers=printers).json[0]["model"], None, "model")
    result = bench.run("update", "--agree", "--yes", printers=printers)
    expect_equal(result.status, 1, "exit status")
    expect("power-cycle the printer and try again" in result.out, result.out)


@case("watch reports that a printer left and returned")
def _(bench):
    # Queried when the other program releases it, and unplugged during the queries.
    process = bench.start("--json", "watch", 
                          printers=("VK14,fault=holder:1000,fault=unplug@SERIAL_NUMBER:16,restart=500",))
    events = []
    for line in process.stdout:
        event = json.loads(line)
        if event["event"] in ("arrived", "departed"):
            events.append(event["event"])
        if len(events) == 3 and event.get("key") == "printerSerialNumber":
            break
    process.send_signal(signal.SIGTERM)
    process.communicate(timeout=20)
    # Queued work of the old object ends first, so the old object may leave the list after its successor's arrival.
    expect_equal((events[:1], sorted(events[1:])), (["arrived"], ["arrived", "departed"]), "events")
    expect_equal(process.returncode, 130, "exit status")


@case("watch shows which program uses a printer, and when it is released")
def _(bench):
    held = ("VK14,fault=holder#1:1000",)
    process = bench.start("--json", "watch", printers=held)
    events = map(json.loads, process.stdout)
    holders = [event["value"] for event in itertools.islice((one for one in events if one.get("key") == "holder"), 2)]
    expect_equal(holders, [{"kind": "program", "program": "another program", "pid": 0}, None], "the holders")
    status = next(one for one in events if one.get("key") == "printerStatus")
    expect_equal(status["value"], "Idle", "the status afterwards")
    process = bench.start("watch", printers=held)
    conditions = (line.rstrip() for line in process.stdout if "condition" in line)
    expect_equal(list(itertools.islice(conditions, 2)),
                 ["2A71000301100000  changed  condition = another program uses the printer",
                  "2A71000301100000  changed  condition = -"], "as text")


@case("watch shows that an update is to be completed")
def _(bench):
    update = bench.start("--json", "update", "--agree", "--yes", printers=("VK14,restart=60000",))
    next(line for line in update.stdout if "restarting into loader" in line)
    update.kill()
    update.wait()
    process = bench.start("--json", "watch")
    shown = next(event for event in map(json.loads, process.stdout) if event.get("key") == "interrupted")
    expect("update was interrupted at 20" in shown["value"], shown)
