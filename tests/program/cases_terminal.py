"""The questions of an update on a terminal, with typed answers."""
import time

from bench import case, expect, expect_equal


@case("on a terminal the tick is needed before Continue, and the confirmation's default is Cancel")
def _(bench):
    terminal = bench.terminal("update")
    terminal.read_until("> ")
    for wanted in ("Attention:", "[ ] I Agree", "1) Quit  (Return)", "2) Continue"):
        expect(wanted in terminal.text, f"{wanted!r} is shown")
    terminal.type("2")
    terminal.read_until("first: type \"agree\"")
    terminal.type("agree")
    terminal.read_until("[x] I Agree")
    terminal.type("2")
    terminal.read_until("2) Update Firmware to VK14 01.61")
    expect("1) Cancel  (Return)" in terminal.text, "Cancel comes first")
    terminal.type("")
    expect_equal(terminal.wait(), 1, "exit status")
    expect("not updated: it was declined" in terminal.text, terminal.text)


@case("Return at the first question quits and changes nothing")
def _(bench):
    terminal = bench.terminal("update")
    terminal.read_until("> ")
    terminal.type("")
    expect_equal(terminal.wait(), 1, "exit status")
    expect("not updated: it was declined" in terminal.text, terminal.text)


@case("an update answered on the terminal runs to its end, with one live line")
def _(bench):
    terminal = bench.terminal("update")
    terminal.read_until("> ")
    terminal.type("agree")
    terminal.read_until("[x]")
    terminal.type("continue")
    terminal.read_until("2) Update Firmware")
    terminal.type("2")
    expect_equal(terminal.wait(), 0, "exit status")
    expect("\r" in terminal.text and "writing the firmware" in terminal.text, "the live line")
    expect("updated from VK14 01.60 to VK14 01.61" in terminal.text, "the last line")


@case("on a terminal a printer that was not ready can be fixed, and Proceed continues")
def _(bench):
    terminal = bench.terminal("update", "--agree", printers=("VK14,status=00000:01000:00000",))
    terminal.read_until("1) Proceed  (Return)")
    expect("Cover Open" in terminal.text, terminal.text)
    terminal.type("")
    terminal.read_until("Are you certain")
    terminal.type("cancel")
    expect_equal(terminal.wait(), 1, "exit status")


@case("after an answer that is not a button the question is repeated")
def _(bench):
    terminal = bench.terminal("update")
    terminal.read_until("> ")
    terminal.type("perhaps")
    terminal.read_until("Type the number of a button.")
    terminal.type("1")
    expect_equal(terminal.wait(), 1, "exit status")


@case("the questions of two printers are asked one after the other, each with its printer's name")
def _(bench):
    terminal = bench.terminal("update", "--all", printers=("VK14,serial=111", "VK14,serial=222"))
    terminal.read_until("> ")
    expect("<VK14 111 (1-1)>" in terminal.text and "<VK14 222 (1-2)>" not in terminal.text, terminal.text)
    terminal.type("1")
    terminal.read_until("2) Continue")
    expect("<VK14 222 (1-2)>" in terminal.text, terminal.text)
    terminal.type("quit")
    expect_equal(terminal.wait(), 1, "exit status")


@case("closing the terminal cancels a pending question, even if Proceed is the first button")
def _(bench):
    terminal = bench.terminal("update", "--agree", printers=("VK14,status=01000",))
    terminal.read_until("1) Proceed  (Return)")
    terminal.end_input()
    expect_equal(terminal.wait(), 6, terminal.text)
    expect("Cover Open" in terminal.text, terminal.text)


@case("with --json no question is asked, even on a terminal")
def _(bench):
    terminal = bench.terminal("--json", "update")
    expect_equal(terminal.wait(), 2, "exit status")
    expect("--agree and --yes" in terminal.text and "I Agree" not in terminal.text, terminal.text)


@case("Ctrl-C at a question ends with 130 and changes nothing")
def _(bench):
    terminal = bench.terminal("update")
    terminal.read_until("> ")
    terminal.interrupt()
    expect_equal(terminal.wait(), 130, terminal.text)


@case("the operator's time for an answer does not make the printer unresponsive")
def _(bench):
    terminal = bench.terminal("update", "--agree", "--give-up", "8", "--stall-timeout", "2")
    terminal.read_until("> ")
    time.sleep(9)
    terminal.type("2")
    expect_equal(terminal.wait(), 0, terminal.text)
    expect("does not answer" not in terminal.text, terminal.text)


@case("the live line is never wider than the terminal")
def _(bench):
    terminal = bench.terminal("update", "--agree", "--yes", columns=40)
    expect_equal(terminal.wait(), 0, terminal.text)
    drawn = [part.split("\r")[0].split("\n")[0] for part in terminal.text.split("\r\x1b[K")[1:]]
    expect(len(drawn) > 5, "lines were drawn")
    expect(max(map(len, drawn)) <= 39, max(drawn, key=len))
