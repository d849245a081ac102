"""Reads and operates a program from another process, as a screen reader and a keyboard do: names, states and keys."""
import os
import subprocess
import sys
import tempfile
import time

import gi

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, GLib  # noqa: E402  (the version comes first)

LONGEST_WAIT = 120  # s; generous, for emulated machines
LONGEST_PAUSE = 500  # ms between two reads, because not every change is announced, and the end of the program is not
CHANGES = ("object:state-changed", "object:children-changed", "object:property-change", "object:text-changed", "window")
MOST_TABS = 40
WINDOWS = ("frame", "alert", "dialog")
CONTAINERS = ("panel", "table")


class Screen:
    """Runs one program and operates it."""

    def __init__(self, *command):
        self._home = tempfile.TemporaryDirectory(prefix="zul-screen-")
        # Without a screen reader the toolkit does not publish what it shows.
        env = dict(os.environ, QT_LINUX_ACCESSIBILITY_ALWAYS_ON="1", XDG_CONFIG_HOME=self._home.name,
                   XDG_STATE_HOME=self._home.name)
        self._has_changed = True
        self._listener = Atspi.EventListener.new(self._note_change)
        for change in CHANGES:
            self._listener.register(change)
        self._timer = GLib.timeout_add(LONGEST_PAUSE, self._note_change)
        self._errors = tempfile.TemporaryFile("w+", dir=self._home.name)
        self.process = subprocess.Popen(command, env=env, stderr=self._errors)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        GLib.source_remove(self._timer)
        for change in CHANGES:
            self._listener.deregister(change)
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait()
        print(self.errors(), end="", file=sys.stderr)
        self._errors.close()
        self._home.cleanup()

    def _note_change(self, *_):
        self._has_changed = True
        return GLib.SOURCE_CONTINUE

    # ---- eyes -------------------------------------------------------------------------------------------------------

    def nodes(self):
        """Everything on the screen, in the order of a screen reader."""
        while GLib.MainContext.default().iteration(False):
            pass
        desktop = Atspi.get_desktop(0)
        found = []
        for index in range(desktop.get_child_count()):
            application = desktop.get_child_at_index(index)
            if application is not None and application.get_process_id() == self.process.pid:
                application.clear_cache()
                for child in range(application.get_child_count()):
                    _collect(application.get_child_at_index(child), found)
        return found

    def names(self, role):
        return [node.get_name() for node in self.nodes() if node.get_role_name() == role]

    def cells(self, table):
        """The names of the cells of the table with this name; empty while there is no such table."""
        node, found = self.find("table", table), []
        _collect(node, found)
        return [cell.get_name() for cell in found if cell.get_role_name() == "table cell"]

    def find(self, role, name):
        for node in self.nodes():
            if node.get_role_name() == role and node.get_name() == name:
                return node
        return None

    def is_enabled(self, role, name):
        node = self.find(role, name)
        return node is not None and node.get_state_set().contains(Atspi.StateType.ENABLED)

    def focused(self):
        """The name of the control that gets the next key. Windows that are not active report a focus, too."""
        focus, is_active = None, False
        for node in self.nodes():
            role, states = node.get_role_name(), node.get_state_set()
            if role in WINDOWS:
                is_active = states.contains(Atspi.StateType.ACTIVE)
            elif is_active and role not in CONTAINERS and states.contains(Atspi.StateType.FOCUSED):
                focus = node.get_name()
        return focus

    def wait(self, what, condition):
        """Reads the screen again after each change until condition is true; returns its value."""
        end = time.monotonic() + LONGEST_WAIT
        while time.monotonic() < end:
            if self.process.poll() is not None:
                raise AssertionError(f"the program ended while waiting for: {what}")
            self._has_changed = False
            try:
                value = condition()
            except GLib.Error:  # a widget was removed while it was read
                value = None
            if value:
                return value
            while not self._has_changed:  # or during the read
                GLib.MainContext.default().iteration(True)
        shown = "\n".join(f"{node.get_role_name()}: {node.get_name()}" for node in self.nodes())
        raise AssertionError(f"waited for: {what}; shown:\n{shown}")

    def wait_for(self, role, name):
        return self.wait(f"{role} {name!r}", lambda: self.find(role, name))

    def wait_for_alert(self, title):
        """Waits until the alert has the keyboard; returns the names of its buttons."""
        alert = self.wait_for("alert", title)
        self.wait("the alert is in front", lambda: alert.get_state_set().contains(Atspi.StateType.ACTIVE))
        inside = []
        _collect(alert, inside)
        return [node.get_name() for node in inside if node.get_role_name() == "push button"]

    # ---- hands ------------------------------------------------------------------------------------------------------

    def press(self, key):
        subprocess.run(["xdotool", "key", key], check=True)

    def tab_to(self, name):
        for _ in range(MOST_TABS):
            before = self.wait("something has the focus", self.focused)
            if before == name:
                return
            self.press("Tab")
            self.wait("the focus moved", lambda: self.focused() not in (None, before))  # noqa: B023  (used at once)
        raise AssertionError(f"the keyboard does not reach {name!r}")

    def choose(self, button):
        self.tab_to(button)
        self.press("space")  # Return would press the default button, wherever the focus is

    def answer(self, title, button):
        """Presses a button and waits until the alert is closed. For a button that ends the program use choose()."""
        self.choose(button)
        self.wait(f"the alert {title!r} is gone", lambda: self.find("alert", title) is None)

    def errors(self):
        """What the program has printed to its standard error stream so far."""
        self._errors.seek(0)
        return self._errors.read()

    def wait_for_end(self):
        return self.process.wait(LONGEST_WAIT)


def _collect(node, found):
    if node is None or not node.get_state_set().contains(Atspi.StateType.SHOWING):
        return
    found.append(node)
    for index in range(node.get_child_count()):
        _collect(node.get_child_at_index(index), found)
