#!/usr/bin/python3
"""Runs in the test guest: all cases in file order, each reported on one line."""
import shutil
import sys

sys.dont_write_bytecode = True

import lab  # noqa: E402  (after the switch above)

arguments = lab.parsed_arguments()
import cases_gadget  # noqa: E402,F401

if arguments.zulctl:
    import cases_zulctl  # noqa: F401
    import cases_neighbours  # noqa: F401
    import cases_restart  # noqa: F401
    import cases_fleet  # noqa: F401
    import cases_kill  # noqa: F401
    import cases_storm  # noqa: F401
else:
    print("kernel: there is no zulctl yet, its cases are left out")
if arguments.window and shutil.which("Xvfb"):
    import cases_window  # noqa: F401
else:
    print("kernel: there is no window or no Xvfb, its case is left out")

sys.exit(lab.main(arguments))
