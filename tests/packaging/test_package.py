"""script/package, on tools that only note how they were called."""

import hashlib
import json
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
TOOLS = ("codesign", "ditto", "git", "hdiutil", "lipo", "pkgbuild", "plutil", "productbuild",
         "productsign", "spctl", "uname", "xattr", "xcrun")
IDENTITIES = {"PELLIX_APPLICATION_IDENTITY": "Developer ID Application: Velmor (ZZZZZZZZZZ)",
              "PELLIX_INSTALLER_IDENTITY": "Developer ID Installer: Velmor (ZZZZZZZZZZ)"}
NOTARISED = IDENTITIES | {"PELLIX_NOTARY_PROFILE": "velmor"}
GUARD = "-DVELMOR_GUARD=/somewhere/velmor-guard"
SITE = "-DVELMOR_SITE_URL=https://trust.velmor.com"
COMMIT = "0123456789abcdef0123456789abcdef01234567"
MADE = ["SHA256SUMS", "VelmorPellix-1.0.0.cdx.json", "VelmorPellix-1.0.0.dSYM.zip",
        "VelmorPellix-1.0.0.dmg", "VelmorPellix-1.0.0.pkg", "VelmorPellix.mobileconfig",
        "com.velmor.pellix.app.json", "com.velmor.pellix.app.plist", "doctor", "release.json",
        "uninstall"]

# As CMake leaves it: a definition that is not given keeps the value of an earlier run.
BUILD = """#!/usr/bin/python3 -IS
import os, pathlib, re, subprocess, sys
with open(os.environ["CALLS"], "a") as calls:
    calls.write(subprocess.run(["bash", "-c", 'words=$(printf "%q " "$@"); echo "${words% }"', "-",
                                "script/build", *sys.argv[1:]], stdout=-1, text=True).stdout)
site = os.environ.get("CACHED_SITE", "https://intranet.velmor.example")
for each in sys.argv[1:]:
    if found := re.match("-DVELMOR_SITE_URL(:[A-Z]+)?=(.*)", each, re.DOTALL):
        site = found[2]
contents = pathlib.Path("build/Velmor Pellix.app/Contents")
for name in ("MacOS/Velmor Pellix", "Resources/velmor-guard"):
    (contents / name).parent.mkdir(parents=True, exist_ok=True)
    (contents / name).write_text(name)
info = pathlib.Path("resources/macos/Info.plist.in").read_text()
for name, value in (("PROJECT_VERSION", "1.0.0"), ("CMAKE_OSX_DEPLOYMENT_TARGET", "12.0"),
                    ("VELMOR_SITE_URL", site)):
    info = info.replace(f"@{name}@", value)
(contents / "Info.plist").write_text(info)
pathlib.Path("build/Velmor Pellix.app.dSYM").mkdir(exist_ok=True)
"""

# What the tools say, as their manuals and other people's logs have it.
BUILT_FOR = """build/velmor-guard (architecture {architecture}):
Load command 10
      cmd LC_BUILD_VERSION
  cmdsize 32
 platform {platform}
    minos {oldest}
      sdk 15.0
   ntools 1
     tool LD
  version 1115.7.3
Load command 11
      cmd LC_SOURCE_VERSION
  cmdsize 16
  version 0.0
"""
BUILT_FOR_LONG_AGO = """build/velmor-guard (architecture {architecture}):
Load command 8
      cmd LC_VERSION_MIN_MACOSX
  cmdsize 16
  version {oldest}
      sdk 10.14
"""
SIGNATURE = """Executable=/build/{program}
Identifier={identifier}
Format=app bundle with Mach-O universal (x86_64 arm64)
CodeDirectory v=20500 size=1234 flags=0x10000(runtime) hashes=28+7 location=embedded
Hash type=sha256 size=32
CandidateCDHash sha256={cdhash}
CandidateCDHashFull sha256={cdhash}000000000000000000000000
Hash choices=sha256
CMSDigest={cdhash}000000000000000000000000
CDHash={cdhash}
Signature size=9000
Authority=Developer ID Application: Velmor (ZZZZZZZZZZ)
Timestamp=21 Nov 2026 at 12:00:00
Info.plist entries=17
TeamIdentifier={team}
Runtime Version=15.0.0
Sealed Resources version=2 rules=13 files=2
"""
ENTITLEMENTS = ('<?xml version="1.0" encoding="UTF-8"?><!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" '
                '"https://www.apple.com/DTDs/PropertyList-1.0.dtd"><plist version="1.0"><dict><key>{}</key>'
                "<true/></dict></plist>")
ARCHITECTURES = ("arm64", "x86_64")
PROGRAMS = {"application": "com.velmor.pellix.app", "service": "com.velmor.pellix.velmor-guard"}


