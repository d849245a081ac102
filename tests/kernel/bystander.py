#!/usr/bin/python3
"""Keeps the window open while other programs work, and reads it on request. It only closes it at the end.

    bystander.py PROGRAM [ARGUMENT...]

Reads lines "rows N FIRMWARE" from standard input: waits until N rows show that firmware, and prints "shown". At the end
of the input it closes the window with a key. Between two lines it does not read the window, because that would use more
processor time than the tested programs.
"""
import sys

sys.dont_write_bytecode = True  # the source tree is not changed

from screen import Atspi, Screen  # noqa: E402  (after the switch above)


COLUMN = "Firmware"


def firmware_shown(screen):
    """The firmware of each row, including rows that are not scrolled into view."""
    table = screen.find("table", "Printers")
    if table is None:
        return []
    table.clear_cache()
    titles = [Atspi.Table.get_column_description(table, column) for column in range(Atspi.Table.get_n_columns(table))]
    column = titles.index(COLUMN)
    cells = [Atspi.Table.get_accessible_at(table, row, column) for row in range(Atspi.Table.get_n_rows(table))]
    return [cell.get_name() for cell in cells if cell is not None]


def main(command):
    with Screen(*command) as screen:
        for line in sys.stdin:
            _, count, firmware = line.rstrip("\n").split(" ", 2)

            def is_shown():
                return firmware_shown(screen) == [firmware] * int(count)
            screen.wait(f"{count} rows with {firmware}", is_shown)
            print("shown", flush=True)
        screen.press("ctrl+q")
        status = screen.wait_for_end()
        print(f"closed {status}", flush=True)


if __name__ == "__main__":
    main(sys.argv[1:])
