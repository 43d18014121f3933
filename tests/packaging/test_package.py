"""script/package, on tools that only note how they were called."""

import os
import pathlib
import plistlib
import re
import shutil
import subprocess
import xml.etree.ElementTree

import pytest

from packaging_harness import ROOT

RECORDER = pathlib.Path(__file__).resolve().parent / "recording_tool"
TOOLS = ("codesign", "ditto", "hdiutil", "lipo", "pkgbuild", "plutil", "productbuild",
         "productsign", "spctl", "uname", "xattr", "xcrun")
IDENTITIES = {"PELLIX_APPLICATION_IDENTITY": "Developer ID Application: Velmor (ABCDE12345)",
              "PELLIX_INSTALLER_IDENTITY": "Developer ID Installer: Velmor (ABCDE12345)"}
NOTARISED = IDENTITIES | {"PELLIX_NOTARY_PROFILE": "velmor"}
GUARD = "-DVELMOR_GUARD=/somewhere/velmor-guard"
BUILD = """#!/bin/bash
printf '%q ' script/build "$@" | sed 's/ $/\\n/' >>"$CALLS"
mkdir -p "build/Velmor Pellix.app/Contents/Resources"
touch "build/Velmor Pellix.app/Contents/Resources/velmor-guard"
"""


class Tree:
    """The parts of the repository that packaging needs, with a build that builds nothing."""

    def __init__(self, folder):
        self.folder = folder
        self.calls_path = folder / "calls"
        for part in ("packaging", "script/package", "CMakeLists.txt", "install/Paths.h",
                     "app/AppDelegate.cpp", "resources/macos/Info.plist.in"):
            (folder / part).parent.mkdir(parents=True, exist_ok=True)
            copy = shutil.copytree if (ROOT / part).is_dir() else shutil.copy
            copy(ROOT / part, folder / part)
        (folder / "script/build").write_text(BUILD)
        (folder / "script/build").chmod(0o755)
        (folder / "bin").mkdir()
        for name in TOOLS:
            (folder / "bin" / name).symlink_to(RECORDER)

    def package(self, *arguments, variables=None):
        inherited = {name: value for name, value in os.environ.items()
                     if not name.startswith("PELLIX_")}
        environment = inherited | {"PATH": f"{self.folder / 'bin'}:/usr/bin:/bin",
                                   "CALLS": str(self.calls_path)} | (variables or {})
        return subprocess.run([self.folder / "script/package", *arguments], env=environment,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, text=True, check=False)

    def calls(self):
        """The command lines, but for the question what system this is."""
        if not self.calls_path.exists():
            return []
        return [line for line in self.calls_path.read_text().splitlines() if line != "uname"]


@pytest.fixture
def tree(tmp_path):
    return Tree(tmp_path / "a tree")


def printed_commands(result):
    """The commands of a dry run that are recorded when they run."""
    return [line for line in result.stdout.splitlines()
            if line.split(" ")[0] in (*TOOLS, "script/build")]


def commands(tree, variables):
    result = tree.package("--dry-run", GUARD, variables=variables)
    assert result.returncode == 0, result.stderr
    return printed_commands(result)


def position(lines, *words):
    [found] = [number for number, line in enumerate(lines) if all(word in line for word in words)]
    return found


@pytest.mark.parametrize("variables", [{}, IDENTITIES, NOTARISED],
                         ids=["unsigned", "signed", "notarised"])
def test_a_run_does_what_the_dry_run_prints(tree, variables):
    dry_run = tree.package("--dry-run", GUARD, "-DX=a b", variables=variables)
    assert tree.calls() == [] and not (tree.folder / "build").exists()
    result = tree.package(GUARD, "-DX=a b", variables=variables)
    assert (result.returncode, result.stderr) == (0, "")
    assert tree.calls() == printed_commands(dry_run)
    assert sorted(path.name for path in (tree.folder / "build/package").iterdir()) == [
        "VelmorPellix-1.0.0.dmg", "VelmorPellix-1.0.0.pkg", "VelmorPellix.mobileconfig", "uninstall"]


def test_a_dry_run_works_on_any_machine(tree):
    shutil.rmtree(tree.folder / "bin")
    assert commands(tree, NOTARISED)
    assert tree.package("--dry-run").returncode == 0


def test_a_run_needs_a_mac(tree):
    (tree.folder / "bin/uname").unlink()
    result = tree.package(GUARD)
    assert result.returncode == 1 and "needs a Mac" in result.stderr
    assert tree.calls() == []


def test_the_service_is_signed_before_the_application_that_holds_it(tree):
    signed = [line.rpartition("/")[2] for line in commands(tree, IDENTITIES)
              if line.startswith("codesign --force")]
    assert signed == ["velmor-guard", "Velmor\\ Pellix.app"]


