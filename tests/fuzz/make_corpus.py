#!/usr/bin/env python3
"""Writes the initial inputs of the fuzzing programs, and every input that has ever made one fail.

    make_corpus.py FOLDER          (FOLDER/TARGET/NAME for each)

They are kept here in a readable form and not as binary files, so that a reader sees what an input is about. A new finding
is added as write("target", "what-was-wrong", bytes.fromhex("…")).
"""
import pathlib
import sys

FOLDER = pathlib.Path(sys.argv[1])


def write(target, name, contents):
    folder = FOLDER / target
    folder.mkdir(parents=True, exist_ok=True)
    (folder / name).write_bytes(contents)


def block(contents):
    """Read back by one takeBlock()."""
    assert len(contents) < 256
    return bytes([len(contents)]) + contents


def blocks(contents, size):
    return b"".join(block(contents[at:at + size]) for at in range(0, len(contents), size))


def answers():
    """The product, then one block for each transfer."""
    vk14, vk26, vk28 = bytes([0]), bytes([4]), bytes([5])

    def reply(text):
        body = text.encode("latin-1") + b"\r"
        return block(b"%08d" % len(body)) + block(body)

    write("answers", "vk14-whole", vk14 + b"".join(map(reply, [
        "00000", "VK14 01.60", "0160", "ABCD", "0000042", "0"] + ["000001"] * 8)))
    write("answers", "vk28-whole", vk28 + b"".join(map(reply, ["00000", "VK28 01.01"] + ["0101"] * 16 + ["000042"])))
    write("answers", "no-number", vk14 + block(b"ABCDEFGH") + block(b"x"))
    write("answers", "negative", vk14 + block(b"-0000001") + block(b"x"))
    write("answers", "too-long", vk14 + block(b"00004097") + block(b"x" * 255))
    write("answers", "exactly-4096", vk14 + block(b"00004096") + block(b"x" * 255))
    write("answers", "zero-length", vk14 + block(b"00000000") + reply("VK14 01.60"))
    write("answers", "short-header", vk14 + block(b"0000") + block(b"06") + reply("00000"))
    write("answers", "nothing", b"")
    write("answers", "nul-inside", vk26 + reply("00\0000") + reply("\xff\xfe"))


def reply_shapes():
    """The command, then the reply's text (or header) as it is on the wire."""
    for name, code, text in [("status", 0, b"00000"), ("loader", 0, b"FU00001"), ("status-text", 0, b"01000 now"),
                             ("version", 1, b" VK14 01.60 \n"), ("version-loader", 1, b"FU00001"),
                             ("version-checksum", 1, b"12AB"), ("serial", 2, b"000001"), ("serial-counter", 2, b"CL42"),
                             ("table", 21, b"0161"), ("table-version", 24, b"VK26 01.51"), ("checksum", 23, b"1F2E"),
                             ("counter", 32, b"CL0000042"), ("counter-plain", 32, b"12345"), ("setting", 43, b"0001"),
                             ("header", 0, b"00000006"), ("header-blanks", 0, b"      11"), ("header-sign", 0, b"-0000001"),
                             ("header-other-blank", 0, b"\xc2\xa0000006"),
                             ("not-utf8", 1, b"VK14 \xff\xfe"), ("escape", 2, b"\x1b[2J"), ("nul", 0, b"0\x001"),
                             ("sign-alone", 0, b"-"), ("mark-alone", 32, b"CL"), ("long", 2, b"7" * 65)]:
        write("reply_shapes", name, bytes([code]) + text)


def identity():
    """Device descriptor, language table, three strings, a device ID as text, and the rest as the device ID's reply."""
    device = bytes([18, 1, 0, 2, 0, 0, 0, 64, 0x71, 0x2A, 3, 0, 0, 1, 1, 2, 3, 1])
    languages = bytes([4, 3, 9, 4])

    def string(text):
        units = text.encode("utf-16-le")
        return bytes([len(units) + 2, 3]) + units

    def reply(text):
        body = text.encode("latin-1")
        return (len(body) + 2).to_bytes(2, "big") + body

    strings = block(string("Zul Imaging Company")) + block(string("VK14")) + block(string("000001"))
    write("identity", "vk14", block(device) + block(languages) + strings + block(b"MFG:ZUL;MDL:VK14;SERN:1;") +
          reply("MFG:Zul Imaging Company;MDL:VK14;CLS:PRINTER;SERN:000001;DES:x;"))
    write("identity", "no-strings", block(device) + block(b"") * 5 + reply("MFG:;MDL:;"))
    write("identity", "lengths-lie", block(device) + block(bytes([200, 3])) + block(bytes([255, 3, 65])) +
          block(bytes([0, 3])) + block(bytes([1])) + block(b"MDL:") + b"\xff\xffMFG:A;MDL:B;")
    write("identity", "length-zero", block(device[:4]) + block(languages) + strings + block(b";;;") + b"\0\0abc")
    write("identity", "no-marks", block(device) + block(languages) + strings +
          block(b"MANUFACTURER:Z;MODEL:Y;DESCRIPTION:d") + reply("MFG:Z"))
    write("identity", "lone-surrogate", block(device) + block(languages) + block(bytes([6, 3, 0, 0xD8, 65, 0])) * 3 +
          block(b"\xff\xfeMFG:\xc3;") + reply("MFG:\xed\xb1\x81;"))


