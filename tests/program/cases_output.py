"""The output of zulctl: full disks, closed pipes, terminals, and files that must not be overwritten."""
import json
import os
import subprocess

from bench import FAST, UPDATE, case, expect, expect_equal

FULL = "cannot write to standard output (No space left on device)"
EVIL = "1\x1b]0;title\x07\u009b31m\u202eABC\u2066\u200f\x7f"


def run_into(bench, output, *arguments, printers=("VK14",)):
    """Runs with standard output to a file or a descriptor. Writing to a closed pipe is an error, not a signal."""
    return subprocess.run(bench.command(arguments, printers), stdin=subprocess.DEVNULL, stdout=output,
                          stderr=subprocess.PIPE, text=True, env=bench.env, timeout=60, restore_signals=False)


def run_into_closed_pipe(bench, *arguments, printers=("VK14",)):
    reader, writer = os.pipe()
    os.close(reader)
    try:
        return run_into(bench, writer, *arguments, printers=printers)
    finally:
        os.close(writer)


def run_without_stream(bench, redirection, *arguments):
    command = ["/bin/sh", "-c", f'exec "$@" {redirection}', "sh", *bench.command(arguments, ("VK14",))]
    return subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                          env=bench.env, timeout=60)


@case("results that cannot be written are a failure that is reported on standard error")
def _(bench):
    for words in (("list",), ("info",), ("status",), ("soft-reset", "1"), ("archive", "list"), ("archive", "path"),
                  ("hostinfo",), ("--help",), ("--version",), ("--virtual", "help")):
        for prefix in ((), ("--json",)):
            with open("/dev/full", "w", encoding="ascii") as full:
                result = run_into(bench, full, *prefix, *words)
            expect_equal(result.returncode, 1, f"exit status of {prefix + words}")
            expect_equal(result.stderr.count(FULL), 1, f"the reason, with {prefix + words}: {result.stderr}")
            if prefix:
                expect_equal(json.loads(result.stderr)["error"]["exit"], 1, "the status as JSON")


@case("a failed command keeps its own exit status if its output cannot be written")
def _(bench):
    with open("/dev/full", "w", encoding="ascii") as full:
        result = run_into(bench, full, "--json", "info", "nobody")
    expect_equal(result.returncode, 4, "exit status")
    expect(FULL in result.stderr, result.stderr)


@case("watch ends when its output cannot be written")
def _(bench):
    with open("/dev/full", "w", encoding="ascii") as full:
        result = run_into(bench, full, "watch")
    expect_equal(result.returncode, 1, "exit status")
    expect_equal(result.stderr.count(FULL), 1, result.stderr)


@case("a closed pipe on standard output is neither a failure nor reported")
def _(bench):
    for words in (("list",), ("--json", "list"), ("info",), ("archive", "list"), ("watch",), ("--json", "watch")):
        result = run_into_closed_pipe(bench, *words)
        expect_equal((result.returncode, result.stderr), (0, ""), f"exit status and standard error of {words}")


@case("an update continues to its end after the reader of its output has gone")
def _(bench):
    journal = bench.path("journal")
    result = run_into_closed_pipe(bench, "--virtual-journal", journal, *UPDATE)
    expect_equal((result.returncode, result.stderr), (0, ""), "exit status and standard error")
    with open(journal, encoding="utf-8") as lines:
        commands = [json.loads(line).get("command") for line in lines]
    expect_equal(commands.count("TBL_WTCTRLD_UPDATE_CW"), 2, "tables written")


@case("with standard output closed from the start no text is written into another file")
def _(bench):
    result = run_without_stream(bench, ">&-", "--log", bench.path("log"), "list")
    expect_equal(result.returncode, 1, "exit status")
    expect("cannot write to standard output (Bad file descriptor)" in result.stderr, result.stderr)
    for name in os.listdir(bench.home):
        path = bench.path(name)
        if os.path.isfile(path):
            with open(path, encoding="utf-8") as file:
                expect("MANUFACTURER" not in file.read(), f"the list is in {name}")


@case("with standard error closed from the start problems are not written into another file")
def _(bench):
    result = run_without_stream(bench, "2>&-", "--log", bench.path("log"), "info", "nobody")
    expect_equal(result.returncode, 4, "exit status")
    with open(bench.path("log"), encoding="utf-8") as file:
        expect("nobody" not in file.read(), "the problem is in the log")


@case("with -v no control character and no direction mark of a printer reaches the terminal")
def _(bench):
    for words in (("list",), ("info",), ("--json", "info")):
        result = bench.run("-v", *words, printers=(f"VK14,serial={EVIL}",))
        expect_equal(result.status, 0, f"exit status of {words}")
        expect("1?]0;title??31m?ABC???" in result.err, f"the system log shows it: {result.err!r}")
        for character in set(EVIL) - set("1]0;title31mABC"):
            expect(character not in result.out + result.err, f"{character!r} after {words}")
    expect_equal(result.json["printerSerialNumber"], EVIL, "in JSON it is as the printer has it")


@case("text from a printer remains in its line of the table")
def _(bench):
    result = bench.run("list", printers=("VK14,serial=1\nzulctl: all is well",))
    expect_equal(len(result.out.splitlines()), 2, result.out)


@case("listing printers again does not change the settings file")
def _(bench):
    settings = bench.path("zul-printer-utility/defaults.json")
    bench.run("list")
    before = os.stat(settings)
    bench.run("list")
    bench.run("info")
    after = os.stat(settings)
    expect_equal((after.st_ino, after.st_mtime_ns), (before.st_ino, before.st_mtime_ns), "the file")


@case("a path that begins with ~ is below the home folder, also after an equals sign")
def _(bench):
    os.mkdir(bench.path("files"))
    result = bench.run("--log=~/a/log", "--virtual-journal=~/journal", "--firmware-archive=~/files", "archive", "path")
    expect_equal(result.out, bench.path("files") + "\n", "the archive")
    bench.run("--log=~/a/log", "--virtual-journal=~/journal", "list")
    expect(os.path.getsize(bench.path("a/log")) > 0 and os.path.getsize(bench.path("journal")) > 0, "both are written")


@case("a log that cannot be written ends the program, and its name is reported")
def _(bench):
    os.mkdir(bench.path("folder"))
    result = bench.run("--log", bench.path("folder"), "list")
    expect_equal(result.status, 1, "exit status")
    expect(bench.path("folder") in result.err and result.out == "", result.err)


@case("a full log is reported once, and the command continues")
def _(bench):
    result = bench.run("--log", "/dev/full", "list")
    expect_equal(result.status, 0, "exit status")
    expect("VK14" in result.out, result.out)
    expect_equal(result.err, "ERROR: cannot write the log /dev/full (No space left on device); lines are lost\n", "told")