def test_what_is_signed_was_cleaned_and_checked_before(tree):
    lines = commands(tree, IDENTITIES)
    first_signature = min(number for number, line in enumerate(lines) if line.startswith("codesign"))
    for words in (("xattr -cr",), ("lipo", "MacOS/Velmor\\ Pellix", "-verify_arch arm64 x86_64"),
                  ("lipo", "velmor-guard", "-verify_arch arm64 x86_64")):
        assert position(lines, *words) < first_signature


def test_both_programs_are_hardened_time_stamped_and_without_entitlements_of_ours(tree):
    signing = [line for line in commands(tree, IDENTITIES) if "codesign --force" in line]
    assert len(signing) == 2
    for line in signing:
        assert "--options runtime --timestamp --sign Developer\\ ID\\ Application" in line
        assert "--entitlements" not in line


def test_the_application_is_stapled_before_it_is_packed(tree):
    lines = commands(tree, NOTARISED)
    stapled = position(lines, "stapler staple", "Pellix.app")
    assert position(lines, "notarytool submit", "application.zip") < stapled
    assert stapled < position(lines, "pkgbuild") and stapled < position(lines, "hdiutil")


@pytest.mark.parametrize("made_by, file", [("productsign", ".pkg"), ("codesign", ".dmg")])
def test_what_is_handed_out_is_signed_then_notarised_then_stapled(tree, made_by, file):
    lines = commands(tree, NOTARISED)
    steps = [position(lines, made_by, "--sign", file), position(lines, "notarytool submit", file),
             position(lines, "stapler staple", file)]
    assert steps == sorted(steps)


def test_without_identities_the_package_is_unsigned_and_that_is_said(tree):
    result = tree.package(GUARD)
    assert "UNSIGNED" in result.stdout and "NOT NOTARISED" in result.stdout
    calls = tree.calls()
    assert not [line for line in calls if line.startswith(("productsign", "xcrun", "spctl"))]
    assert all("--sign -" in line for line in calls if line.startswith("codesign --force"))


def test_a_complete_package_gives_no_warning(tree):
    result = tree.package(GUARD, variables=NOTARISED)
    assert "UNSIGNED" not in result.stdout and "NOT NOTARISED" not in result.stdout


@pytest.mark.parametrize("arguments, variables", [
    ((), {}),
    (("-DVELMOR_GUARD=",), {}),
    (("-DVELMOR_GUARD=", "-DX=1"), {}),
    ((GUARD,), {"PELLIX_INSTALLER_IDENTITY": "i"}),
    ((GUARD,), {"PELLIX_NOTARY_PROFILE": "n"}),
    ((GUARD,), {"PELLIX_NOTARY_PROFILE": "n", "PELLIX_APPLICATION_IDENTITY": "a"}),
])
def test_what_cannot_succeed_is_refused_before_anything_is_built(tree, arguments, variables):
    result = tree.package(*arguments, variables=variables)
    assert result.returncode == 1 and result.stderr and tree.calls() == []


@pytest.mark.parametrize("tool", [tool for tool in TOOLS if tool not in ("uname", "spctl")])
def test_a_failing_step_is_the_last(tree, tool):
    result = tree.package(GUARD, variables=NOTARISED | {"FAILS": tool})
    assert result.returncode != 0
    assert tree.calls()[-1].startswith(tool)
    assert "== done" not in result.stdout


def test_the_profile_is_bound_to_the_signing_team(tree):
    tree.package(GUARD, variables=IDENTITIES)
    profile = (tree.folder / "build/package/VelmorPellix.mobileconfig").read_bytes()
    assert profile.count(b"<string>ABCDE12345</string>") == 2


def test_the_parts_of_the_package_agree():
    script = (ROOT / "script/package").read_text()
    cmake = (ROOT / "CMakeLists.txt").read_text()
    identifier = re.search(r"^identifier=(.+)$", script, re.MULTILINE)[1]
    name = re.search(r'^name="(.+)"$', script, re.MULTILINE)[1]
    info = plistlib.loads((ROOT / "resources/macos/Info.plist.in").read_bytes())
    [component] = plistlib.loads((ROOT / "packaging/macos/components.plist").read_bytes())
    distribution = xml.etree.ElementTree.parse(ROOT / "packaging/macos/Distribution.xml")
    assert name == info["CFBundleName"] == info["CFBundleExecutable"]
    assert component["RootRelativeBundlePath"] == f"{name}.app"
    assert component["BundleIsRelocatable"] is False
    assert {each.get("id") for each in distribution.iter("pkg-ref")} == {identifier}
    assert [each.text for each in distribution.iter("pkg-ref") if each.text] == ["component.pkg"]
    assert distribution.find("options").get("hostArchitectures") == "arm64,x86_64"
    [oldest] = distribution.iter("os-version")
    assert oldest.get("min") == re.search(r"DEPLOYMENT_TARGET ([\d.]+)", cmake)[1]
    assert f" {identifier}\"\n" in (ROOT / "packaging/macos/uninstall").read_text()
