"""Commands that need no printer, and wrong usage."""
import json
import os
import shutil

from bench import case, expect, expect_equal


@case("wrong usage exits with 2 and reports the problem and where to find help")
def _(bench):
    for words in (["frobnicate"], ["list", "--no-such-option"], ["soft-reset"], ["reset-counter", "C", "1"],
                  ["--admit-product", "horse", "list"], ["update", "--give-up", "-1"], []):
        result = bench.run(*words, printers=())
        expect_equal(result.status, 2, f"exit status of {words}")
        expect("--help" in result.err and result.out == "", f"help is named for {words}: {result.err}")


@case("a wrong virtual printer exits with 2 and lists the valid values")
def _(bench):
    result = bench.run("list", printers=("VK99",))
    expect_equal(result.status, 2, "exit status")
    expect("VK99" in result.err and "VK18DUP" in result.err, "the models are named")
    result = bench.run("list", printers=("VK14,colour=red",))
    expect_equal(result.status, 2, "exit status")
    expect("colour" in result.err and "lifetime" in result.err, "the settings are named")


@case("wrong usage with --json is an error object")
def _(bench):
    result = bench.run("--json", "frobnicate", printers=())
    expect_equal(result.json["error"]["exit"], 2, "the object's exit status")


@case("help, version and the help of virtual printers go to standard output with status 0")
def _(bench):
    for words, wanted in ((["--help"], "reset-counter"), (["update", "--help"], "--stall-timeout"),
                          (["--version"], "zulctl 2.06")):
        result = bench.run(*words, printers=())
        expect_equal(result.status, 0, f"exit status of {words}")
        expect(wanted in result.out, f"{wanted} is shown")
    result = bench.run(printers=("help",))
    expect(result.status == 0 and "stay-in-loader" in result.out, "the faults are listed")


@case("settings are written, read and deleted")
def _(bench):
    expect_equal(bench.run("defaults", "write", "installOlderFirmwareVersion", "true", printers=()).status, 0, "write")
    expect_equal(bench.run("defaults", "read", "installOlderFirmwareVersion", printers=()).out, "true\n", "read")
    expect("installOlderFirmwareVersion = true" in bench.run("defaults", "read", printers=()).out, "all are read")
    expect_equal(bench.run("--json", "defaults", "read", printers=()).json["installOlderFirmwareVersion"], "true", "json")
    expect_equal(bench.run("defaults", "delete", "installOlderFirmwareVersion", printers=()).status, 0, "delete")
    result = bench.run("defaults", "read", "installOlderFirmwareVersion", printers=())
    expect(result.status == 1 and "no setting" in result.err, "a missing setting is reported")


@case("hostinfo shows the banner of the machine")
def _(bench):
    result = bench.run("hostinfo", printers=())
    expect_equal(result.status, 0, "exit status")
    expect(result.out.startswith("^" * 80 + "\n") and "starting up" in result.out, "the banner")


@case("the archive is listed with every file found, and verified with every file matching")
def _(bench):
    result = bench.run("archive", "list", bench.archive, printers=())
    expect(result.status == 0 and "VK28_PP_620_0101.cwd" in result.out and "missing" not in result.out, "list")
    result = bench.run("archive", "verify", bench.archive, printers=())
    expect(result.status == 0 and "matches" in result.out and "differs" not in result.out, "verify")
    document = bench.run("--json", "archive", "verify", bench.archive, printers=()).json
    expect_equal({row["state"] for row in document["files"]}, {"matches"}, "states")
    expect_equal(document["sample"], True, "sample")


@case("a damaged archive file differs and exits with 7")
def _(bench):
    folder = bench.copied_archive()
    with open(os.path.join(folder, "VK14 01.61.fw"), "r+b") as file:
        file.write(b"X")
    os.remove(os.path.join(folder, "VK26 01.52.fw"))
    result = bench.run("archive", "verify", folder, printers=())
    expect_equal(result.status, 7, "exit status")
    expect("differs" in result.out and "missing" in result.out, "both states are shown")


@case("a digest file is written for a folder of vendor files and then verifies it")
def _(bench):
    folder = bench.path("vendor")
    os.mkdir(folder)
    names = ["VK14 01.61.fw", "VK14_300_0161.cwd", "VK14_600_0161.cwd"]
    for name in names:
        shutil.copy(os.path.join(bench.archive, name), folder)
    expect_equal(bench.run("archive", "digest", folder, printers=()).status, 0, "digest")
    with open(os.path.join(folder, "digests.json"), encoding="utf-8") as file:
        digests = json.load(file)
    expect_equal(sorted(digests), names, "files")
    expect(all(len(digest) == 66 and digest.endswith("00") for digest in digests.values()), "the digests' form")
    expect_equal(bench.run("archive", "verify", folder, printers=()).status, 0, "verify")
    expect_equal(bench.run("archive", "digest", bench.home, printers=()).status, 1, "a folder without such files")


