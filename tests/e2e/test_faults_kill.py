"""Killed, or started twice, in the middle of the install sequence: nothing torn, and made up for.

PELLIX_KILLS=500 sets how often the application is killed in all.
"""

import collections
import os
import random
import shutil
import signal
import time

import pytest

from desktop.files import listing, write, write_program
from desktop.headless import Headless
from desktop.processes import wait_for
from e2e_harness import expect_installed_files, expect_whole_files, stray_files

KILLS = int(os.environ.get("PELLIX_KILLS", "60"))
PAIRS = 50
SHARES = 4  # side by side


@pytest.fixture
def program(tmp_path):
    return Headless(tmp_path)


def erase(program):
    shutil.rmtree(os.path.join(program.home, "Library"))
    os.makedirs(program.agents)


def expect_complete(program, guard):
    """And nothing else is there. What the files hold."""
    expect_installed_files(program, guard)
    assert listing(program.support) == ["logs", "managed.json", "velmor-guard"]
    return program.installed_content()


def launch_after_kill(program, guard):
    """What the killed launch left behind, at most one file, is no hindrance. What the files hold,
    and how long it took."""
    strays = stray_files(program)
    assert len(strays) <= 1
    duration = program.launch()
    assert stray_files(program) == strays
    for path in strays:
        os.remove(path)
    return expect_complete(program, guard), duration


def kill_at_random_moment(program, duration):
    process = program.start()
    program.wait_for_first_change(process)
    # mostly early: the files are renewed within a small part of the time that the tools take
    time.sleep(duration * random.random() ** 4)
    process.kill()
    process.wait()


def make_older(program, version):
    """An installation of which every file differs from what the next launch writes."""
    for path in program.installed_files:
        write(b"older\n" * 50, path)
    write_program(program.guard(version), program.installed_guard)


@pytest.mark.parametrize("share", range(SHARES))
def test_a_killed_install_sequence_leaves_whole_files_and_is_made_up_for(program, share):
    random.seed()
    program.bundle_guard(program.guard(0))
    durations = []
    for _launch in range(3):
        durations.append(program.launch())
        complete = expect_complete(program, program.guard(0))
    stages = collections.Counter()
    for number in range(1, KILLS // SHARES + 1):
        guard = program.guard(2 * number)
        program.bundle_guard(guard)
        fresh = random.random() < 0.3
        if fresh:
            erase(program)
        else:
            make_older(program, 2 * number - 1)
        before = program.installed_content()
        renewed = complete | {program.installed_guard: guard}
        kill_at_random_moment(program, 1.1 * sorted(durations)[len(durations) // 2])

        after = expect_whole_files(program, before, renewed)
        stages[sum(after[path] == renewed[path] for path in program.installed_files)] += 1

        content, duration = launch_after_kill(program, guard)
        assert content == renewed
        durations.append(duration)
    print(f"\n{sum(stages.values())} kills within {sorted(durations)[len(durations) // 2]:.3f} s; "
          "files renewed by then: " + ", ".join(
              f"{count} of 4: {stages[count]}" for count in range(5)))
    assert len(stages) >= 2, "the kills did not spread over the sequence"


@pytest.mark.parametrize("fault", ["signal=KILL", "error=ENOSPC", "error=EACCES"])
@pytest.mark.parametrize("home", ["fresh", "older"])
def test_a_fault_at_each_step_leaves_whole_files_and_is_made_up_for(program, home, fault):
    """The disk full, permission refused, or the process killed, at each call that changes the
    disk."""
    guard = program.guard(0)
    program.bundle_guard(guard)
    program.launch()
    renewed = expect_complete(program, guard)

    def prepare():
        if home == "fresh":
            erase(program)
        else:
            make_older(program, 1)

    prepare()
    calls = program.record_calls()
    usual = {"openat", "write", "fchmod", "linkat", "rename", "fchmodat"}
    assert usual <= {name for name, _number, _about in calls}
    for number, call in enumerate(calls):
        name = call[0]
        if name == "write" and calls[number - 1][0] == calls[number + 1][0] == name:
            continue  # amid many of one file
        if home == "fresh" and name != "mkdir":
            continue  # no other than on an older installation
        prepare()
        before = program.installed_content()
        process = program.start_with_fault(call, fault)
        if fault == "signal=KILL":
            assert process.wait(60) == -signal.SIGKILL, call
        else:
            wait_for(f"the launch or an alert after {call}", lambda: program.has_installed(process)
                     or (program.met_fault() and program.is_idle(process)), 60)
            assert program.met_fault(), call
            process.terminate()
            assert process.wait(10) == -signal.SIGTERM, call
            assert stray_files(program) == [], call
        expect_whole_files(program, before, renewed)
        content, _duration = launch_after_kill(program, guard)
        assert content == renewed


@pytest.mark.parametrize("share", range(5))
def test_two_launches_at_once_leave_one_complete_installation(application_on, service, share):
    application = application_on()
    desktop = application.desktop
    alerts = 0
    for number in range(PAIRS // 5):
        guard = b"#!/bin/sh\necho GEN-quick\nexit\n" + b"%08d" % number * 9000
        application.bundle_guard(guard)
        service.requests.clear()
        pair = [desktop.start("application", application.executable) for _launch in range(2)]

        def launched():
            """A file that the other one moved away is an error, which is shown; then it goes on."""
            nonlocal alerts
            if application.x_windows():
                alerts += 1
                desktop.press("Return")
            return len(service.requests) >= 2

        wait_for("both first polls", launched, 60)
        assert all(process.poll() is None for process in pair)
        assert application.launchctl_calls(), "neither came to the end of the sequence"
        os.remove(application.launchctl_log)
        for process in pair:
            process.terminate()
            assert process.wait(10) == -signal.SIGTERM
        expect_installed_files(application, guard)
        assert listing(application.support) == ["logs", "managed.json", "velmor-guard"]
    print(f"\n{PAIRS // 5} pairs, {alerts} alerts")
