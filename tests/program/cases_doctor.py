"""The diagnosis as shown to people and scripts."""
import os

from bench import case, expect, expect_equal
from cases_history import EMBEDDED, History

NAMES = ["udev-rule", "node-rights", "holder", "print-queue", "usblp", "ipp-usb", "firmware-archive", "loader",
         "interrupted-update", "ready", "state-folder", "login-service"]


def examine(bench, *arguments, printers=("VK14",)):
    result = bench.run("--json", *arguments, "doctor", printers=printers)
    expect_equal(result.err, "", "standard error")
    problems = {check["check"] for check in result.json if check["state"] == "problem"}
    expect_equal(result.status, 1 if problems else 0, f"exit status with {problems}")
    return {check["check"]: check for check in result.json}, problems


def quiet(bench):
    """Makes the run independent of this machine's message bus: there is none."""
    bench.env["DBUS_SYSTEM_BUS_ADDRESS"] = "unix:path=" + bench.path("no-bus")


@case("the diagnosis of a printer without problems exits with 0 and shows every check")
def _(bench):
    quiet(bench)
    checks, problems = examine(bench)
    expect_equal((list(checks), problems), (NAMES, set()), "the list")
    expect_equal({name for name, check in checks.items() if check["state"] == "ok"},
                 {"holder", "firmware-archive", "loader", "interrupted-update", "ready", "state-folder"}, "what is fine")
    expect_equal(checks["login-service"]["state"], "warning", "no message bus")
    expect(checks["ready"]["printer"] is not None and checks["udev-rule"]["printer"] is None, "one is of a printer")
    result = bench.run("doctor")
    expect_equal((result.status, result.err), (0, ""), "as text")
    lines = result.out.splitlines()
    expect_equal([line.split()[1] for line in lines if not line.startswith(" ")], NAMES, "one line per check")
    expect(lines[-2].startswith("warning  login-service"), lines[-2])
    expect_equal(lines[-1].strip(), "-> sudo systemctl start dbus systemd-logind", "the command below it")
    expect(not os.path.exists(bench.path("state")), "no folder was created")


@case("the diagnosis detects a printer that is not ready, damaged files and an interrupted update, and exits with 1")
def _(bench):
    quiet(bench)
    folder = bench.copied_archive()
    with open(os.path.join(folder, "VK14 01.61.fw"), "ab") as file:
        file.write(b"X")
    history = History(bench, EMBEDDED)
    identifier = history.begin("2A71000301100000", serial="000001")
    history.change("INSERT INTO phases (update_id, name, begun) VALUES (?, 'writing', 1)", identifier)
    history.end()
    checks, problems = examine(bench, "--firmware-archive", folder, printers=("VK14,status=01000",))
    expect_equal(problems, {"firmware-archive", "interrupted-update", "ready"}, "the problems")
    expect("Cover Open" in checks["ready"]["text"], checks["ready"]["text"])
    expect("VK14 01.61.fw" in checks["firmware-archive"]["text"], checks["firmware-archive"]["text"])
    update = f"zulctl --firmware-archive {folder} update 000001"
    expect_equal(checks["interrupted-update"]["remedy"], update, "what completes it")
    result = bench.run("--firmware-archive", folder, "doctor", printers=("VK14,status=01000",))
    expect_equal(result.status, 1, "as text")
    expect(f"{' ' * 29}-> {update}\n" in result.out, result.out)


@case("the diagnosis detects a printer in its loader and one that another program holds")
def _(bench):
    quiet(bench)
    result = bench.run("--json", "doctor", printers=("VK14,mode=loader", "VK14,fault=holder#1:60000"))
    expect_equal(result.status, 1, "exit status")
    found = {(check["check"], check["printer"]) for check in result.json if check["state"] == "problem"}
    keys = sorted({check["printer"] for check in result.json if check["printer"]})
    expect_equal(len(keys), 2, f"printers in {result.out}")
    expect_equal(found, {("loader", keys[0]), ("holder", keys[1])}, "the problems")


@case("a state folder that is a file is detected before an update needs it")
def _(bench):
    quiet(bench)
    with open(bench.path("state"), "w", encoding="ascii"):
        pass
    checks, problems = examine(bench)
    expect("state-folder" in problems, f"{problems}")
    expect(bench.path("state") in checks["state-folder"]["text"], checks["state-folder"]["text"])


@case("the diagnosis of the machine runs without a printer")
def _(bench):
    quiet(bench)
    checks, _ = examine(bench, printers=())
    expect_equal(list(checks), NAMES, "the list")