def srecord():
    def record(kind, address, data):
        size = {"0": 2, "1": 2, "2": 3, "3": 4, "5": 2, "7": 4, "8": 3, "9": 2}[kind]
        body = address.to_bytes(size, "big") + data
        body = bytes([len(body) + 1]) + body
        return b"S%s%s%02X" % (kind.encode(), body.hex().upper().encode(), ~sum(body) & 0xFF)

    records = [record("0", 0, b"HDR"), record("1", 0x1000, bytes(range(16))), record("2", 0x20000, b"abc"),
               record("3", 0x3000000, b"xyz"), record("9", 0, b"")]
    write("srecord", "valid", b"\r\n".join(records) + b"\r\n")
    write("srecord", "valid-line-feeds", b"\n".join(records))
    write("srecord", "wrong-sum", records[1][:-2] + b"00\n")
    write("srecord", "wrong-count", b"S1FF1000\n" + records[0])
    write("srecord", "no-digits", b"S1ZZ\nhello")
    write("srecord", "lower-case", records[1].lower())
    write("srecord", "empty", b"")
    write("srecord", "zeros-behind", records[0] + b"\0\0\0")
    write("srecord", "cut-off", b"S\nS1\nS10\n")
    write("srecord", "paragraph-separators", records[0] + "\u2028\u2029\x85".encode() + records[4])


def text():
    """A longest length, two words, and the text."""
    write("text", "commands", bytes([5]) + block(b"a") + block(b"c") + "1\x1b]0;\x07\x9b\u202e\u200f\n".encode() + b"\x9b\xff")
    write("text", "plain", bytes([5]) + block(b"a") + block(b"c") + b"abcABC%d")
    write("text", "utf8-mark", bytes([255]) + block(b"MFG:") + block(b";") + "\ufeffMFG:é;".encode())
    write("text", "utf16-lone-surrogate", bytes([6]) + block(b"") * 2 + b"\xff\xfe\x41\x00\x00\xd8")
    write("text", "status", bytes([1]) + block(b"10") + block(b"9") + b"01000")
    write("text", "shift-jis", bytes([9]) + block(b"file10") + block(b"File9") + "プリンタ".encode("shift_jis"))
    write("text", "equal-rows", bytes([0]) + block(b"xxxx") + block(b"") + bytes(64) + b"%%%%")


def files():
    write("files", "digests", b'{"sample": true, "digests": {"VK14 01.61.fw": "00ff"}}')
    write("files", "digests-of-wrong-kinds", b'{"digests": {"a": 1, "b": null, "c": ["x"]}}')
    write("files", "settings", b'{"text": "2.06 (build 1)", "flag": true, "n": 3, "list": [1], "inner": {"x": 1}}')
    write("files", "cut-off", b'{"a": "b')
    write("files", "no-object", b"[1,2,3]")
    write("files", "not-utf8", b'{"a": "\xff\xfe"}')
    write("files", "deep", b"[" * 500)
    write("files", "empty", b"")


def virtual_printer():
    """The printer's settings, then one block for each piece of the host's data."""
    def frame(command, payload=b""):
        return b"\x1bP" + command.ljust(22) + b"%08d" % len(payload) + payload

    commands = [frame(b"STATUS"), frame(b"INFO  FVER"), frame(b"INFO  SERIAL_NUMBER"), frame(b"TBL_CL"),
                frame(b"TBL_WTVersion", b"VK14_300_0161.CWD\0\0\0"), frame(b"FW_UPDFLASH_REWRITE")]
    together = b"".join(commands)
    write("virtual_printer", "commands", block(b"VK14") + b"".join(map(block, commands)))
    write("virtual_printer", "in-pieces", block(b"VK28,firmware=VK28 01.00") + blocks(together, 7))
    write("virtual_printer", "faults", block(b"VK14,fault=stall@STATUS#2,fault=silence,fault=unplug:100") +
          blocks(together, 64))
    write("virtual_printer", "loader", block(b"VK14,mode=loader") + block(frame(b"STATUS")) +
          blocks(frame(b"FW_UPDFLASH_PROGRAM", b"S0030000FC\n" * 20), 200))
    write("virtual_printer", "wrong-settings", block(b"VK14,speed=-1,status=,fault=@#:,location=9-") + block(b"x"))
    write("virtual_printer", "no-frame", block(b"VK26") + blocks(b"garbage" * 40 + frame(b"STATUS"), 50))
    write("virtual_printer", "length-lies", block(b"VK18") +
          blocks(b"\x1bP" + b"FW_UPDFLASH_PROGRAM".ljust(22) + b"99999999" + b"x" * 300, 200))


def lock_answer():
    whole = (b'{"activity":"update","phase":"writing","pid":4711,"program":"zulctl","since":1700000000,'
             b'"text":"Do not switch it off.","user":"kiosk"}\n')
    write("lock_answer", "whole", whole)
    write("lock_answer", "cut-off", whole[:60])
    write("lock_answer", "wrong-types", b'{"activity":1,"phase":[],"pid":"4711","program":{},"since":-1,"user":null}')
    write("lock_answer", "numbers-out-of-range", b'{"pid":2147483648,"since":9223372036854775808}')
    write("lock_answer", "hidden-characters", b'{"phase":"\\u001b[2J\\u202e\xc2\x85","program":"\\u0000"}')
    write("lock_answer", "not-utf8", b'{"phase":"\xff\xfe"}')
    write("lock_answer", "lone-surrogate", b'{"phase":"\\ud800"}')
    write("lock_answer", "deep", b"[" * 2000)
    write("lock_answer", "long", b'{"text":"' + b"\xe2\x82\xac" * 600 + b'"}')
    write("lock_answer", "no-object", b"3")


for make in (answers, identity, reply_shapes, srecord, text, files, virtual_printer, lock_answer):
    make()