def a_uuid(program, architecture):
    digit = "1234"[(program == "service") + 2 * (architecture == "arm64")]
    return f"0000000{digit}-AAAA-BBBB-CCCC-0123456789AB"


def a_code_hash(program, architecture):
    return f"{len(program)}{len(architecture)}" * 20


def uuids(program, path):
    return "".join(f"UUID: {a_uuid(program, each)} ({each}) {path}\n" for each in ARCHITECTURES)


class Tree:
    """The parts of the repository that packaging needs, with a build that builds nothing."""

    def __init__(self, folder):
        self.folder = folder
        self.calls_path, self.answers = folder / "calls", folder / "answers"
        self.output = folder / "build/package"
        for part in ("packaging", "script/package", "CMakeLists.txt", "install/Paths.h",
                     "install/LaunchAgents.h", "app/AppDelegate.cpp", "platform/cocoa/CMakeLists.txt",
                     "resources/macos/Info.plist.in"):
            (folder / part).parent.mkdir(parents=True, exist_ok=True)
            copy = shutil.copytree if (ROOT / part).is_dir() else shutil.copy
            copy(ROOT / part, folder / part)
        (folder / "script/build").write_text(BUILD)
        (folder / "script/build").chmod(0o755)
        (folder / "bin").mkdir()
        for name in TOOLS:
            (folder / "bin" / name).symlink_to(RECORDER)
        (folder / "bin/sleep").symlink_to("/bin/true")
        self.answers.mkdir()
        self.answer("git-log", f"{COMMIT} 2026-11-21T13:00:00+00:00\n")
        self.answer("git-status", "")
        self.answer("uuids-application", uuids("application", "build/Velmor Pellix"))
        self.answer("uuids-symbols", uuids("application", "build/Velmor Pellix.app.dSYM/Contents"))
        self.answer("uuids-service", uuids("service", "build/velmor-guard"))
        self.answer("notary-submit", '{"status":"Accepted","id":"1-2-3","message":"Processing complete"}')
        self.answer("notary-log", '{"issues": "it bites"}')
        self.answer_for_all("entitlements-{architecture}", ENTITLEMENTS.format("com.velmor.own"))
        self.answer_for_all("build-{architecture}", BUILT_FOR, platform="MACOS", oldest="12.0")
        self.sign_as("ABCDE12345")

    def answer(self, name, text):
        (self.answers / name).write_text(text)

    def answer_for_all(self, name, text, **values):
        for architecture in ARCHITECTURES:
            self.answer(name.format(architecture=architecture),
                        text.format(architecture=architecture, **values))

    def sign_as(self, team):
        for program, identifier in PROGRAMS.items():
            for architecture in ARCHITECTURES:
                self.answer(f"signature-{program}-{architecture}", SIGNATURE.format(
                    program=program, identifier=identifier, team=team,
                    cdhash=a_code_hash(program, architecture)))

    def package(self, *arguments, variables=None, umask=0o022):
        inherited = {name: value for name, value in os.environ.items()
                     if not name.startswith("PELLIX_")}
        environment = inherited | {"PATH": f"{self.folder / 'bin'}:/usr/bin:/bin",
                                   "ANSWERS": str(self.answers),
                                   "CALLS": str(self.calls_path)} | (variables or {})
        return subprocess.run([self.folder / "script/package", *arguments], env=environment,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, text=True, check=False, umask=umask)

    def made(self):
        return sorted(path.name for path in self.output.iterdir())

    def calls(self, *beginning):
        """The command lines that begin so, but for the question what system this is."""
        if not self.calls_path.exists():
            return []
        return [line for line in self.calls_path.read_text().splitlines()
                if line != "uname" and line.startswith(beginning or "")]


@pytest.fixture
def tree(tmp_path):
    return Tree(tmp_path / "a tree")


def printed_commands(result):
    """The commands of a dry run that are recorded when they run, without where their output goes."""
    return [re.sub(r" 2?> \S+$", "", line) for line in result.stdout.splitlines()
            if line.split(" ")[0] in (*TOOLS, "script/build")]


def commands(tree, variables):
    result = tree.package("--dry-run", GUARD, SITE, variables=variables)
    assert result.returncode == 0, result.stderr
    return printed_commands(result)


def position(lines, *words):
    [found] = [number for number, line in enumerate(lines) if all(word in line for word in words)]
    return found


@pytest.mark.parametrize("variables", [{}, IDENTITIES, NOTARISED],
                         ids=["unsigned", "signed", "notarised"])
