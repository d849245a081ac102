#!/usr/bin/python3
"""Runs in the test guest: every case in the order of its file, each reported on a line of its own."""
import sys

sys.dont_write_bytecode = True

import lab  # noqa: E402
import cases_gadget  # noqa: E402,F401
import cases_zulctl  # noqa: E402,F401

sys.exit(lab.main())
