"""The history of updates as shown to people and scripts."""
import datetime
import json
import os
import signal
import sqlite3
import subprocess

from bench import case, expect, expect_equal

EMBEDDED = ("zul-printer-utility", "embedded")
REAL = ("zul-printer-utility",)


def moment(text):
    return int(datetime.datetime.fromisoformat(text).replace(tzinfo=datetime.timezone.utc).timestamp() * 1000)


class History:
    """A history in the format of the programs, with records that the case adds."""

    def __init__(self, bench, place=REAL):
        self.folder = os.path.join(bench.path("state"), *place)
        self.file = os.path.join(self.folder, "history.sqlite")
        self.writer = subprocess.Popen([bench.history_writer, self.folder], stdin=subprocess.PIPE,
                                       stdout=subprocess.PIPE, text=True)

    def ask(self, line):
        self.writer.stdin.write(line + "\n")
        self.writer.stdin.flush()
        return self.writer.stdout.readline().strip()

    def begin(self, key, **columns):
        identifier = int(self.ask(f"begin {key}"))
        with sqlite3.connect(self.file) as database:
            for column, value in columns.items():
                database.execute(f"UPDATE updates SET {column} = ? WHERE id = ?", (value, identifier))
        return identifier

    def change(self, statement, *values):
        with sqlite3.connect(self.file) as database:
            database.execute(statement, values)

    def end(self):
        self.writer.send_signal(signal.SIGKILL)
        self.writer.wait()
        self.writer.stdin.close()
        self.writer.stdout.close()


def history_of_three(bench):
    """One successful update, one failed and corrected, and one without an end."""
    history = History(bench)
    first = history.begin("2A71-8B01-01100000", begun=moment("2026-11-01T09:00:00"), place="1-1", serial="000001",
                          version_before="VK14 01.60", version_offered="VK14 01.61", program="zulctl", user_name="kim",
                          archive_folder="/srv/firmware")
    history.change("INSERT INTO digests VALUES (?, 'VK14 01.61.fw', 'abcdef00')", first)
    history.change("INSERT INTO phases (update_id, name, begun, duration) VALUES (?, 'writing', ?, 8125)", first,
                   moment("2026-11-01T09:00:20"))
    history.change("INSERT INTO verdicts (update_id, given, verdict, is_success, reason, version_after, tables_written,"
                   " tables, retries) VALUES (?, ?, 'succeeded', 1, '', 'VK14 01.61', 2, 2, 0)", first,
                   moment("2026-11-01T09:01:35"))
    history.change("UPDATE updates SET is_success = 1 WHERE id = ?", first)
    second = history.begin("2A71-8B01-01400000", begun=moment("2026-11-02T10:00:00"), place="1-4", serial="ab0002",
                           version_before="VK14 01.60", version_offered="VK14 01.61")
    for given, verdict, success, after, reason in (
            ("2026-11-02T10:00:30", "not back", 0, None, "it did not come back"),
            ("2026-11-02T12:00:00", "tables missing", 0, "VK14 01.61", "1 of 2 color tables was written")):
        history.change("INSERT INTO verdicts (update_id, given, verdict, is_success, reason, version_after,"
                       " tables_written, tables, retries) VALUES (?, ?, ?, ?, ?, ?, 1, 2, 3)", second, moment(given),
                       verdict, success, reason, after)
    history.change("UPDATE updates SET is_success = 0 WHERE id = ?", second)
    history.begin("2A71-8B01-01700000", begun=moment("2026-11-03T11:00:00"), place="1-7", serial="")
    return history


@case("the history shows past updates, newest last, and how an interrupted one is completed")
def _(bench):
    bench.env["TZ"] = "XST-2"
    history = history_of_three(bench)
    lines = bench.run("history", printers=()).out.splitlines()
    expect(lines[3].endswith("under way"), f"its program is running: {lines[3]}")
    history.end()
    result = bench.run("history", printers=())
    expect_equal((result.status, result.err), (0, ""), "status")
    lines = [line.split("  ") for line in result.out.splitlines()]
    cells = [[cell.strip() for cell in line if cell.strip()] for line in lines]
    expect_equal(cells[0], ["TIME", "PRINTER", "LOCATION", "MODEL", "FROM", "TO", "DURATION", "RESULT", "REASON"], "head")
    expect_equal(cells[1], ["2026-11-01 11:00:00", "000001", "1-1", "VK14", "VK14 01.60", "VK14 01.61", "1 min 35 s",
                            "succeeded"], "the first")
    expect_equal(cells[2], ["2026-11-02 12:00:00", "ab0002", "1-4", "VK14", "VK14 01.60", "VK14 01.61", "30.0 s",
                            "tables missing (first judged: not back)", "1 of 2 color tables was written"], "the second")
    expect_equal(cells[3], ["2026-11-03 13:00:00", "2A71-8B01-01700000", "1-7", "VK14", "-", "-", "-", "interrupted"],
                 "the third")
    expect_equal(result.out.splitlines()[4:],
                 ["The update of 2A71-8B01-01700000 of 2026-11-03 13:00:00 was interrupted. "
                  "Start it again to complete it: zulctl update 2A71-8B01-01700000"], "what to do")