def test_a_run_does_what_the_dry_run_prints(tree, variables):
    if not variables:
        tree.sign_as("not set")
    dry_run = tree.package("--dry-run", GUARD, SITE, "-DX=a b", variables=variables)
    assert tree.calls() == [] and not (tree.folder / "build").exists()
    result = tree.package(GUARD, SITE, "-DX=a b", variables=variables)
    assert (result.returncode, result.stderr) == (0, "")
    assert tree.calls() == printed_commands(dry_run)
    assert tree.made() == MADE


@pytest.mark.parametrize("text", [
    "a b", "$(touch pwned)", "`touch pwned`", "; touch pwned", "'", '"', "\\", "a\nb", "*", "~", "-n", "--help=",
    "é 東京", "&& touch pwned", "%s%n", "!!", "#"])
def test_what_a_dry_run_prints_can_be_typed_whatever_the_options_hold(tree, text):
    options = [GUARD, SITE, f"-DX={text}"]
    printed = tree.package("--dry-run", *options).stdout
    line = printed.split("== build\n")[1].split("\n== stage")[0]
    typed = subprocess.run(["/bin/bash", "-c", line.replace("script/build", "printf '%s\\0'", 1)],
                           cwd=tree.folder, check=True, stdout=subprocess.PIPE, text=True)
    assert typed.stdout.split("\0")[:-1] == options
    assert not (tree.folder / "pwned").exists()


@pytest.mark.parametrize("text", ["$(touch pwned)", "`touch pwned`", "'; touch pwned; '", "-", "a\nb", "Velmor (ABC)"])
def test_identities_reach_the_tools_as_they_are(tree, text):
    variables = {name: text for name in NOTARISED}
    assert tree.package(GUARD, SITE, variables=variables).returncode == 0
    quoted = subprocess.run(["/bin/bash", "-c", 'printf %q "$1"', "-", text], check=True, text=True,
                            stdout=subprocess.PIPE).stdout
    assert f"--sign {quoted} --timestamp" in tree.calls("productsign")[0]
    assert all(f"--keychain-profile {quoted} " in line for line in tree.calls("xcrun notarytool submit"))
    assert not list(tree.folder.rglob("pwned"))


def test_a_dry_run_works_on_any_machine(tree):
    shutil.rmtree(tree.folder / "bin")
    assert commands(tree, NOTARISED)
    assert tree.package("--dry-run").returncode == 0


def test_a_run_needs_a_mac(tree):
    (tree.folder / "bin/uname").unlink()
    result = tree.package(GUARD, SITE)
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


def test_the_service_has_the_identifier_that_is_documented_whatever_it_says_of_itself(tree):
    [line] = [line for line in commands(tree, IDENTITIES) if line.startswith("codesign --force") and "guard" in line]
    assert f"--identifier {PROGRAMS['service']} " in line


def test_both_signatures_are_verified(tree):
    """To that of the application the service is a resource, whose own signature it does not look at."""
    lines = commands(tree, IDENTITIES)
    last_signature = max(number for number, line in enumerate(lines) if line.startswith("codesign --force"))
    for name in ("velmor-guard", "Velmor\\ Pellix.app"):
        [verified] = [number for number, line in enumerate(lines)
                      if line.startswith("codesign --verify --strict") and line.endswith(f"/{name}")]
        assert verified > last_signature


def test_a_tree_without_a_commit_fails_before_anything_is_signed(tree):
    result = tree.package(GUARD, SITE, variables=NOTARISED | {"FAILS": "git"})
    assert result.returncode != 0 and not tree.calls("codesign", "xcrun notarytool")


def test_a_disk_image_that_fails_says_why(tree):
    [line] = [line for line in commands(tree, {}) if line.startswith("hdiutil")]
    assert "-quiet" not in line  # which closes the standard error, too


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
    tree.sign_as("not set")
    result = tree.package(GUARD)
    assert "UNSIGNED" in result.stdout and "NOT NOTARISED" in result.stdout
    assert not tree.calls("productsign", "xcrun notarytool", "xcrun stapler", "spctl")
    assert all("--sign -" in line for line in tree.calls("codesign --force"))


def test_a_complete_package_gives_no_warning(tree):
    result = tree.package(GUARD, SITE, variables=NOTARISED)
    assert not re.search("^[A-Z]{2}[A-Z ]+:", result.stdout, re.MULTILINE)


KEY = {"PELLIX_NOTARY_KEY": "/dev/null", "PELLIX_NOTARY_KEY_ID": "KEY1", "PELLIX_NOTARY_ISSUER": "issuer"}


def without(variables, *names):
    return {name: value for name, value in variables.items() if name not in names}


