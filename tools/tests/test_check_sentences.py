"""tools/check-sentences on small headers."""
import importlib.util
import pathlib
import subprocess
import sys
import tempfile
import unittest

TOOL = pathlib.Path(__file__).resolve().parent.parent / "check-sentences"


@unittest.skipUnless(importlib.util.find_spec("clang"), "needs python3-clang-19 (tools/install-packages lint)")
class CheckSentences(unittest.TestCase):
    def check(self, *lines, folder="Classes"):
        with tempfile.TemporaryDirectory() as name:
            root = pathlib.Path(name).resolve()
            for made in ("Classes", folder):
                (root / "src" / made).mkdir(parents=True, exist_ok=True)
            (root / "src/Classes/Good.h").write_text("#pragma once\n/// Starts.\nvoid good();\n")
            (root / "src" / folder / "A.h").write_text("// What it contains.\n#pragma once\n\n" + "\n".join(lines) + "\n")
            result = subprocess.run([sys.executable, TOOL, "--root", root], capture_output=True, text=True, check=False)
        self.assertEqual(result.stderr, "")
        self.assertEqual(result.returncode, 1 if result.stdout else 0)
        return result.stdout.splitlines()

    def assert_missing(self, name, line, *lines):
        self.assertEqual(self.check(*lines), [f"src/Classes/A.h:{line}: {name} has no sentence of its own"])

    def in_class(self, *lines):
        return ["class A {", "  public:", *lines, "", "  private:", "    int secret();", "};"]

    def test_accepts_a_comment_above_or_on_the_line(self):
        self.assertEqual(self.check(*self.in_class("    /// Waits.", "    int a();", "", "    int b(); // waits")), [])

    def test_refuses_an_operation_without_a_comment(self):
        self.assert_missing("a", 6, *self.in_class("    int a();"))
        self.assert_missing("a", 4, "void a();")
        self.assert_missing("a", 4, "template <class T> void a(T value);")

    def test_counts_a_comment_for_the_group_below_it(self):
        self.assertEqual(self.check(*self.in_class("    /// Wait.", "    int a();", "    int b() {", "        return 1;", "    }",
                                                   "    int c();")), [])

    def test_ends_a_group_at_a_blank_line(self):
        self.assert_missing("b", 9, *self.in_class("    /// Waits.", "    int a();", "", "    int b();"))

    def test_wants_more_than_the_title_of_a_section(self):
        self.assert_missing("a", 8, *self.in_class("    // ---- Life ----", "", "    int a();"))

    def test_takes_no_comment_of_a_body_for_a_sentence(self):
        self.assert_missing("a", 6, *self.in_class("    int a() {", "        return 1; // waits", "    }"))

    def test_wants_no_sentence_where_the_language_has_it(self):
        self.assertEqual(self.check(*self.in_class("    A();", "", "    A(const A&) = delete;", "", "    ~A();", "",
                                                   "    A& operator=(const A&) = default;", "", "    bool operator==(int) const;")), [])

    def test_wants_no_sentence_for_an_override(self):
        self.assertEqual(self.check("struct Base {", "    /// Waits.", "    virtual int a();", "};", "struct A : Base {",
                                    "    int a() override;", "};"), [])

    def test_leaves_out_what_is_not_public(self):
        self.assertEqual(self.check("class A {", "    int a();", "    struct B {", "        int b();", "    };", "};"), [])

    def test_leaves_out_the_other_folders(self):
        self.assertEqual(self.check("void a();", folder="cli"), [])

    def test_refuses_a_header_that_does_not_compile(self):
        self.assertEqual(self.check("Unknown a();"), ["src/Classes/A.h:4: unknown type name 'Unknown'"])


if __name__ == "__main__":
    unittest.main()
