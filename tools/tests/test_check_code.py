"""tools/check-code on a copy of the script, with stubs for cmake and clang-tidy."""
import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

TOOL = pathlib.Path(__file__).resolve().parent.parent / "check-code"

# Each stub records how it was called. The file name decides what clang-tidy finds.
NOTE = '#!/bin/sh\necho "${0##*/} $*" >>"$CALLS"\n'
CMAKE = NOTE + 'echo "error of cmake"\nexit ${CMAKE_STATUS:-0}\n'
TIDY = NOTE + '''for file; do :; done
folder=${file%/*}
case $file in
*/Good*) exit 0 ;;
*/Crash*) echo "stack dump" >&2; exit 139 ;;
*.h) echo "$folder/Shared.h:2:1: error: included header map is not used directly [misc-include-cleaner,-warnings-as-errors]" ;;
*) echo "$file:7:3: error: repeated branch body [bugprone-branch-clone,-warnings-as-errors]"
   echo "    7 |     return 1;"
   echo "$file:9:3: note: end of the original"
   echo "$folder/Shared.h:20:1: error: function 'a' exceeds size [readability-function-size,-warnings-as-errors]" ;;
esac
exit 1
'''


class CheckCode(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.base = pathlib.Path(folder.name).resolve()
        (self.base / "tools").mkdir()
        shutil.copy2(TOOL, self.base / "tools/check-code")
        self.programs = self.base / "programs"
        self.programs.mkdir()
        for name, text in {"cmake": CMAKE, "clang-tidy-19": TIDY}.items():
            (self.programs / name).write_text(text)
            (self.programs / name).chmod(0o755)

    def check(self, *names, arguments=(), **environment):
        (self.base / "src").mkdir(exist_ok=True)
        for name in names:
            (self.base / "src" / name).touch()
        return subprocess.run([self.base / "tools/check-code", *arguments], capture_output=True, text=True, check=False,
                              env={"PATH": f"{self.programs}:/usr/bin:/bin", "CALLS": str(self.base / "calls")} | environment)

    def tidy_calls(self):
        return [line for line in (self.base / "calls").read_text().splitlines() if line.startswith("clang-tidy-19 ")]

    def test_passes_clean_code(self):
        result = self.check("Good.cpp", "Good.h")
        self.assertEqual((result.stdout, result.stderr, result.returncode), ("", "", 0))
        self.assertEqual(len(self.tidy_calls()), 2)

    def test_prints_each_finding_once_in_the_order_of_files_and_lines(self):
        result = self.check("A.cpp", "B.cpp", "Good.cpp", "Shared.h")
        self.assertEqual(result.stdout.splitlines(), [
            "src/A.cpp:7: repeated branch body [bugprone-branch-clone]",
            "src/B.cpp:7: repeated branch body [bugprone-branch-clone]",
            "src/Shared.h:2: included header map is not used directly [misc-include-cleaner]",
            "src/Shared.h:20: function 'a' exceeds size [readability-function-size]"])
        self.assertEqual((result.stderr, result.returncode), ("", 1))

    def test_checks_only_the_includes_of_a_header_by_itself(self):
        self.check("Good.cpp", "Good.h")
        header = next(call for call in self.tidy_calls() if call.endswith(".h"))
        source = next(call for call in self.tidy_calls() if call.endswith(".cpp"))
        self.assertIn("--checks=-*,misc-include-cleaner ", header)
        self.assertNotIn("--checks", source)

    def test_fixes_only_includes(self):
        self.check("Good.cpp", arguments=["--fix"])
        self.assertIn("--fix --checks=-*,misc-include-cleaner ", self.tidy_calls()[0])

    def test_checks_only_the_files_that_are_named(self):
        result = self.check("A.cpp", "Good.cpp", arguments=[self.base / "src/Good.cpp"])
        self.assertEqual((len(self.tidy_calls()), result.returncode), (1, 0))

    def test_fails_when_clang_tidy_crashes(self):
        result = self.check("Crash.cpp", "Good.cpp")
        self.assertEqual((result.stdout, result.returncode), ("", 1))
        self.assertIn("stack dump", result.stderr)

    def test_fails_when_there_is_no_code(self):
        self.assertEqual(self.check().returncode, 1)

    def test_fails_when_the_tree_cannot_be_configured(self):
        result = self.check("Good.cpp", CMAKE_STATUS="1")
        self.assertEqual(result.returncode, 1)
        self.assertIn("error of cmake", result.stderr)
        self.assertEqual(self.tidy_calls(), [])

    def test_says_what_installs_clang_tidy(self):
        (self.programs / "clang-tidy-19").unlink()
        for name in ("env", "python3", "sh"):
            (self.programs / name).symlink_to(shutil.which(name))
        result = self.check("Good.cpp", PATH=os.fspath(self.programs))
        self.assertEqual(result.returncode, 1)
        self.assertIn("tools/install-packages lint", result.stderr)


if __name__ == "__main__":
    unittest.main()
