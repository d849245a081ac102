"""./run, ./test, .ci/run and tools/install-packages, on a copy of the scripts with stubs for the tools that they call."""
import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

TOP = pathlib.Path(__file__).resolve().parent.parent.parent

# Each stub records how it was called.
NOTE = '#!/bin/sh\necho "${0##*/} $*" >>"$CALLS"\n'
CMAKE = NOTE + '''echo "noise of the build"
[ "${FAIL:-}" != "$*" ] || { echo "error of the build"; exit 2; }
case " $* " in *" --build "*) mkdir -p build/bin
    printf '#!/bin/sh\\necho "zulctl in $PWD: $*"\\nexit ${EXIT:-0}\\n' >build/bin/zulctl
    chmod +x build/bin/zulctl ;; esac
'''
CTEST = NOTE + '''[ "$2" != kernel ] || VERDICT=${VERDICT_OF_KERNEL:-run}
while [ $# -gt 0 ]; do [ "$1" != --output-junit ] || file=$2; shift; done
echo "9 passed, 0 failed"
cat >"$file" <<END
<testsuite><testcase name="unit" status="${VERDICT:-run}"><system-out>ok 1
ok 2</system-out></testcase></testsuite>
END
[ "${VERDICT:-run}" = run ] || exit 8
'''
# The installed packages are those in the file; apt-get can install any.
DPKG = '#!/bin/sh\nfor last; do :; done\n! grep -qx "$last\\|all" "$INSTALLED" || printf installed\n'
APT = NOTE + '''echo "noise of apt"
case " $* " in *" install "*) [ -z "${APT_FAILS:-}" ] || { echo "no such package"; exit 100; }; echo all >>"$INSTALLED" ;; esac
'''