@pytest.mark.parametrize("arguments, variables", [
    ((), {}),
    (("-DVELMOR_GUARD=",), {}),
    (("-DVELMOR_GUARD=", "-DX=1"), {}),
    ((GUARD, "-DVELMOR_GUARD="), {}),
    (("-DX=-DVELMOR_GUARD=/somewhere",), {}),
    ((GUARD,), {"PELLIX_INSTALLER_IDENTITY": "i"}),
    ((GUARD,), {"PELLIX_NOTARY_PROFILE": "n"}),
    ((GUARD,), {"PELLIX_NOTARY_PROFILE": "n", "PELLIX_APPLICATION_IDENTITY": "a"}),
    ((GUARD, SITE), KEY),
    ((GUARD, SITE), NOTARISED | KEY),
    ((GUARD, SITE), IDENTITIES | without(KEY, "PELLIX_NOTARY_KEY")),
    ((GUARD, SITE), IDENTITIES | without(KEY, "PELLIX_NOTARY_KEY_ID")),
    ((GUARD, SITE), IDENTITIES | {"PELLIX_NOTARY_ISSUER": "issuer"}),
    ((GUARD, SITE), IDENTITIES | KEY | {"PELLIX_NOTARY_KEY": "/no such key"}),
])
def test_what_cannot_succeed_is_refused_before_anything_is_built(tree, arguments, variables):
    result = tree.package(*arguments, variables=variables)
    assert result.returncode == 1 and result.stderr and tree.calls() == []


@pytest.mark.parametrize("guard", ["-DVELMOR_GUARD=/some where/velmor-guard",
                                   "-DVELMOR_GUARD:FILEPATH=/some where/velmor-guard"])
def test_a_service_may_be_given_with_or_without_its_type(tree, guard):
    assert tree.package(guard, SITE, variables=IDENTITIES).returncode == 0


@pytest.mark.parametrize("arguments", [
    ("-D", "X=1"), ("VELMOR_GUARD=/somewhere",), ("-DX",), ("-D=1",), ("--dryrun",), ("-G", "Ninja"), ("-UX",), ("",)], ids=str)