@case("the history as JSON contains every field, with times in UTC")
def _(bench):
    bench.env["TZ"] = "XST-2"
    history = history_of_three(bench)
    writer = history.writer.pid
    history.end()
    first, second, third = bench.run("--json", "history", printers=()).json
    process = first.pop("process")
    expect_equal((process["pid"], len(process["boot"]) > 10, process["begun"] > 0), (writer, True, True), "the process")
    expect_equal(first, {
        "id": 1, "begun": "2026-11-01T09:00:00.000Z", "printer": "2A71-8B01-01100000", "location": "1-1",
        "model": "VK14", "printerSerialNumber": "000001", "program": "zulctl", "programVersion": "", "user": "kim",
        "firmwareArchive": "/srv/firmware", "digests": {"VK14 01.61.fw": "abcdef00"}, "firmwareBefore": "VK14 01.60",
        "firmwareOffered": "VK14 01.61", "firmwareAfter": "VK14 01.61", "course": "ended", "result": "succeeded",
        "elapsed": 95.0, "closedBy": None,
        "phases": [{"phase": "writing", "begun": "2026-11-01T09:00:20.000Z", "elapsed": 8.125}],
        "verdicts": [{"given": "2026-11-01T09:01:35.000Z", "result": "succeeded", "success": True, "reason": "",
                      "version": "VK14 01.61", "tablesWritten": 2, "tables": 2, "retries": 0}]}, "the first")
    expect_equal([verdict["result"] for verdict in second["verdicts"]], ["not back", "tables missing"], "corrections")
    expect_equal((second["result"], second["elapsed"]), ("tables missing", 30.0), "the last one holds")
    expect_equal((third["course"], third["result"], third["elapsed"], third["firmwareAfter"], third["verdicts"]),
                 ("interrupted", "interrupted", None, None, []), "the third")


@case("the history of one printer is found by its serial number, its key or its location, in any case")
def _(bench):
    history_of_three(bench).end()
    for name, wanted in (("000001", [1]), ("AB0002", [2]), ("2a71-8b01-01700000", [3]), ("1-4", [2]), ("1", []),
                         ("", [1, 2, 3])):
        found = bench.run("--json", "history", "--printer", name, printers=()).json
        expect_equal([record["id"] for record in found], wanted, f"records of {name!r}")
    result = bench.run("history", "--printer", "nobody", printers=())
    expect_equal((result.status, result.out), (0, "No recorded update fits.\n"), "none")


@case("the history since a time, and for an age")
def _(bench):
    bench.env["TZ"] = "XST-2"
    history = history_of_three(bench)
    history.begin("2A71-8B01-01900000", begun=int(datetime.datetime.now().timestamp() * 1000) - 3 * 86400 * 1000)
    history.end()
    for since, wanted in (("2026-11-02", [2, 3]), ("2026-11-02T12:00", [2, 3]), ("2026-11-02 12:00:01", [3]),
                          ("2026-11-02T10:00:00Z", [2, 3]), ("2000-01-01", [1, 2, 3])):
        found = bench.run("--json", "history", "--since", since, printers=()).json
        expect_equal([record["id"] for record in found if record["id"] != 4], wanted, f"records since {since}")
    for since, is_found in (("4d", True), ("1w", True), ("71h", False), ("30m", False)):
        found = bench.run("--json", "history", "--since", since, printers=()).json
        expect_equal(4 in [record["id"] for record in found], is_found, f"the one of three days ago, {since}")


@case("a wrong --since exits with 2, with the invalid text and a pointer to the help")
def _(bench):
    for text in ("yesterday", "7", "2026-13-01", "2026-11-01T25:00", "-3d"):
        result = bench.run("history", f"--since={text}", printers=())
        expect_equal((result.status, result.out), (2, ""), f"exit status of {text!r}")
        expect(f"--since: {text} is not a time. Try zulctl history --help." in result.err, result.err)
    expect_equal(bench.run("--json", "history", "--since", "soon", printers=()).json["error"]["exit"], 2, "as JSON")


