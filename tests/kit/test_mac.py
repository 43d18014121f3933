"""script/check-service on a Mac: on tools that print what Apple's print."""

import os
import pathlib
import plistlib
import subprocess
import types

import pytest

from kit_harness import Report

from kit import listening, processes
from kit.command import outcome_of
from kit.rules import RULES
from kit.session import Session

BUILD_VERSION = """\
Load command 0
      cmd LC_SEGMENT_64
  cmdsize 72
  segname __PAGEZERO
Load command 1
     cmd LC_UUID
 cmdsize 24
    uuid {uuid}
Load command 2
      cmd LC_BUILD_VERSION
  cmdsize 32
 platform 1
    minos {minos}
      sdk 14.0
   ntools 1
     tool 3
  version 1015.7
Load command 3
      cmd LC_SOURCE_VERSION
  cmdsize 16
  version 0.0
"""
VERSION_MIN = """\
Load command 0
      cmd LC_SEGMENT_64
  cmdsize 72
Load command 1
      cmd LC_VERSION_MIN_MACOSX
  cmdsize 16
  version {minos}
      sdk 10.14
Load command 2
     cmd LC_UUID
 cmdsize 24
    uuid {uuid}
"""
ARM, INTEL = "3F2A7C11-0000-3000-8000-0000000000A1", "3F2A7C11-0000-3000-8000-0000000000B2"


def listing(*parts):
    """What otool -l prints of these architectures."""
    return "".join(f"/somewhere/velmor guard (architecture {name}):\n{text}"
                   for name, text in parts)


def both(minos="12.0", uuid=INTEL):
    return listing(("x86_64", VERSION_MIN.format(minos="10.13", uuid=uuid)),
                   ("arm64", BUILD_VERSION.format(minos=minos, uuid=ARM)))


@pytest.fixture
def check(make, tmp_path):
    """check(...): the rules for the file, on a Mac whose tools print this. None: the tool fails."""
    def run(lipo="x86_64 arm64\n", otool=None, codesign=b""):
        tools = tmp_path / "tools"
        tools.mkdir()
        answers = {"lipo": lipo, "otool": both() if otool is None else otool, "codesign": codesign}
        for name, answer in answers.items():
            data = answer.encode() if isinstance(answer, str) else answer
            (tools / f"{name}.out").write_bytes(data or b"")
            (tools / name).write_text(
                f'#!/bin/sh\nprintf "%s\\n" "$*" >> "$0.calls"\ncat "$0.out"\n'
                f"exit {1 if answer is None else 0}\n")
            (tools / name).chmod(0o755)
        report = Report(make(), "--skip", "[!m]*", "--skip", "managed-*",
                        PATH=f"{tools}:{os.environ['PATH']}")
        report.calls = [path.read_text().strip() for path in sorted(tools.glob("*.calls"))]
        return report
    return run


def entitlements(**members):
    return plistlib.dumps({name.replace("_", "."): value for name, value in members.items()})


def test_a_right_file_keeps_the_rules(check, tmp_path):
    report = check(codesign=plistlib.dumps({"com.apple.security.network.client": True}))
    assert report.status == 0
    assert report.named("ok") == ["mac-architectures", "mac-oldest", "mac-uuid", "mac-entitlements"]
    assert report.seen("mac-oldest") == "x86_64: 10.13, arm64: 12.0"
    assert report.seen("mac-entitlements") == "com.apple.security.network.client"
    program = tmp_path / "made" / "velmor-guard"
    signature = "--display --entitlements - --xml --architecture"
    assert report.calls == [f"{signature} arm64 {program}\n{signature} x86_64 {program}",
                            f"-archs {program}",
                            f"-arch all -l {program}\n-arch all -l {program}"]