def test_what_the_build_refuses_is_refused(tree, arguments):
    (tree.folder / "script/build").write_bytes((ROOT / "script/build").read_bytes())
    built = subprocess.run([tree.folder / "script/build", GUARD, *arguments], check=False, text=True,
                           stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    assert built.returncode == 2
    for dry_run in ((), ("--dry-run",)):
        result = tree.package(*dry_run, GUARD, SITE, *arguments)
        assert (result.returncode, result.stdout) == (2, "")
        assert result.stderr == built.stderr.replace("script/build", "script/package")
    assert tree.calls() == []


@pytest.mark.parametrize("site", [
    "https://intranet.velmor.example", "https://example", "https://Example.COM", "https://a.b.example.net:8443",
    "https://example.org.", "https://wp.test", "https://wp.invalid..", "https://localhost:443",
    "https://wp.localhost", ""])
def test_what_is_for_an_example_is_not_signed(tree, site):
    for dry_run in ((), ("--dry-run",)):
        result = tree.package(*dry_run, GUARD, f"-DVELMOR_SITE_URL={site}", variables=IDENTITIES)
        assert result.returncode == 1 and "must know its site" in result.stderr
        result = tree.package(*dry_run, GUARD, SITE, f"-DVELMOR_SITE_URL:STRING={site}", variables=IDENTITIES)
        assert result.returncode == 1 and "must know its site" in result.stderr
    assert tree.calls() == []


@pytest.mark.parametrize("site", ["https://example.company.com", "https://myexample.com",
                                  "https://test.velmor.com", "https://example.com.velmor.com"])
def test_a_site_that_only_looks_like_an_example_is_signed(tree, site):
    result = tree.package(GUARD, f"-DVELMOR_SITE_URL={site}", variables=IDENTITIES)
    assert result.returncode == 0 and f"The site: {site}\n" in result.stdout


def test_nothing_is_signed_without_a_site_whatever_the_builds_cache_holds(tree):
    result = tree.package(GUARD, variables=IDENTITIES | {"CACHED_SITE": "https://other.velmor.com"})
    assert result.returncode == 1 and "VELMOR_SITE_URL" in result.stderr and tree.calls() == []


def test_the_site_that_counts_is_the_one_in_the_application(tree):
    (tree.folder / "script/build").write_text(BUILD.replace("sys.argv[1:]:", "[]:"))
    result = tree.package(GUARD, SITE, variables=IDENTITIES | {"CACHED_SITE": "https://other.velmor.com"})
    assert result.returncode == 1
    assert "built for https://other.velmor.com, not for https://trust.velmor.com" in result.stderr
    assert not tree.calls("codesign")


def test_a_dry_run_without_a_site_names_the_one_that_is_built_for_then(tree):
    result = tree.package("--dry-run", GUARD).stdout
    assert "The site: https://intranet.velmor.example\n" in result and "FOR AN EXAMPLE" in result


def test_an_unsigned_package_may_be_for_an_example_and_says_so(tree):
    tree.sign_as("not set")
    result = tree.package(GUARD)
    assert result.returncode == 0
    assert "The site: https://intranet.velmor.example\n" in result.stdout
    assert "FOR AN EXAMPLE" in result.stdout


@pytest.mark.parametrize("tool", [tool for tool in TOOLS if tool != "uname"])
def test_a_failing_step_is_the_last(tree, tool):
    result = tree.package(GUARD, SITE, variables=NOTARISED | {"FAILS": tool})
    assert result.returncode != 0
    assert tree.calls()[-1].startswith(tool)
    assert "== done" not in result.stdout


# The service is somebody else's.

def refusal(tree):
    """What is said of a service that is not fit to be shipped; nothing is packed then."""
    result = tree.package(GUARD, SITE, variables=IDENTITIES)
    assert result.returncode == 1 and not tree.calls("pkgbuild", "hdiutil", "xcrun notarytool")
    return result.stderr


def test_a_service_for_one_architecture_is_refused(tree):
    result = tree.package(GUARD, SITE, variables=IDENTITIES | {"FAILS": "lipo build/package/staging/root/"
                          "Applications/Velmor\\ Pellix.app/Contents/Resources/velmor-guard"})
    assert result.returncode == 1 and "not universal" in result.stderr
    assert not tree.calls("codesign")


@pytest.mark.parametrize("oldest", [("12.0", "11.5"), ("12.0.0", "2"), ("12", "10.15")])
@pytest.mark.parametrize("form", [BUILT_FOR, BUILT_FOR_LONG_AGO], ids=["now", "long ago"])
def test_a_service_for_the_oldest_system_or_older_is_taken(tree, form, oldest):
    for architecture, each in zip(ARCHITECTURES, oldest):
        tree.answer(f"build-{architecture}",
                    form.format(architecture=architecture, platform="MACOS", oldest=each))
    assert tree.package(GUARD, SITE, variables=IDENTITIES).returncode == 0


@pytest.mark.parametrize("form, oldest, architecture", [
    (BUILT_FOR, "12.0.1", "arm64"), (BUILT_FOR, "12.3", "x86_64"), (BUILT_FOR, "100.0", "arm64"),
    (BUILT_FOR_LONG_AGO, "13.0", "x86_64"), (BUILT_FOR_LONG_AGO, "26.0", "arm64")],
    ids=["patch", "minor", "three digits", "13", "26"])
def test_a_service_for_a_newer_system_is_refused(tree, form, oldest, architecture):
    tree.answer(f"build-{architecture}",
                form.format(architecture=architecture, platform="MACOS", oldest=oldest))
    assert f"needs macOS {oldest} ({architecture})" in refusal(tree)
    assert not tree.calls("codesign")


def test_what_is_for_macos_counts_of_a_service_for_several(tree):
    catalyst = BUILT_FOR.format(architecture="arm64", platform="MACCATALYST", oldest="15.0")
    tree.answer("build-arm64", catalyst + BUILT_FOR.format(architecture="arm64", platform="MACOS",
                                                           oldest="11.0"))
    assert tree.package(GUARD, SITE, variables=IDENTITIES).returncode == 0


@pytest.mark.parametrize("text", ["", BUILT_FOR.format(architecture="arm64", platform="IOS", oldest="9.0"),
                                  BUILT_FOR.format(architecture="arm64", platform="MACOS", oldest="?"),
                                  "cmd LC_SOURCE_VERSION\nversion 1.0\n"])
def test_a_service_that_is_not_for_macos_is_refused(tree, text):
    tree.answer("build-arm64", text)
    assert "does not say for which macOS" in refusal(tree)


@pytest.mark.parametrize("text, complaint", [
    ("", "no LC_UUID (arm64)"),
    (f"UUID: {a_uuid('service', 'arm64')} (arm64) x\n", "no LC_UUID (x86_64)"),
    (uuids("service", "x").replace(a_uuid("service", "x86_64"), "0" * 8 + "-0000-0000-0000-" + "0" * 12),
     "no LC_UUID (x86_64)"),
    (uuids("service", "x").replace(a_uuid("service", "arm64"), a_uuid("service", "x86_64")), "not its own"),
    (uuids("application", "x"), "not its own"),
], ids=["none", "one slice", "zeros", "the same twice", "the application's"])
def test_a_service_that_macos_cannot_tell_apart_is_refused(tree, text, complaint):
    tree.answer("uuids-service", text)
    assert complaint in refusal(tree)
    assert not tree.calls("codesign")


@pytest.mark.parametrize("architecture", ARCHITECTURES)
def test_a_service_that_anybody_could_debug_is_refused(tree, architecture):
    tree.answer(f"entitlements-{architecture}", ENTITLEMENTS.format("com.apple.security.get-task-allow"))
    assert f"get-task-allow ({architecture})" in refusal(tree)


def test_debug_information_of_another_build_is_refused(tree):
    tree.answer("uuids-symbols", uuids("application", "x").replace("AAAA", "DDDD"))
    assert "of another build" in refusal(tree)


# The notary.

def test_a_key_is_as_good_as_a_profile(tree):
    result = tree.package(GUARD, SITE, variables=IDENTITIES | KEY)
    assert result.returncode == 0 and "NOT NOTARISED" not in result.stdout
    submitted = tree.calls("xcrun notarytool submit")
    assert len(submitted) == 3
    assert all("--key /dev/null --key-id KEY1 --issuer issuer --wait" in line for line in submitted)


def test_the_key_of_one_person_has_no_issuer(tree):
    tree.package(GUARD, SITE, variables=IDENTITIES | without(KEY, "PELLIX_NOTARY_ISSUER"))
    assert tree.calls("xcrun notarytool") and not [line for line in tree.calls() if "--issuer" in line]


@pytest.mark.parametrize("answer, logged", [
    ('{"id":"1-2-3","status":"Invalid","message":"Processing complete"}', True),
    ('{"id":"1-2-3","status":"Rejected"}', True), ('{"id":"1-2-3","status":"In Progress"}', True),
    ('{"id":"1-2-3"}', True), ('{"message":"no"}', False), ("Error: HTTP status code: 401", False),
    ("", False)])
def test_a_refusal_of_the_notary_is_the_end_and_says_why(tree, answer, logged):
    tree.answer("notary-submit", answer)
    result = tree.package(GUARD, SITE, variables=NOTARISED)
    assert result.returncode == 1 and "The notary refused build/package/staging/application.zip" in result.stderr
    assert ("it bites" in result.stderr) == logged and answer in result.stderr
    assert tree.calls("xcrun notarytool log") == (
        ["xcrun notarytool log 1-2-3 --keychain-profile velmor"] if logged else [])
    assert not tree.calls("xcrun stapler", "pkgbuild")


@pytest.mark.parametrize("command", ["submit", "log"])
def test_a_notary_that_fails_is_a_refusal(tree, command):
    if command == "log":
        tree.answer("notary-submit", '{"id":"1-2-3","status":"Invalid"}')
    result = tree.package(GUARD, SITE, variables=NOTARISED | {"FAILS": f"xcrun notarytool {command}"})
    assert result.returncode == 1 and "The notary refused" in result.stderr


def test_a_ticket_that_comes_late_is_waited_for(tree):
    tree.answer("stapler-late", "")
    assert tree.package(GUARD, SITE, variables=NOTARISED).returncode == 0
    app, again, *others = tree.calls("xcrun stapler")
    assert app == again and len(others) == 2


def test_a_ticket_that_never_comes_is_not_waited_for_for_ever(tree):
    result = tree.package(GUARD, SITE, variables=NOTARISED | {"FAILS": "xcrun stapler"})
    assert result.returncode == 1 and "no ticket" in result.stderr
    assert len(tree.calls("xcrun stapler")) == 10 and not tree.calls("pkgbuild")


# Team and evidence.

def test_the_profile_is_bound_to_the_team_of_the_signature_not_of_the_identitys_name(tree):
    tree.package(GUARD, SITE, variables=IDENTITIES)
    profile = (tree.output / "VelmorPellix.mobileconfig").read_bytes()
    assert profile.count(b"<string>ABCDE12345</string>") == 2 and b"ZZZZZZZZZZ" not in profile


def test_an_unsigned_package_has_a_profile_for_any_team(tree):
    tree.sign_as("not set")
    tree.package(GUARD)
    assert b"TeamIdentifier" not in (tree.output / "VelmorPellix.mobileconfig").read_bytes()


@pytest.mark.parametrize("team", ["not set", "", "abcde12345"])
def test_a_signature_without_a_team_is_refused(tree, team):
    tree.sign_as(team)
    assert "names no team" in refusal(tree)


def test_signatures_of_two_teams_are_refused(tree):
    other = (tree.answers / "signature-service-arm64").read_text().replace("ABCDE12345", "FGHIJ67890")
    tree.answer("signature-service-arm64", other)
    assert "or several" in refusal(tree)


def evidence(tree, *arguments, variables=None):
    variables = IDENTITIES if variables is None else variables
    result = tree.package(GUARD, *(arguments or (SITE,)), variables=variables)
    assert result.returncode == 0, result.stderr
    return (json.loads((tree.output / "release.json").read_text()),
            json.loads((tree.output / "VelmorPellix-1.0.0.cdx.json").read_text()))


def program(name, file):
    return {
        "identifier": PROGRAMS[name],
        "sha256": hashlib.sha256(file.encode()).hexdigest(),
        "code_hashes": {each: a_code_hash(name, each) for each in ARCHITECTURES},
        "uuids": {each: a_uuid(name, each) for each in ARCHITECTURES}}


def test_the_release_says_what_was_made_from_what(tree):
    assert evidence(tree)[0] == {
        "name": "Velmor Pellix", "version": "1.0.0", "commit": COMMIT, "changed_since_commit": False,
        "site": "https://trust.velmor.com", "team": "ABCDE12345", "oldest_system": "12.0",
        "architectures": ["arm64", "x86_64"],
        "application": program("application", "MacOS/Velmor Pellix"),
        "service": program("service", "Resources/velmor-guard")}


def test_the_release_of_an_unsigned_package_has_no_team(tree):
    tree.sign_as("not set")
    assert evidence(tree, "-DX=1", variables={})[0]["team"] is None


def test_a_tree_that_differs_from_its_commit_is_no_secret(tree):
    tree.answer("git-status", " M app/main.cpp\n")
    result = tree.package(GUARD, SITE, variables=IDENTITIES)
    assert "CHANGED: " in result.stdout
    assert json.loads((tree.output / "release.json").read_text())["changed_since_commit"] is True


def test_the_bill_of_materials_names_all_that_is_handed_out(tree):
    release, bill = evidence(tree)
    assert (bill["bomFormat"], bill["specVersion"], bill["version"]) == ("CycloneDX", "1.5", 1)
    assert re.fullmatch("urn:uuid:[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}", bill["serialNumber"])
    assert bill["metadata"]["timestamp"] == "2026-11-21T13:00:00+00:00"
    application, [service, *frameworks] = bill["metadata"]["component"], bill["components"]
    for component, name in ((application, "application"), (service, "service")):
        assert component["hashes"] == [{"alg": "SHA-256", "content": release[name]["sha256"]}]
        assert component["bom-ref"] == release[name]["identifier"]
    assert [each["name"] for each in frameworks] == ["AppKit", "Foundation", "IOKit"]
    references = {application["bom-ref"], *(each["bom-ref"] for each in bill["components"])}
    [dependency] = bill["dependencies"]
    assert {dependency["ref"], *dependency["dependsOn"]} == references
    assert len(references) == 1 + len(bill["components"])


def test_the_same_release_has_the_same_evidence_and_another_service_another(tree):
    first = evidence(tree)
    assert evidence(tree) == first
    (tree.folder / "script/build").write_text(BUILD.replace("write_text(name)", "write_text(name + '2')"))
    assert evidence(tree)[1]["serialNumber"] != first[1]["serialNumber"]


def test_the_sums_are_those_of_all_other_files(tree):
    evidence(tree)
    sums = dict(reversed(line.split("  ")) for line in
                (tree.output / "SHA256SUMS").read_text().splitlines())
    assert sorted([*sums, "SHA256SUMS"]) == MADE == tree.made()
    assert all(hashlib.sha256((tree.output / name).read_bytes()).hexdigest() == sum
               for name, sum in sums.items())


def test_consoles_get_what_describes_the_settings(tree):
    evidence(tree)
    manifest = plistlib.loads((tree.output / "com.velmor.pellix.app.plist").read_bytes())
    schema = json.loads((tree.output / "com.velmor.pellix.app.json").read_text())
    assert manifest["pfm_domain"] == schema["__preferencedomain"] == "com.velmor.pellix.app"


def test_the_tools_can_be_run(tree):
    evidence(tree)
    for name in ("doctor", "uninstall"):
        assert os.access(tree.output / name, os.X_OK)


# The payload.

def test_the_package_brings_the_first_login_and_the_disk_image_does_not(tree):
    lines = commands(tree, {})
    [packed] = [line for line in lines if line.startswith("pkgbuild")]
    [imaged] = [line for line in lines if line.startswith("hdiutil")]
    assert "--root build/package/staging/root --" in packed and "--install-location / " in packed
    assert "-srcfolder build/package/staging/root/Applications " in imaged
    assert position(lines, "ditto", "root/Library/LaunchAgents/com.velmor.pellix.first-login.plist")


def test_the_payload_changes_the_mode_of_no_folder_of_the_system(tree):
    """Packing fails here, so that what was to be packed stays."""
    tree.package(GUARD, SITE, variables=IDENTITIES | {"FAILS": "pkgbuild"})
    root = tree.output / "staging/root"
    modes = {str(path.relative_to(root)): path.stat().st_mode & 0o7777
             for path in (root, *root.rglob("*")) if path.name != "Velmor Pellix"}
    assert {name: mode for name, mode in modes.items() if ".app" not in name} == {
        ".": 0o755, "Applications": 0o775, "Library": 0o755, "Library/LaunchAgents": 0o755,
        "Library/LaunchAgents/com.velmor.pellix.first-login.plist": 0o644}
    assert not [name for name, mode in modes.items() if ".app" in name and mode & 0o022]


def test_whoever_packs_everybody_can_read_what_is_packed(tree):
    """What signing and stapling add bears the modes that the packing user's mask leaves."""
    tree.package(GUARD, SITE, variables=NOTARISED | {"FAILS": "pkgbuild"}, umask=0o077)
    app = tree.output / "staging/root/Applications/Velmor Pellix.app/Contents"
    for name in ("_CodeSignature", "_CodeSignature/CodeResources", "CodeResources", "Info.plist"):
        assert (app / name).stat().st_mode & 0o044 == 0o044, name
    tree.package(GUARD, SITE, variables=NOTARISED, umask=0o077)
    assert all((tree.output / name).stat().st_mode & 0o044 == 0o044 for name in (".", *MADE))


def test_help_is_the_head_of_the_script_and_does_nothing(tree):
    result = tree.package(GUARD, "--help")
    assert result.returncode == 0 and tree.calls() == []
    assert result.stdout.startswith("script/package [--dry-run]") and "PELLIX_NOTARY_KEY_ID" in result.stdout


# The document for administrators.

DOCUMENT = (ROOT / "docs/deployment.md").read_text(encoding="utf-8")


def test_what_the_document_says_to_type_makes_a_package(tree):
    block = DOCUMENT.split("## Make the package")[1].split("```")[1]
    variables = dict(re.findall(r'^export (\w+)="?([^"\n#]*[^"\n# ])', block, re.MULTILINE))
    [command] = re.findall(r"^script/package (.+)$", block, re.MULTILINE)
    assert set(variables) == set(NOTARISED)
    result = tree.package(*command.split(), variables=variables)
    assert (result.returncode, result.stderr) == (0, "")
    assert tree.calls("productsign")[0].count("Your\\ Company") == 1


def test_the_document_names_every_file_that_is_made():
    section = DOCUMENT.split("In `build/package` it leaves:")[1].split("It refuses to sign")[0]
    assert sorted(re.findall(r"^\| `([^`]+)`", section, re.MULTILINE)) == MADE


def test_the_package_replaces_whatever_version_is_there_and_nothing_elsewhere():
    [component] = plistlib.loads((ROOT / "packaging/macos/components.plist").read_bytes())
    assert (component["BundleIsRelocatable"], component["BundleIsVersionChecked"]) == (False, False)
    assert (component["BundleHasStrictIdentifier"], component["BundleOverwriteAction"]) == (True, "upgrade")
    distribution = xml.etree.ElementTree.parse(ROOT / "packaging/macos/Distribution.xml")
    assert distribution.find("domains").attrib == {
        "enable_anywhere": "false", "enable_currentUserHome": "false", "enable_localSystem": "true"}


def test_the_parts_of_the_package_agree():
    script = (ROOT / "script/package").read_text()
    cmake = (ROOT / "CMakeLists.txt").read_text()
    identifier = re.search(r"^identifier=(.+)$", script, re.MULTILINE)[1]
    name = re.search(r'^name="(.+)"$', script, re.MULTILINE)[1]
    info = plistlib.loads((ROOT / "resources/macos/Info.plist.in").read_bytes())
    [component] = plistlib.loads((ROOT / "packaging/macos/components.plist").read_bytes())
    distribution = xml.etree.ElementTree.parse(ROOT / "packaging/macos/Distribution.xml")
    assert name == info["CFBundleName"] == info["CFBundleExecutable"]
    assert component["RootRelativeBundlePath"] == f"Applications/{name}.app"
    assert {each.get("id") for each in distribution.iter("pkg-ref")} == {identifier}
    assert [each.text for each in distribution.iter("pkg-ref") if each.text] == ["component.pkg"]
    assert distribution.find("options").get("hostArchitectures") == "arm64,x86_64"
    [oldest] = distribution.iter("os-version")
    assert oldest.get("min") == re.search(r"DEPLOYMENT_TARGET ([\d.]+)", cmake)[1]
    assert f"package={identifier}\n" in (ROOT / "packaging/macos/uninstall").read_text()
