#!/usr/bin/python3
"""An operator with a screen reader and a keyboard updates the one attached VK14 from 01.60 to 01.61.

    journey.py [--quit-in-the-middle | --end-while-writing | --with-samples | --complete] PROGRAM [ARGUMENT...]

With the first option the operator ends the program while the printer restarts. With the second one the system ends it
while the firmware is written. With the third one the printer is a real one and no folder with firmware files is named,
so the update is refused. With the fourth one the printer is in its loader, and its update is completed. PROGRAM runs as
a process of its own. The exit status is 0 if every step was as expected.
"""
import signal
import sys

sys.dont_write_bytecode = True  # leaves no files in the source tree

from screen import Screen  # noqa: E402  (after the switch above)

OLD, NEW = "VK14 01.60", "VK14 01.61"
AGREEMENT = "Attention:"
CONFIRMATION = "-- Warning --\n\nAre you certain you want to update the firmware?"
SAMPLES = "The firmware files in use are samples for virtual printers."
ADVICE = "The printer restarts into its loader or waits in it. Leave it switched on and start the update again: that " \
         "completes it."
QUIT = "A printer is being updated. Quit anyway?"
REPORT = "Firmware update was successful!"
WRITING = 3  # in STEPS
STEPS = ["Checking", "Entering the loader", "Restarting", "Writing firmware", "Restarting", "Color table", "Done"]


def expect_equal(got, wanted, what):
    if got != wanted:
        raise AssertionError(f"{what}: got {got!r}, wanted {wanted!r}")


def read_row(screen, firmware, table, available=NEW):
    """Checks the row of the printer: an empty column would hide a query that was never sent."""
    def row():
        cells = screen.cells("Printers")
        return cells if firmware in cells and table in cells and "Being read" not in cells else None
    cells = screen.wait(f"a row with {firmware} and {table}", row)
    expect_equal(len(cells), 9, "cells of the one row")
    expect_equal([cell for cell in cells if not cell], [], "cells without a text")
    expect_equal(available in cells, True, f"the available firmware is shown as {available}")


def agree(screen):
    screen.press("ctrl+u")
    expect_equal(screen.wait_for_alert(AGREEMENT), ["Quit", "Continue"], "buttons of the agreement")
    expect_equal(screen.is_enabled("push button", "Continue"), False, "Continue before the agreement")
    screen.tab_to("I Agree")
    screen.press("space")
    screen.wait("Continue can be chosen", lambda: screen.is_enabled("push button", "Continue"))
    screen.answer(AGREEMENT, "Continue")


def confirm(screen):
    choice = f"Update Firmware to {NEW}"
    expect_equal(screen.wait_for_alert(CONFIRMATION), ["Cancel", choice], "buttons of the confirmation")
    screen.answer(CONFIRMATION, choice)


def steps_of(screen):
    def labels():
        found = [node for node in screen.nodes() if node.get_role_name() == "label" and
                 node.get_name().endswith((": not started", ": current step", ": done"))]
        return found if len(found) == len(STEPS) else None
    return screen.wait("the steps of the update", labels)


def quit_in_the_middle(screen):
    steps = steps_of(screen)

    def is_restarting():
        steps[2].clear_cache()
        return steps[2].get_name() == "Restarting: current step"
    screen.wait("the restart", is_restarting)
    screen.press("ctrl+q")
    expect_equal(screen.wait_for_alert(QUIT), ["Keep Updating", "Quit"], "buttons of the question")
    screen.choose("Quit")
    expect_equal(screen.wait_for_end(), 0, "exit status")
    expect_equal("VK14 000001 (1-1): The update is not complete: the program was asked to end. " + ADVICE in
                 screen.errors(), True, "the printer's state is printed: " + screen.errors())


def end_while_writing(screen):
    """The system asks the program to end: it ends when the whole image is sent."""
    steps = steps_of(screen)

    def is_writing():
        steps[WRITING].clear_cache()
        return steps[WRITING].get_name() == "Writing firmware: current step"
    screen.wait("the image", is_writing)
    screen.process.send_signal(signal.SIGTERM)
    expect_equal(screen.wait_for_end(), 0, "exit status")
    expect_equal("The update is not complete: the program was asked to end. The printer" in screen.errors(), True,
                 "the printer's state is printed: " + screen.errors())


def complete(screen):
    """A printer that an earlier run left in its loader: its row offers the completion, and one action completes it."""
    screen.wait("the offer", lambda: any("to complete" in cell for cell in screen.cells("Printers")))
    agree(screen)  # a loader gets its image without a further question
    expect_equal(screen.wait_for_alert(REPORT), ["Finish"], "buttons of the report")
    screen.answer(REPORT, "Finish")
    read_row(screen, NEW, "0161")
    screen.press("ctrl+q")
    expect_equal(screen.wait_for_end(), 0, "exit status")
    print("journey: completed", flush=True)


def be_refused(screen):
    screen.wait("the notice", lambda: any(name.startswith(SAMPLES) for name in screen.names("label")))
    screen.press("ctrl+u")
    expect_equal(screen.wait_for_alert(SAMPLES), ["OK"], "buttons of the refusal")
    screen.answer(SAMPLES, "OK")
    screen.press("ctrl+q")
    expect_equal(screen.wait_for_end(), 0, "exit status")


def watch(screen):
    """The steps that were read as the current one, as indexes of STEPS, until the last step is done."""
    steps = steps_of(screen)
    current = []

    def is_over():
        for place, step in enumerate(steps):
            step.clear_cache()
            name = step.get_name()
            if name.endswith(": current step") and place not in current:
                expect_equal(name.startswith(STEPS[place]), True, f"{name} is step {place}")
                current.append(place)
                if place == WRITING:  # a terminal that is closed is no reason to stop
                    screen.process.send_signal(signal.SIGHUP)
        return name.endswith(": done")  # the last one
    # Reads only these labels: reading the whole screen takes long enough to miss a step.
    screen.wait("the last step", is_over)
    return current


def main(command):
    option = command[0] if command[0].startswith("--") else ""
    has_samples = option == "--with-samples"
    with Screen(*command[bool(option):]) as screen:
        if option == "--complete":
            complete(screen)
            return
        # The sample firmware is not available for a real printer.
        read_row(screen, OLD, "0160", "-" if has_samples else NEW)
        if has_samples:
            be_refused(screen)
            return
        agree(screen)
        confirm(screen)
        if option == "--quit-in-the-middle":
            quit_in_the_middle(screen)
            return
        if option == "--end-while-writing":
            end_while_writing(screen)
            return
        current = watch(screen)
        print("journey: current steps:", ", ".join(STEPS[place] for place in current), flush=True)
        expect_equal(current, sorted(current), "order of the steps")
        for place in (2, 3, 4):  # both restarts and the image between them
            expect_equal(place in current, True, f"{STEPS[place]} (step {place}) was current")
        expect_equal(screen.wait_for_alert(REPORT), ["Finish"], "buttons of the report")
        screen.answer(REPORT, "Finish")
        read_row(screen, NEW, "0161")
        screen.wait("the result on the card", lambda: any(
            f"Updated from {OLD} to {NEW}." in name and "2 color tables written." in name
            for name in screen.names("label")))
        screen.press("ctrl+q")
        expect_equal(screen.wait_for_end(), 0, "exit status")
    print("journey: done", flush=True)


if __name__ == "__main__":
    main(sys.argv[1:])