@pytest.mark.parametrize("rule, answers, seen", [
    ("mac-architectures", {"lipo": "arm64\n"}, "arm64"),
    ("mac-architectures", {"lipo": None}, "no program for a Mac"),
    ("mac-oldest", {"otool": both(minos="12.1")}, "x86_64: 10.13, arm64: 12.1"),
    ("mac-oldest", {"otool": both(minos="13.0")}, "x86_64: 10.13, arm64: 13.0"),
    ("mac-uuid", {"otool": both(uuid=ARM)}, f"x86_64: {ARM}, arm64: {ARM}"),
    ("mac-uuid", {"otool": both().replace("cmd LC_UUID", "cmd LC_OTHER", 1)},
     f"x86_64: none, arm64: {ARM}"),
    ("mac-uuid", {"otool": both(uuid="00000000-0000-0000-0000-000000000000")},
     f"x86_64: none, arm64: {ARM}"),
    ("mac-oldest", {"otool": both().replace("platform 1\n", "platform 2\n")},
     "x86_64: 10.13, arm64: none"),
    ("mac-entitlements", {"codesign": plistlib.dumps({
        "com.apple.security.get-task-allow": True})}, "it does"),
    ("mac-entitlements", {"codesign": b"\xff\x00"}, "unreadable entitlements"),
])
def test_a_wrong_file_is_refused_by_its_rule(check, rule, answers, seen):
    report = check(**answers)
    assert report.named("failed") == [rule]
    assert report.seen(rule).startswith(seen)


def test_what_names_no_system_is_refused(check):
    report = check(otool=both().replace("LC_BUILD_VERSION", "LC_OTHER"))
    assert report.named("failed") == ["mac-oldest"]
    assert report.seen("mac-oldest") == "x86_64: 10.13, arm64: none"


def test_a_file_for_one_architecture_has_no_heading(check):
    report = check(lipo="arm64\n", otool="/somewhere/velmor-guard:\n"
                   + BUILD_VERSION.format(minos="12.0", uuid=ARM))
    assert report.named("failed") == ["mac-architectures"]
    assert report.seen("mac-uuid") == f"it: {ARM}"


def test_a_script_is_no_program_for_a_mac(check):
    report = check(lipo=None, otool="/somewhere/velmor-guard: is not an object file\n",
                   codesign=None)
    assert report.named("failed") == ["mac-architectures", "mac-oldest", "mac-uuid"]
    assert report.seen("mac-uuid") == "no program for a Mac"


def test_the_listing_of_lsof_is_read():
    assert listening.from_lsof("p501\nf3\nn127.0.0.1:8787\nf4\nn*:9000\np502\nf3\nn[::1]:8787\n"
                               "f9\nn127.0.0.1:8787\n") == [
        "*:9000", "127.0.0.1:8787", "[::1]:8787"]


def test_the_listing_of_ps_is_read():
    text = ("  501 /tmp/x/velmor-guard run --port 8787 HOME=/tmp/x USER=ann\n"
            "  502 /bin/sleep 5 USER=ann HOME=/tmp/x\n"
            "  503 /bin/sleep 5 HOME=/tmp/xy USER=ann\n"
            "  504 /bin/sleep 5 OLDHOME=/tmp/x\n")
    assert processes.with_variable(text, "HOME=/tmp/x") == [501, 502]


@pytest.fixture
def session_on_a_mac(make, monkeypatch):
    """session_on_a_mac(tool): a check in this process, on a Mac where that tool never ends and others
    print nothing."""
    def session(hanging):
        def run(command, timeout, real=subprocess.run, **options):
            hangs = pathlib.Path(command[0]).name == hanging
            return real(["/bin/sleep", "60" if hangs else "0"], timeout=timeout / 40, **options)

        monkeypatch.setattr(processes, "sys", types.SimpleNamespace(platform="darwin"))
        monkeypatch.setattr(listening, "PROC_NET", pathlib.Path("/no/such/folder"))
        monkeypatch.setattr(subprocess, "run", run)
        made = Session(make())
        made.install()
        return made
    return session


@pytest.mark.parametrize("tool", ["lsof", "ps"])
def test_a_tool_that_never_ends_gives_a_verdict(session_on_a_mac, tool):
    with session_on_a_mac(tool) as session:
        [rule] = [rule for rule in RULES if rule.name == "loopback"]
        outcome = outcome_of(rule, session, set())
    assert (outcome.result, outcome.seen) == ("failed", f"{tool} does not end")


def test_what_was_started_ends_without_ps(session_on_a_mac, scratch, capfd):
    with session_on_a_mac("ps") as session:
        session.start()
        left = session.run(session.port + 1)
        session.running = None
    assert left.status() is not None
    assert capfd.readouterr().err == "Something may be left running: ps does not end\n"
    assert list(scratch.iterdir()) == []
