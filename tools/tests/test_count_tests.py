"""Counting: every format in which a program reports its cases, and every failure of a run."""
import pathlib
import subprocess
import sys
import tempfile
import unittest
from xml.sax.saxutils import escape, quoteattr

TOOL = pathlib.Path(__file__).resolve().parent.parent / "count-tests"


def case(name, output, status="run", inside=""):
    return (f"<testcase name={quoteattr(name)} status={quoteattr(status)}>{inside}"
            f"<system-out>{escape(output)}</system-out></testcase>")


class CountTests(unittest.TestCase):
    def setUp(self):
        self._folder = tempfile.TemporaryDirectory()
        self.addCleanup(self._folder.cleanup)
        self.folder = pathlib.Path(self._folder.name)

    def count(self, *cases, status="0", options=()):
        (self.folder / "test-results.xml").write_text(f"<testsuite>{''.join(cases)}</testsuite>")
        (self.folder / "test-status").write_text(status + "\n")
        return self.run_tool(*options, self.folder)

    def run_tool(self, *arguments):
        result = subprocess.run([sys.executable, TOOL, *arguments], capture_output=True, text=True, check=False)
        return result.stdout.splitlines()[-1], result.returncode

    def test_adds_up_the_summaries_of_doctest(self):
        text = "[doctest] test cases:  7 |  7 passed | 0 failed | 3 skipped\n"
        self.assertEqual(self.count(case("unit", text), case("flow", text)), ("14 passed, 0 failed", 0))

    def test_counts_the_failed_cases_of_doctest(self):
        text = "[doctest] test cases: 7 | 5 passed | 2 failed |\n"
        self.assertEqual(self.count(case("unit", text, "fail"), status="8"), ("5 passed, 2 failed", 1))

    def test_reads_a_coloured_summary(self):
        text = "~36m[doctest] ~0mtest cases: ~32m3~0m | ~32m3 passed~0m | 0 failed |\n".replace("~", "[NON-XML-CHAR-0x1B][0;")
        self.assertEqual(self.count(case("unit", text)), ("3 passed, 0 failed", 0))

    def test_counts_one_line_per_case(self):
        text = "ok 1 - lists\nok - prints okay\nnot ok 3 - updates\nok 4 # SKIP no bus\nokay\n  ok inside\n"
        self.assertEqual(self.count(case("program", text, "fail"), status="8"), ("2 passed, 1 failed, 1 skipped", 1))

    def test_counts_the_cases_of_unittest(self):
        text = "Ran 5 tests in 0.1s\n\nFAILED (failures=1, errors=1, skipped=1)\n"
        self.assertEqual(self.count(case("tools", text, "fail"), status="8"), ("2 passed, 2 failed, 1 skipped", 1))

    def test_counts_a_silent_test_as_one(self):
        self.assertEqual(self.count(case("rule", "")), ("1 passed, 0 failed", 0))

    def test_counts_a_failure_that_the_summary_does_not_know(self):
        text = "[doctest] test cases: 7 | 7 passed | 0 failed |\n"
        self.assertEqual(self.count(case("unit", text, "fail"), status="8"), ("7 passed, 1 failed", 1))

    def test_counts_a_failed_line_of_a_test_that_ended_well(self):
        self.assertEqual(self.count(case("program", "not ok 1 - lists\n")), ("0 passed, 1 failed", 1))

    def test_counts_a_test_without_program_as_failed(self):
        inside = '<skipped message="Unable to find executable"/>'
        self.assertEqual(self.count(case("flow", "", "notrun", inside), status="8"), ("0 passed, 1 failed", 1))

    def test_counts_a_skipped_test_never_as_passed(self):
        inside = '<skipped message="SKIP_RETURN_CODE=77"/>'
        self.assertEqual(self.count(case("rule", ""), case("kernel", "ok 1 - boots\nok 2 - lists\n", "notrun", inside)),
                         ("1 passed, 0 failed, 2 skipped", 0))

    def test_fails_when_everything_was_skipped(self):
        inside = '<skipped message="SKIP_RETURN_CODE=77"/>'
        self.assertEqual(self.count(case("kernel", "", "notrun", inside)), ("0 passed, 0 failed, 1 skipped", 1))

    def test_counts_a_status_of_ctest_that_no_case_explains(self):
        self.assertEqual(self.count(case("rule", ""), status="8"), ("1 passed, 1 failed", 1))

    def test_counts_a_run_without_tests_as_failed(self):
        self.assertEqual(self.count(), ("0 passed, 1 failed", 1))

    def test_counts_a_run_without_results_as_failed(self):
        self.assertEqual(self.run_tool(self.folder), ("0 passed, 1 failed", 1))

    def test_counts_a_run_whose_results_are_cut_off_as_failed(self):
        (self.folder / "test-results.xml").write_text("<testsuite><testcase name=")
        self.assertEqual(self.run_tool(self.folder), ("0 passed, 1 failed", 1))

    def test_adds_steps_beside_the_tests(self):
        self.assertEqual(self.count(case("rule", ""), options=("--failed", "formatting")), ("1 passed, 1 failed", 1))


if __name__ == "__main__":
    unittest.main()
