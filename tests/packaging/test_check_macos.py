"""script/check-macos, on tools that stand for those of a Mac."""

import os
import subprocess

import pytest

from packaging_harness import ROOT

TOOLS = {
    "uname": "echo Darwin",
    "cmake": "", "codesign": "", "ctest": "", "launchctl": "", "lipo": "", "plutil": "", "xattr": "",
    "sleep": "exec /bin/sleep 0.1",
    # The settings of a domain are a file; so is the report of leaks, with its exit status before it.
    "defaults": """
        file="$HOME/Library/Preferences/$2"
        case $1 in
          read) cat "$file" ;;
          write) echo "{ $3 = $5; }" >"$file" ;;
          delete) rm "$file" ;;
        esac""",
    "leaks": """
        tail -n +2 "$HOME/../leaks"
        exit "$(head -n 1 "$HOME/../leaks")" """,
}
PROJECT = {
    "script/build": "",
    "script/check-service": "",
    "standin/velmor-guard": "echo GET /status.json; exec /bin/sleep 60",
    "build/Velmor Pellix.app/Contents/MacOS/Velmor Pellix": """
        support="$HOME/Library/Application Support/VelmorPellix"
        mkdir "$support"
        echo '{}' >"$support/managed.json"
        echo >"$support/velmor-guard"
        chmod 755 "$support/velmor-guard"
        touch "$HOME/Library/LaunchAgents/com.velmor.pellix.plist"
        exec /bin/sleep 60""",
}

REPORT = """leaks Report Version: 4.0, multi-line stacks
Process 42: 189 nodes malloced for 12 KB
Process 42: 2 leaks for 96 total leaked bytes.

STACK OF 1 INSTANCE OF 'ROOT LEAK: <malloc in CFHost>':
3   dyld                                  0x7fff20348 start + 1909
2   contract_tests                        0x104d28498 main + 56
1   contract_tests                        0x104d29000 testing::UnitTest::Run() + 12
0   libsystem_malloc.dylib                0x18c5c4178 malloc + 152
====
    1 (32 bytes) ROOT LEAK: <malloc in CFHost 0x600003> [32]

STACK OF 1 INSTANCE OF 'ROOT CYCLE: <NSTimer>':
2   contract_tests                        0x104d28498 main + 56
1   {}
0   libsystem_malloc.dylib                0x18c5c4178 malloc + 152
====
    1 (64 bytes) ROOT CYCLE: <NSTimer 0x600004> [64]

Binary Images:
    0x104d28000 - 0x104e00000 contract_tests platform::Images
"""
SYSTEMS = REPORT.format("CFNetwork  0x104d30000 platform::theirs() + 4")


class Tree:
    def __init__(self, folder):
        self.folder = folder
        self.home = folder / "home"
        self.support = self.home / "Library/Application Support/VelmorPellix"
        self.preferences = self.home / "Library/Preferences"
        for path in (self.support.parent, self.preferences, folder / "bin", folder / "temporary"):
            path.mkdir(parents=True)
        for name, text in TOOLS.items():
            self.add(f"bin/{name}", text)
        for name, text in PROJECT.items():
            self.add(name, text)
        self.add("script/check-macos", (ROOT / "script/check-macos").read_text(encoding="utf-8"))
        self.report(0, "Process 42: 0 leaks for 0 total leaked bytes.\n")

    def add(self, name, text):
        path = self.folder / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text if text.startswith("#!") else f"#!/bin/bash\n{text}\n", encoding="utf-8")
        path.chmod(0o755)

    def report(self, status, text):
        (self.folder / "leaks").write_text(f"{status}\n{text}", encoding="utf-8")

    def check(self):
        environment = {"HOME": str(self.home), "PATH": f"{self.folder / 'bin'}:/usr/bin:/bin",
                       "TMPDIR": str(self.folder / "temporary")}
        return subprocess.run([self.folder / "script/check-macos"], env=environment, timeout=120,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, text=True, check=False)

    def left(self):
        """The files that the check left in the home folder and elsewhere."""
        return sorted(os.path.join(folder, name)[len(str(self.folder)) + 1:]
                      for top in (self.home, self.folder / "temporary")
                      for folder, _, names in os.walk(top) for name in names)


@pytest.fixture
def tree(tmp_path):
    return Tree(tmp_path / "a tree")


def failure(result):
    assert result.returncode == 1
    assert "Held:" not in result.stdout
    return result.stderr


def test_the_last_line_says_what_held(tree):
    result = tree.check()
    assert (result.returncode, result.stderr) == (0, "")
    assert result.stdout.splitlines()[-1] == (
        "Held: the application builds for arm64 and x86_64; unit and contract tests pass; the "
        "stand-in keeps the contract of a service; no leak is "
        "ours (in all 0 leaks for 0 bytes); it started, installed the service and asked for the "
        "status.")
    assert tree.left() == []


def test_what_the_system_leaks_is_not_counted(tree):
    tree.report(1, SYSTEMS)
    result = tree.check()
    assert (result.returncode, result.stderr) == (0, "")
    assert "no leak is ours (in all 2 leaks for 96 bytes)" in result.stdout.splitlines()[-1]


@pytest.mark.parametrize("frame", ["platform::Timer::scheduledTimer(double, bool) + 8  Timer.mm:24",
                                   "invocation function for block in pellix::refresh() + 8",
                                   "-[PellixActionTarget perform:] + 8"])
def test_a_leak_with_a_frame_of_ours_fails(tree, frame):
    tree.report(1, REPORT.format(f"contract_tests   0x104d30000 {frame}"))
    result = tree.check()
    assert failure(result).endswith("The product leaks.\n")
    assert frame in result.stderr and "NSTimer" in result.stderr
    assert "CFHost" not in result.stderr and "Images" not in result.stderr
    assert tree.left() == []


@pytest.mark.parametrize("status, text, message", [
    (1, "Process 42: 1 leak for 32 total leaked bytes.\n", "Nobody can tell whose leaks"),
    (1, "leaks cannot examine process 42\n", "The leaks could not be counted."),
    (2, "Process 42: 0 leaks for 0 total leaked bytes.\n", "The leaks could not be counted.")])
def test_leaks_that_cannot_be_told_apart_fail(tree, status, text, message):
    tree.report(status, text)
    assert message in failure(tree.check())


def test_tests_that_leave_preferences_fail(tree):
    tree.add("bin/ctest", f"echo '{{ contract_bool = 1; }}' >'{tree.preferences}/contract_tests'")
    assert failure(tree.check()) == "The tests left preferences behind.\n"


@pytest.mark.parametrize("path", ["Library/Application Support/VelmorPellix/managed.json",
                                  "Library/Preferences/com.velmor.pellix.app"])
def test_what_is_in_use_is_left_alone(tree, path):
    (tree.home / path).parent.mkdir(exist_ok=True)
    (tree.home / path).write_text("{ port = 9000; }", encoding="utf-8")
    assert "here" in failure(tree.check())
    assert tree.left() == [f"home/{path}"]


def test_an_application_that_does_not_survive_fails(tree):
    tree.add("build/Velmor Pellix.app/Contents/MacOS/Velmor Pellix", "exit 1")
    assert "did not survive" in failure(tree.check())
    assert tree.left() == []
