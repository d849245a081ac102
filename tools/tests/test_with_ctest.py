"""./test on a small project with the real cmake and ctest: their output has the format that tools/count-tests expects."""
import json
import pathlib
import shutil
import subprocess
import tempfile
import unittest

TOP = pathlib.Path(__file__).resolve().parent.parent.parent

PRESETS = {"version": 6,
           "configurePresets": [{"name": "release", "generator": "Ninja", "binaryDir": "${sourceDir}/build"}],
           "buildPresets": [{"name": "release", "configurePreset": "release"}],
           "testPresets": [{"name": "release", "configurePreset": "release", "output": {"outputOnFailure": True},
                            "execution": {"noTestsAction": "error"}}]}
SUMMARY = "[doctest] test cases: 3 | %d passed | %d failed |"


class TestWithCtest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.tree = pathlib.Path(folder.name).resolve()
        shutil.copytree(TOP / "tools", self.tree / "tools", ignore=shutil.ignore_patterns("tests", "__pycache__"))
        shutil.copy2(TOP / "test", self.tree / "test")
        (self.tree / "tools/install-packages").write_text("#!/bin/sh\n")
        (self.tree / "CMakePresets.json").write_text(json.dumps(PRESETS))

    def run_tests(self, **scripts):
        lines = ["cmake_minimum_required(VERSION 3.25)", "project(small NONE)", "enable_testing()"]
        for name, script in scripts.items():
            (self.tree / f"{name}.sh").write_text(script)
            program = "no-such-program" if script == "absent" else "sh"
            lines += [f"add_test(NAME {name} COMMAND {program} ${{CMAKE_SOURCE_DIR}}/{name}.sh)",
                      f"set_tests_properties({name} PROPERTIES SKIP_RETURN_CODE 77)"]
        (self.tree / "CMakeLists.txt").write_text("\n".join(lines) + "\n")
        result = subprocess.run([self.tree / "test"], capture_output=True, text=True, check=False)
        return result.stdout.splitlines()[-1], result.returncode

    def test_adds_up_cases_however_much_is_printed(self):
        noise = "i=0; while [ $i -lt 3000 ]; do echo 'a line among very many others'; i=$((i+1)); done\n"
        self.assertEqual(self.run_tests(unit=f"{noise}echo '{SUMMARY % (3, 0)}'\n{noise}", program="echo ok 1\necho ok 2\n"),
                         ("5 passed, 0 failed", 0))

    def test_reads_coloured_output(self):
        coloured = "printf '\\033[0;36m[doctest] \\033[0mtest cases: \\033[32m3\\033[0m | \\033[32m3 passed\\033[0m | 0 failed |\\n'"
        self.assertEqual(self.run_tests(unit=coloured), ("3 passed, 0 failed", 0))

    def test_counts_failed_cases(self):
        self.assertEqual(self.run_tests(unit=f"echo '{SUMMARY % (1, 2)}'; exit 1", rule="exit 0"), ("2 passed, 2 failed", 1))

    def test_counts_a_program_that_was_killed(self):
        self.assertEqual(self.run_tests(unit="echo ok 1\nkill -SEGV $$\n"), ("1 passed, 1 failed", 1))

    def test_counts_a_program_that_is_absent(self):
        self.assertEqual(self.run_tests(unit="absent", rule="exit 0"), ("1 passed, 1 failed", 1))

    def test_counts_a_skipped_program_as_skipped(self):
        self.assertEqual(self.run_tests(kernel="echo ok 1\nexit 77", rule="exit 0"), ("1 passed, 0 failed, 1 skipped", 0))

    def test_fails_without_any_test(self):
        self.assertEqual(self.run_tests(), ("0 passed, 1 failed", 1))

    def test_builds_anew_in_a_tree_that_was_moved(self):
        self.assertEqual(self.run_tests(rule="exit 0"), ("1 passed, 0 failed", 0))
        moved = self.tree / "moved"
        moved.mkdir()
        for path in list(self.tree.iterdir()):
            if path != moved:
                path.rename(moved / path.name)
        self.tree = moved
        self.assertEqual(self.run_tests(rule="exit 0"), ("1 passed, 0 failed", 0))


if __name__ == "__main__":
    unittest.main()
