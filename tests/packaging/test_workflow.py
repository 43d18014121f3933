"""What a build Mac needs is named, and what runs on other people's machines cannot be replaced there."""

import os
import re
import subprocess

import pytest
import yaml

from packaging_harness import ROOT

GTEST = "lib/cmake/GTest/GTestConfig.cmake"


class BuildMac:
    """A Mac with Xcode's tools, and with Homebrew's in a folder of their own."""

    def __init__(self, folder):
        self.tools, self.prefix, self.brewed = folder / "bin", folder / "homebrew", folder / "brewed"
        self.tools.mkdir()
        self.tool("uname", "echo Darwin")
        self.tool("xcode-select", "true")
        self.tool("brew", f'echo "$@" >"{self.brewed}"')
        for name in ("bash", "dirname"):
            (self.tools / name).symlink_to(f"/usr/bin/{name}")

    def tool(self, name, text="true"):
        (self.tools / name).write_text(f"#!/bin/bash\n{text}\n")
        (self.tools / name).chmod(0o755)

    def googletest(self, prefix):
        (prefix / GTEST).parent.mkdir(parents=True)
        (prefix / GTEST).touch()

    def bootstrap(self, **variables):
        environment = {"PATH": str(self.tools), "HOMEBREW_PREFIX": str(self.prefix)} | variables
        result = subprocess.run([ROOT / "script/bootstrap"], env=environment, check=False, text=True,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        return result.returncode, result.stdout + result.stderr


@pytest.fixture
def build_mac(tmp_path):
    return BuildMac(tmp_path)


def test_all_that_is_missing_is_named_at_once(build_mac):
    assert build_mac.bootstrap() == (1, "Missing: run 'brew install cmake ninja googletest'.\n")
    assert not build_mac.brewed.exists()


@pytest.mark.parametrize("through", ["HOMEBREW_PREFIX", "CMAKE_PREFIX_PATH"])
def test_googletest_is_found_where_cmake_finds_it(build_mac, tmp_path, through):
    for name in ("cmake", "ninja"):
        build_mac.tool(name)
    assert build_mac.bootstrap() == (1, "Missing: run 'brew install googletest'.\n")
    build_mac.googletest(tmp_path / "some where")
    assert build_mac.bootstrap(**{through: f"{tmp_path / 'some where'}"}) == (0, "")


def test_a_runner_gets_what_it_lacks_and_nothing_else(build_mac):
    build_mac.tool("cmake")
    build_mac.bootstrap(CI="true")
    assert build_mac.brewed.read_text() == "install ninja googletest\n"


def test_the_missing_tools_of_xcode_come_first(build_mac):
    build_mac.tool("xcode-select", "exit 2")
    assert build_mac.bootstrap()[0] == 1 and "xcode-select --install" in build_mac.bootstrap()[1]


def workflows():
    return sorted((ROOT / ".github/workflows").iterdir())


def steps():
    for path in workflows():
        for job in yaml.safe_load(path.read_text())["jobs"].values():
            yield from job["steps"]


def test_actions_are_pinned_by_commit_and_say_which_version_that_is():
    used = [step["uses"] for step in steps() if "uses" in step]
    assert used and all(re.fullmatch(r"[\w-]+/[\w-]+@[0-9a-f]{40}", each) for each in used)
    for path in workflows():
        for line in path.read_text().splitlines():
            assert "uses:" not in line or re.search(r"@[0-9a-f]{40} # v\d+\.\d+\.\d+$", line)


def test_what_is_checked_out_holds_no_token_for_what_runs_there():
    checked_out = [step for step in steps() if step.get("uses", "").startswith("actions/checkout@")]
    assert checked_out and all(step["with"]["persist-credentials"] is False for step in checked_out)


def test_what_the_workflow_runs_is_there():
    commands = [step["run"] for step in steps() if step.get("run", "").startswith(("script/", ".ci/"))]
    assert "script/check-macos" in commands and "script/check-package" in commands
    assert all(os.access(ROOT / command, os.X_OK) for command in commands)