@case("without any update the history says so and creates no file")
def _(bench):
    result = bench.run("history", printers=())
    file = os.path.join(bench.path("state"), "zul-printer-utility", "history.sqlite")
    expect_equal((result.status, result.out, result.err), (0, f"No update has been recorded yet in {file}.\n", ""), "none")
    expect_equal(bench.run("--json", "history", printers=()).json, [], "as JSON")
    expect(not os.path.exists(bench.path("state")), "no folder was created")


@case("embedded printers have a separate history")
def _(bench):
    history_of_three(bench).end()
    embedded = History(bench, EMBEDDED)
    embedded.begin("tried-out")
    embedded.end()
    expect_equal([record["printer"] for record in bench.run("--json", "history").json], ["tried-out"], "embedded ones")
    expect_equal(len(bench.run("--json", "history", printers=()).json), 3, "real ones")


@case("a damaged history is reported and renamed, and a new one begins")
def _(bench):
    history = history_of_three(bench)
    history.end()
    with open(history.file, "r+b") as file:
        file.write(b"no database at all" * 100)
    result = bench.run("history", printers=())
    expect_equal((result.status, result.out), (1, ""), "status")
    expect(f"{history.file} is damaged. It was kept as" in result.err, result.err)
    kept = [name for name in os.listdir(history.folder) if "damaged" in name]
    expect_equal(len(kept), 1, f"the damaged file among {os.listdir(history.folder)}")
    expect_equal(bench.run("history", printers=()).status, 0, "the next one")


@case("a history that cannot be read is a failure with the file's name and a remedy")
def _(bench):
    os.makedirs(os.path.join(bench.path("state"), "zul-printer-utility", "history.sqlite"))
    result = bench.run("history", printers=())
    expect_equal((result.status, result.out), (1, ""), "status")
    expect("history.sqlite cannot be read" in result.err and "Check its rights" in result.err, result.err)
    expect_equal(bench.run("--json", "history", printers=()).json["error"]["exit"], 1, "as JSON")


@case("a killed update is shown by list and info, and the next update completes it")
def _(bench):
    process = bench.start("--json", "update", "--agree", "--yes", printers=("VK14,restart=60000",))
    for line in process.stdout:
        if json.loads(line).get("phase") == "restarting into loader":
            break
    process.kill()
    process.communicate()
    shown = bench.run("list").out
    expect("update was interrupted at 20" in shown and "start it to complete" in shown, shown)
    expect("update was interrupted" in bench.run("--json", "list").json[0]["interrupted"], "in JSON")
    expect("update was interrupted" in bench.run("--json", "info").json["interrupted"], "in info")
    expect_equal(bench.run("update", "--agree", "--yes").status, 0, "the update that completes it")
    expect_equal(bench.run("--json", "list").json[0]["interrupted"], None, "afterwards")


@case("a dismissed update is no longer offered for completion, other printers' updates still are")
def _(bench):
    history = history_of_three(bench)
    unread = history.begin("2A71-8B01-01800000", serial="ab0003")
    history.change("INSERT INTO phases (update_id, name, begun) SELECT id, 'writing', 1 FROM updates WHERE id > 1")
    history.end()
    dismissed = bench.run("--json", "history", "--printer", "AB0002", "--dismiss", printers=())
    expect_equal((dismissed.status, dismissed.json), (0, {"dismissed": 1}), "the update that ended without success")
    by_place = bench.run("history", "--printer", "1-7", "--dismiss", printers=())
    expect_equal((by_place.status, by_place.out),
                 (0, "Dismissed updates of 1-7: 1. They need not be completed any more.\n"), "the interrupted update")
    again = bench.run("history", "--printer", "1-7", "--dismiss", printers=())
    expect_equal((again.status, again.out), (0, "No update of 1-7 waits to be completed.\n"), "once more")
    left = bench.run("--json", "history", printers=()).json
    expect_equal([(one["course"], one["closedBy"]) for one in left],
                 [("ended", None), ("ended", 0), ("interrupted, dismissed", 0), ("interrupted", None)], "the records")
    expect_equal(left[-1]["id"], unread, "the one that is left")


@case("--dismiss without a printer exits with 2")
def _(bench):
    result = bench.run("history", "--dismiss", printers=())
    expect_equal(result.status, 2, "exit status")
    expect("--printer" in result.err, result.err)