class Scripts(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.base = pathlib.Path(folder.name).resolve()
        self.tree, programs = self.base / "a tree", self.base / "programs"
        for name in ("tools", ".ci"):
            shutil.copytree(TOP / name, self.tree / name, ignore=shutil.ignore_patterns("tests", "__pycache__"))
        for name in ("run", "test"):
            shutil.copy2(TOP / name, self.tree / name)
        (self.tree / "src/cli").mkdir(parents=True)
        (self.tree / "src/cli/A.cpp").write_text("// What it contains.\n// Main queue.\n")
        programs.mkdir()
        for name, text in {"cmake": CMAKE, "ctest": CTEST, "dpkg-query": DPKG, "apt-get": APT, "id": "#!/bin/sh\necho 0\n",
                           "clang-format-14": NOTE, "clang-tidy-19": NOTE, "git": "#!/bin/sh\n"}.items():
            (programs / name).write_text(text)
            (programs / name).chmod(0o755)
        self.calls_file, self.installed, self.lists = self.base / "calls", self.base / "installed", self.base / "lists"
        self.calls_file.touch()
        self.installed.write_text("all\n")
        self.lists.mkdir()
        (self.lists / "mirror_Packages").touch()
        self.environment = {"PATH": f"{programs}:{os.environ['PATH']}", "CALLS": str(self.calls_file),
                            "INSTALLED": str(self.installed), "ZUL_APT_LISTS": str(self.lists), "HOME": str(self.base)}

    def start(self, *arguments, where=None, **environment):
        return subprocess.run([self.tree / arguments[0], *arguments[1:]], capture_output=True, text=True, check=False,
                              stdin=subprocess.DEVNULL, cwd=where or self.base, env=self.environment | environment)

    def calls(self, program):
        return [line for line in self.calls_file.read_text().splitlines() if line.startswith(program + " ")]

    # ./run

    def test_run_updates_an_embedded_printer_when_there_is_no_display(self):
        result = self.start("run")
        self.assertEqual(result.returncode, 0)
        self.assertEqual(result.stdout, f"zulctl in {self.base}: --virtual VK14 update --agree --yes\n")
        self.assertIn("There is no display here", result.stderr)
        self.assertNotIn("noise", result.stderr)
        self.assertEqual(self.calls("apt-get"), [])

    def test_run_passes_arguments_and_the_exit_status_on(self):
        for _ in range(2):
            result = self.start("run", "--", "list", "a b", EXIT="6")
            self.assertEqual((result.returncode, result.stdout), (6, f"zulctl in {self.base}: list a b\n"))

    def window(self):
        (self.tree / "build/bin").mkdir(parents=True, exist_ok=True)
        window = self.tree / "build/bin/zul-printer-utility"
        window.write_text('#!/bin/sh\necho "window: $*"\n')
        window.chmod(0o755)

    def test_run_opens_the_window_where_there_is_a_display(self):
        self.window()
        self.assertEqual(self.start("run", DISPLAY=":0").stdout, "window: --virtual VK14\n")
        self.assertEqual(self.start("run", "--", "-v", WAYLAND_DISPLAY="w").stdout, "window: -v\n")

    def test_run_stays_in_the_terminal_without_a_display(self):
        self.window()
        result = self.start("run")
        self.assertIn("zulctl in", result.stdout)
        self.assertIn("There is no display here", result.stderr)

    def test_run_only_builds_when_told_so(self):
        result = self.start("run", "--build-only")
        self.assertEqual((result.returncode, result.stdout), (0, ""))
        self.assertEqual(len(self.calls("cmake")), 2)

    def test_run_shows_the_build_that_failed_and_starts_nothing(self):
        result = self.start("run", FAIL="--preset release")
        self.assertNotEqual(result.returncode, 0)
        self.assertIn("error of the build", result.stderr)
        self.assertEqual(result.stdout, "")

    def test_run_refuses_an_unknown_option(self):
        self.assertEqual(self.start("run", "--fast").returncode, 2)

    # ./test

    def last_line(self, result):
        self.assertEqual(sum(" passed, " in line and not line.startswith(" ") for line in result.stdout.splitlines()), 1)
        return result.stdout.splitlines()[-1]

    def test_test_ends_with_the_count(self):
        for _ in range(2):
            result = self.start("test")
            self.assertEqual((self.last_line(result), result.returncode), ("2 passed, 0 failed", 0))

    def test_test_fails_when_a_test_fails(self):
        result = self.start("test", VERDICT="fail")
        self.assertEqual((self.last_line(result), result.returncode), ("2 passed, 1 failed", 1))

    def test_test_counts_a_failed_build_and_not_the_run_before(self):
        self.start("test")
        result = self.start("test", FAIL="--preset release")
        self.assertEqual((self.last_line(result), result.returncode), ("0 passed, 1 failed", 1))
        self.assertIn("error of the build", result.stdout)

    def test_test_goes_on_without_the_packages_of_the_guest(self):
        self.installed.write_text("\n".join(
            "g++ cmake ninja-build ccache pkg-config gettext python3 doctest-dev libusb-1.0-0-dev libicu-dev libfmt-dev "
            "nlohmann-json3-dev libcli11-dev libssl-dev libsqlite3-dev libsystemd-dev qt6-base-dev "
            "qt6-svg-dev qt6-translations-l10n libxcb1-dev libumockdev-dev umockdev xvfb xauth openbox "
            "dbus fonts-dejavu-core fonts-vlgothic at-spi2-core gir1.2-atspi-2.0 python3-gi xdotool".split()))
        result = self.start("test", APT_FAILS="1")
        self.assertEqual((self.last_line(result), result.returncode), ("2 passed, 0 failed", 0))
        self.assertIn("what needs them is skipped", result.stderr)

    def test_test_fails_without_the_packages_of_the_build(self):
        self.installed.write_text("")
        result = self.start("test", APT_FAILS="1")
        self.assertEqual((self.last_line(result), result.returncode), ("0 passed, 1 failed", 1))
        self.assertEqual(self.calls("cmake"), [])

    # .ci/run

    def test_ci_counts_the_tests_of_every_build(self):
        result = self.start(".ci/run", CI="true")
        self.assertEqual((self.last_line(result), result.returncode), ("8 passed, 0 failed", 0))
        self.assertEqual(len(self.calls("ctest")), 4)

    def test_ci_shows_the_kernel_tests_in_one_piece(self):
        lines = self.start(".ci/run").stdout.splitlines()
        begin = lines.index("==> Testing (kernel)")
        self.assertEqual(lines[begin + 1:begin + 2], ["    9 passed, 0 failed"])
        self.assertIn("--label-exclude kernel", self.calls("ctest")[0])

    def test_ci_fails_when_only_the_kernel_tests_fail(self):
        result = self.start(".ci/run", VERDICT_OF_KERNEL="fail")
        self.assertEqual((self.last_line(result), result.returncode), ("8 passed, 1 failed", 1))

    def test_ci_goes_on_after_a_build_that_failed_and_fails(self):
        result = self.start(".ci/run", FAIL="--preset asan")
        self.assertEqual((self.last_line(result), result.returncode), ("6 passed, 1 failed", 1))

    def test_ci_fails_on_a_broken_house_rule(self):
        (self.tree / "picture.png").write_bytes(b"\0\1")
        result = self.start(".ci/run")
        self.assertEqual((self.last_line(result), result.returncode), ("8 passed, 1 failed", 1))

    # tools/install-packages

    def install(self, *arguments, **environment):
        return self.start("tools/install-packages", *arguments, **environment)

    def test_installs_only_what_is_missing(self):
        self.installed.write_text("lld-19\n")
        result = self.install("sanitizers")
        self.assertEqual((result.returncode, result.stdout), (0, "Installing: clang-19 libclang-rt-19-dev\n"))
        self.assertTrue(self.calls("apt-get")[0].endswith("install clang-19 libclang-rt-19-dev"))
        self.assertEqual(len(self.calls("apt-get")), 1)

    def test_says_nothing_when_everything_is_there(self):
        result = self.install("build", "test")
        self.assertEqual((result.returncode, result.stdout, result.stderr), (0, "", ""))

    def test_fetches_the_package_lists_first_when_there_are_none(self):
        (self.lists / "mirror_Packages").unlink()
        self.installed.write_text("")
        self.install("sanitizers")
        self.assertEqual([line.endswith(" update") for line in self.calls("apt-get")], [True, False])

    def test_fetches_the_package_lists_for_the_guest_even_when_nothing_is_missing(self):
        (self.lists / "mirror_Packages").unlink()
        self.assertEqual(self.install("build").stdout, "")
        self.assertEqual(self.install("kernel-test").returncode, 0)
        self.assertEqual([line.endswith(" update") for line in self.calls("apt-get")], [True])

    def test_tries_once_more_with_new_lists_and_then_says_what_apt_said(self):
        self.installed.write_text("")
        result = self.install("sanitizers", APT_FAILS="1")
        self.assertEqual(result.returncode, 1)
        self.assertIn("no such package", result.stderr)
        self.assertEqual(len(self.calls("apt-get")), 3)

    def test_refuses_an_unknown_group(self):
        self.assertEqual(self.install("everything").returncode, 2)


if __name__ == "__main__":
    unittest.main()
