"""The house rules, each on a small tree that violates it and on one that does not."""
import pathlib
import subprocess
import sys
import tempfile
import unittest

TOOL = pathlib.Path(__file__).resolve().parent.parent / "check-project"


OPENING = "// What it contains.\n// Main queue.\n"


class CheckProject(unittest.TestCase):
    def setUp(self):
        self._folder = tempfile.TemporaryDirectory()
        self.addCleanup(self._folder.cleanup)
        self.root = pathlib.Path(self._folder.name)

    def check(self, files, opening=True):
        for name, content in files.items():
            path = self.root / name
            path.parent.mkdir(parents=True, exist_ok=True)
            if opening and name.startswith("src/") and name.endswith(".cpp"):
                content = OPENING + content
            path.write_bytes(content if isinstance(content, bytes) else content.encode())
        result = subprocess.run([sys.executable, TOOL, "--root", self.root], capture_output=True, text=True, check=False)
        self.assertEqual(result.stderr, "")
        findings = [line for line in result.stdout.splitlines() if ": warning: " not in line]
        self.assertEqual(result.returncode, 1 if findings else 0)
        return result.stdout

    def assert_clean(self, files):
        self.assertEqual(self.check(files), "")

    def assert_finding(self, files, text):
        output = self.check(files)
        self.assertIn(text, output)
        self.assertEqual(len(output.splitlines()), 1, output)

    # Floors

    def test_lets_a_floor_include_the_floors_below(self):
        self.assert_clean({"src/archive/A.cpp": '#include "platform/usb/IOReturn.h"\n#include <openssl/hmac.h>\n'
                                                '#include "holven_log/HOLVEN_Log.h"\n#include "archive/A.h"\n',
                           "src/virtual_printer/A.cpp": '#include "protocol/TableFileName.h"\n',
                           "src/cli/List.cpp": '#include "usb/libusb/Bus.h"\n#include <CLI/CLI.hpp>\n'})

    def test_refuses_an_include_from_a_floor_above(self):
        self.assert_finding({"src/platform/A.cpp": '\n#include "archive/SRecord.h"\n'}, "src/platform/A.cpp:4: includes")

    def test_refuses_the_engine_in_the_virtual_printers(self):
        self.assert_finding({"src/virtual_printer/A.cpp": '#include "archive/SRecord.h"\n'}, "above it")

    def test_refuses_a_neighbour_that_is_not_named_from_the_source_folder(self):
        self.assert_finding({"src/cli/A.cpp": '#include "List.h"\n'}, "not named from src/")

    def test_refuses_the_usb_library_outside_its_bus(self):
        self.assert_finding({"src/Classes/A.cpp": "#include <libusb-1.0/libusb.h>\n"}, "does not belong on this floor")

    def test_refuses_qt_in_the_engine(self):
        self.assert_finding({"src/Classes/A.cpp": "#include <QString>\n"}, "does not belong on this floor")

    def test_refuses_a_heavy_include_in_a_header(self):
        self.assert_finding({"src/platform/A.h": "#pragma once\n#include <fmt/printf.h>\n"}, "is a header and includes")

    def test_takes_no_notice_of_an_include_in_a_comment(self):
        self.assert_clean({"src/platform/A.cpp": '// #include "Classes/A.h"\n'})

    def test_refuses_a_folder_that_has_no_floor(self):
        self.assert_finding({"src/misc/A.cpp": "int a;\n"}, "no row in the table of floors")

    # Openings

    def test_refuses_a_source_without_an_opening(self):
        for lines in ("", "// One line.\n", "// Too many.\n" * 7):
            with self.subTest(lines):
                output = self.check({"src/cli/A.cpp": lines + "int a;\n"}, opening=False)
                self.assertIn("src/cli/A.cpp:1: opens with", output)

    def test_lets_a_source_open_with_two_to_six_lines(self):
        for count in (2, 6):
            self.assertEqual(self.check({"src/cli/A.cpp": "// Why.\n" * count + "int a;\n"}, opening=False), "")

    # Lengths

    def test_refuses_a_long_file(self):
        self.assert_finding({"tests/A.cpp": "int a;\n" * 501}, "501 lines")

    def test_warns_of_a_file_that_grows_long(self):
        self.assertIn("tests/A.cpp:451: warning: 451 lines", self.check({"tests/A.cpp": "int a;\n" * 451}))

    def function(self, lines, head="void Printer::send(int a)", statement="    if (a) { call(); }"):
        return f"namespace zul {{\n{head} {{\n" + f"{statement}\n" * (lines - 2) + "}\n} // namespace zul\n"

    def test_refuses_a_long_function(self):
        self.assert_finding({"tests/A.cpp": self.function(61)}, "tests/A.cpp:2: void Printer::send(int a) has 61 lines")

    def test_lets_a_function_reach_the_limit(self):
        self.assert_clean({"tests/A.cpp": self.function(60) * 2})

    def test_refuses_a_long_function_whatever_its_head_and_its_texts(self):
        heads = ("Printer::Printer(int a)\n    : _a{a}, _b{2}", "template <typename T> T first(const T& a)",
                 'TEST_CASE("a brace { in a text that is "\n          "continued")',
                 "auto name(int a = f({1})) const noexcept -> int")
        for head in heads:
            with self.subTest(head):
                text = self.function(61, head, "    call('{', \"}\", 1'000); // }")
                self.assertIn(f"has {61 + head.count(chr(10))} lines", self.check({"tests/A.cpp": text}))

    def test_refuses_a_long_function_of_a_class(self):
        text = "struct A {\n    int a() {\n" + "        call();\n" * 59 + "    }\n\n    int b = 1;\n};\n"
        self.assert_finding({"tests/A.cpp": text}, "tests/A.cpp:2: int a() has 61 lines")

    def test_leaves_tables_and_classes_as_long_as_they_are(self):
        table = "constexpr auto kRows = std::to_array<Row>({\n" + '    {1, "one"},\n' * 200 + "});\n"
        self.assert_clean({"tests/A.cpp": table + "struct A {\n" + "    int a() { return 1; }\n" * 90 + "};\n"})

    def test_leaves_the_functions_of_the_sources_to_the_check_of_the_code(self):
        self.assert_clean({"src/cli/A.cpp": self.function(61)})

    def test_refuses_a_long_function_in_python(self):
        self.assert_finding({"tests/a.py": "def long():\n" + "    call()\n" * 60}, "long has 61 lines")

    # Words

    def test_refuses_words_that_point_outside_the_tree(self):
        for words in ("as the sp" + "ec says", "Sp" + "ecification", "see Part " + "4.1", "conflict C" + "04",
                      "the app" + "endix", "/wo" + "rk/main", "/tmp/bui" + "ld-x", "deb." + "debian.org"):
            for name in ("docs/a.md", "src/platform/A.cpp", "CMakeLists.txt"):
                with self.subTest(words=words, name=name):
                    self.assertIn('" ', self.check({name: f"// {words}\n"}))
                    (self.root / name).unlink()

    def test_refuses_such_a_word_in_a_file_name(self):
        self.assert_finding({"docs/printer-sp" + "ec.md": "text\n"}, "says where")

    def test_lets_ordinary_words_pass(self):
        self.assert_clean({"docs/a.md": "special, specific, unspecified, part of it, out of sp" + "ec, 0xC04, network/main, C++20\n"})

    def test_refuses_unfinished_work_without_a_reason(self):
        self.assert_finding({"src/cli/A.cpp": "// TO" + "DO\n"}, "without a reason")

    def test_lets_unfinished_work_with_a_reason_pass(self):
        self.assert_clean({"src/cli/A.cpp": "// TO" + "DO: wait for the window's own outlet\n"})

    # Tests, headers, binaries

    def test_refuses_sleeping_in_unit_and_flow_tests(self):
        for name in ("tests/unit/A.cpp", "tests/flow/A.cpp"):
            with self.subTest(name):
                self.assertIn("sleeps", self.check({name: "void f() { std::this_thread::sleep_for(1s); }\n"}))

    def test_lets_the_simulated_clock_and_program_tests_sleep(self):
        self.assert_clean({"tests/unit/A.cpp": "void f() { clock.sleepFor(1s); } // no sleep() here\n",
                           "tests/program/a.py": "time.sleep(1)\n"})

    def test_refuses_a_header_that_can_be_included_twice(self):
        self.assert_finding({"tests/A.h": "int a();\n"}, "tests/A.h:1: is a header without #pragma once")

    def test_wants_the_queue_in_headers_of_the_engine(self):
        self.assert_finding({"src/Classes/A.h": "#pragma once\nint a();\n"}, "on which queue")

    def test_takes_a_header_that_says_its_queue(self):
        self.assert_clean({"src/Classes/A.h": "#pragma once\n// Any thread.\nint a();\n"})

    def test_leaves_builds_out_where_git_cannot_tell(self):
        self.assert_clean({"build/a.png": b"\0", "build-asan/b.cpp": "// TO" + "DO\n", ".git/index": b"\0",
                           "tools/__pycache__/a.pyc": b"\0"})

    def test_refuses_binary_files(self):
        self.assert_finding({"resources/a.png": b"\x89PNG\0\1"}, "binary file")


if __name__ == "__main__":
    unittest.main()