@case("an archive with only some files of a model is incomplete: each missing file is reported, and the status is 7")
def _(bench):
    folder = bench.copied_archive()
    for name in os.listdir(folder):
        if name.startswith(("VK26", "VK-RZ7")):
            os.remove(os.path.join(folder, name))  # left out on purpose
    os.remove(os.path.join(folder, "VK14_600_0161.cwd"))
    os.remove(os.path.join(folder, "VK28 01.05.fw"))
    result = bench.run("archive", "verify", folder, printers=())
    expect_equal(result.status, 7, "exit status")
    for name in ("VK14_600_0161.cwd", "VK28 01.05.fw"):
        expect(f"{name} is missing in {folder}. Copy it from the vendor's download" in result.err, result.err)
    expect(f"run: zulctl archive verify {folder}\n" in result.err, result.err)
    expect("VK26" not in result.err and "VK-RZ7" not in result.err, result.err)
    document = bench.run("--json", "archive", "verify", folder, printers=()).json
    expect_equal([problem["file"] for problem in document["problems"]], ["VK14_600_0161.cwd", "VK28 01.05.fw"], "json")


@case("shared tables installed with one model do not make the other model incomplete")
def _(bench):
    folder = bench.path("vk18")
    os.mkdir(folder)
    for name in ("VK18 01.30.fw", "VK18_300_0130.cwd", "VK18_600_0130.cwd"):
        shutil.copy(os.path.join(bench.archive, name), folder)
    bench.run("archive", "digest", folder, printers=())
    result = bench.run("archive", "verify", folder, printers=())
    expect_equal((result.status, result.err), (0, ""), "a folder for the VK18 alone")
    os.remove(os.path.join(folder, "VK18_300_0130.cwd"))
    result = bench.run("archive", "verify", folder, printers=())
    expect_equal((result.status, result.err.count("\n")), (7, 1), "its missing table")


@case("an archive without its digest file, or with a damaged one, exits with 7 and names the command that writes it")
def _(bench):
    folder = bench.copied_archive()
    digests = os.path.join(folder, "digests.json")
    remedy = f"run: zulctl archive digest {folder}\n"
    with open(digests, "w", encoding="ascii") as file:
        file.write("{ no json")
    result = bench.run("archive", "verify", folder, printers=())
    expect_equal((result.status, result.out), (7, ""), "a damaged one")
    expect(f"digests.json in {folder} is damaged" in result.err and result.err.endswith(remedy), result.err)
    os.remove(digests)
    result = bench.run("archive", "verify", folder, printers=())
    expect_equal((result.status, result.out), (7, ""), "none")
    expect(f"digests.json is missing in {folder}" in result.err and result.err.endswith(remedy), result.err)


@case("a pipe in place of an archive file is reported and does not block")
def _(bench):
    folder = bench.copied_archive()
    os.remove(os.path.join(folder, "VK14 01.61.fw"))
    os.mkfifo(os.path.join(folder, "VK14 01.61.fw"))
    result = bench.run("archive", "verify", folder, printers=())
    expect_equal(result.status, 7, "exit status")
    expect("VK14 01.61.fw in " in result.err and "is not a file" in result.err, result.err)
    os.remove(os.path.join(folder, "digests.json"))
    os.mkfifo(os.path.join(folder, "digests.json"))
    result = bench.run("archive", "verify", folder, printers=())
    expect_equal(result.status, 7, "exit status")
    expect("digests.json" in result.err, result.err)


@case("the archive's path is the named folder, or the program's default")
def _(bench):
    expect_equal(bench.run("--firmware-archive", "/x/y", "archive", "path", printers=()).out, "/x/y\n", "named")
    own = bench.run("archive", "path", printers=()).out.strip()
    expect(os.path.isfile(os.path.join(own, "digests.json")), f"the default: {own}")


@case("srecord verify reports the bad line and the reason")
def _(bench):
    good, bad = bench.path("good.fw"), bench.path("bad.fw")
    with open(good, "w", encoding="ascii") as file:
        file.write("S00600004844521B\n")
    with open(bad, "w", encoding="ascii") as file:
        file.write("S00600004844521B\nS00600004844521C\n")
    result = bench.run("srecord", "verify", good, printers=())
    expect(result.status == 0 and "valid" in result.out, "a good file")
    result = bench.run("srecord", "verify", good, bad, bench.path("none"), printers=())
    expect_equal(result.status, 1, "exit status")
    expect("line 2 does not match its checksum" in result.out and "cannot be read" in result.out, result.out)
    faults = bench.run("--json", "srecord", "verify", good, bad, printers=()).json
    expect_equal([row["valid"] for row in faults], [True, False], "json")


@case("a log and a journal that cannot be written are reported, with status 1")
def _(bench):
    for option in ("--log", "--virtual-journal"):
        result = bench.run(option, "/dev/null/file", "list")
        expect_equal(result.status, 1, f"exit status of {option}")
        expect("/dev/null/file" in result.err, "the file is named")


@case("a name that is too long for a folder is reported, and does not crash the program")
def _(bench):
    result = bench.run("archive", "list", "x" * 5000, printers=())
    expect_equal(result.status, 1, result.err)
    expect("Name the folder with the firmware files" in result.err, result.err)
