"""standin/launchctl: loads, restarts and unloads jobs as launchd does."""

import concurrent.futures
import contextlib
import itertools
import os
import pathlib
import plistlib
import shutil
import signal
import socket
import subprocess
import time

import pytest

from desktop.processes import wait_for
from standin_harness import DOMAIN, LABEL, STANDIN, is_running, unclaimed_port

NO_SUCH_PROCESS = (3, "Boot-out failed: 3: No such process\n")
NOT_FOUND = (113, f'Could not find service "{LABEL}" in domain for user gui: {os.getuid()}\n')
FAILED_5 = "Bootstrap failed: 5: Input/output error"
FOREVER = "exec sleep 1000"


def outcome(result):
    return result.returncode, result.stderr


def succeeded(result):
    assert outcome(result) == (0, "")
    return result


def running_pid(sandbox, label=LABEL):
    return int(sandbox.print(label)["pid"])


def pids_in(path):
    return [int(line) for line in path.read_text().split()] if path.exists() else []


def wait_for_supervisors_end(sandbox):
    wait_for("the supervisor's end", lambda: not sandbox.supervisors())


# Loading, starting, unloading

def test_the_installations_sequence_loads_and_restarts_the_job(sandbox):
    path = sandbox.write_agent(FOREVER, RunAtLoad=True, KeepAlive=True)
    assert outcome(sandbox.bootout()) == NO_SUCH_PROCESS
    succeeded(sandbox.bootstrap(path))
    first = running_pid(sandbox)
    assert is_running(first)
    succeeded(sandbox.kickstart("-k"))
    second = running_pid(sandbox)
    assert second != first
    assert is_running(second) and not is_running(first)

    succeeded(sandbox.bootout())
    assert not is_running(second)
    succeeded(sandbox.bootstrap(path))
    succeeded(sandbox.kickstart("-k"))
    assert is_running(running_pid(sandbox))


def test_the_rewritten_property_list_counts_after_reloading(sandbox):
    succeeded(sandbox.bootstrap(sandbox.write_agent("echo old; " + FOREVER, RunAtLoad=True)))
    succeeded(sandbox.bootout())
    log = sandbox.home / "log"
    path = sandbox.write_agent("echo new", RunAtLoad=True, StandardOutPath=str(log))
    succeeded(sandbox.bootstrap(path))
    wait_for("the new job", lambda: log.exists() and log.read_text() == "new\n")


def test_the_job_sees_its_own_environment_only(sandbox):
    log = sandbox.home / "environment"
    path = sandbox.write_agent("env; pwd", RunAtLoad=True, StandardOutPath=str(log),
                               EnvironmentVariables={"VLX_QUIET": "1", "TEXT": "a=b c"})
    succeeded(sandbox.bootstrap(path, variables={"CALLERS": "secret", "DISPLAY": ":77"}))
    lines = wait_for("the environment", lambda: log.exists() and log.read_text().endswith("/\n")
                     and log.read_text().splitlines())
    assert {"VLX_QUIET=1", "TEXT=a=b c", f"HOME={sandbox.home}", "DISPLAY=:77",
            f"XPC_SERVICE_NAME={LABEL}"} <= set(lines)
    assert lines[-1] == "/"
    assert not [line for line in lines if "secret" in line]


def test_output_is_appended_to_its_files(sandbox):
    out, err = sandbox.home / "out.log", sandbox.home / "err.log"
    out.write_text("before\n")
    path = sandbox.write_agent("echo out; echo err >&2", RunAtLoad=True,
                               StandardOutPath=str(out), StandardErrorPath=str(err))
    succeeded(sandbox.bootstrap(path))
    wait_for("the output", lambda: out.read_text() == "before\nout\n")
    wait_for("the errors", lambda: err.read_text() == "err\n")


def test_arguments_are_passed_as_they_are(sandbox):
    log = sandbox.home / "out.log"
    arguments = ["/usr/bin/printf", "[%s]", "a b", "", "$HOME", "ä"]
    path = sandbox.write_agent(ProgramArguments=arguments, RunAtLoad=True,
                               StandardOutPath=str(log))
    succeeded(sandbox.bootstrap(path))
    wait_for("the output", lambda: log.exists() and log.read_text() == "[a b][][$HOME][ä]")


def test_binary_property_lists_are_read(sandbox):
    path = sandbox.agents / "binary.plist"
    path.write_bytes(plistlib.dumps({
        "Label": LABEL, "ProgramArguments": ["/bin/sleep", "1000"], "RunAtLoad": True,
    }, fmt=plistlib.FMT_BINARY))
    succeeded(sandbox.bootstrap(path))
    assert sandbox.print()["state"] == "running"


def test_a_job_without_run_at_load_waits_for_a_kickstart(sandbox):
    succeeded(sandbox.bootstrap(sandbox.write_agent(FOREVER)))
    assert sandbox.print()["state"] == "not running"
    succeeded(sandbox.kickstart())
    assert is_running(running_pid(sandbox))


def test_kickstart_without_kill_leaves_a_running_job_alone(sandbox):
    succeeded(sandbox.bootstrap(sandbox.write_agent(FOREVER, RunAtLoad=True)))
    before = running_pid(sandbox)
    succeeded(sandbox.kickstart())
    assert running_pid(sandbox) == before


def test_kickstart_with_kill_starts_a_job_that_does_not_run(sandbox):
    succeeded(sandbox.bootstrap(sandbox.write_agent(FOREVER)))
    succeeded(sandbox.kickstart("-k"))
    assert is_running(running_pid(sandbox))


# Keeping alive

@pytest.mark.parametrize("script", ["exit 0", "exit 1", "kill -9 $$"])
def test_a_job_kept_alive_is_restarted_after_any_exit(sandbox, script):
    succeeded(sandbox.bootstrap(sandbox.write_agent(script, KeepAlive=True, ThrottleInterval=0.1)))
    wait_for("three runs", lambda: int(sandbox.print()["runs"]) >= 3)


def test_a_job_not_kept_alive_stays_away(sandbox):
    path = sandbox.write_agent("exit 3", RunAtLoad=True, KeepAlive=False, ThrottleInterval=0)
    succeeded(sandbox.bootstrap(path))
    wait_for("the job's end", lambda: sandbox.print()["state"] == "not running")
    time.sleep(0.3)
    shown = sandbox.print()
    assert (shown["runs"], shown["last exit code"]) == ("1", "3")


def starts_of_three_runs(sandbox, variables=None, **keys):
    log = sandbox.home / "starts"
    path = sandbox.write_agent("date +%s.%N", KeepAlive=True, StandardOutPath=str(log), **keys)
    succeeded(sandbox.bootstrap(path, variables=variables or {}))
    wait_for("three runs", lambda: log.exists() and len(log.read_text().split()) >= 3)
    return [float(line) for line in log.read_text().split()[:3]]


def test_restarts_keep_the_throttle_interval_apart(sandbox):
    starts = starts_of_three_runs(sandbox, ThrottleInterval=0.6)
    assert min(b - a for a, b in zip(starts, starts[1:])) > 0.5


def test_the_environment_gives_the_throttle_interval_where_the_property_list_has_none(sandbox):
    starts = starts_of_three_runs(sandbox, {"LAUNCHCTL_THROTTLE_INTERVAL": "0.6"})
    assert min(b - a for a, b in zip(starts, starts[1:])) > 0.5


def test_the_property_lists_throttle_interval_goes_first(sandbox):
    starts_of_three_runs(sandbox, {"LAUNCHCTL_THROTTLE_INTERVAL": "1000"}, ThrottleInterval=0.1)


def test_without_any_throttle_interval_a_restart_takes_launchds_ten_seconds(sandbox):
    succeeded(sandbox.bootstrap(sandbox.write_agent("exit 0", KeepAlive=True)))
    wait_for("the job's end", lambda: sandbox.print()["state"] == "not running")
    time.sleep(1)
    assert sandbox.print()["runs"] == "1"


def test_a_throttle_interval_that_is_no_number_is_refused(sandbox):
    path = sandbox.write_agent("exit 0", KeepAlive=True)
    status, error = outcome(
        sandbox.bootstrap(path, variables={"LAUNCHCTL_THROTTLE_INTERVAL": "nonsense"}))
    assert status == 5
    assert error.startswith("launchctl: ") and "nonsense" in error


def test_kickstart_does_not_wait_for_the_throttle(sandbox):
    path = sandbox.write_agent("exit 0", KeepAlive=True, ThrottleInterval=1000)
    succeeded(sandbox.bootstrap(path))
    wait_for("the job's end", lambda: sandbox.print()["state"] == "not running")
    succeeded(sandbox.kickstart("-k"))
    assert sandbox.print()["runs"] == "2"


# Stopping

@pytest.mark.parametrize("stop", ["bootout", "shutdown"])
def test_a_job_that_ignores_sigterm_is_killed(sandbox, stop):
    ready = sandbox.home / "ready"
    path = sandbox.write_agent(f"trap '' TERM; echo > '{ready}'; while :; do sleep 0.1; done",
                               RunAtLoad=True, KeepAlive=True, ExitTimeOut=1)
    succeeded(sandbox.bootstrap(path))
    wait_for("the job", ready.exists)
    pid = running_pid(sandbox)
    start = time.monotonic()
    succeeded(sandbox.bootout() if stop == "bootout" else sandbox.launchctl("shutdown"))
    assert not is_running(pid)
    assert 0.9 < time.monotonic() - start < 5


def test_a_job_may_end_in_its_own_way(sandbox):
    ready, ended = sandbox.home / "ready", sandbox.home / "ended"
    path = sandbox.write_agent(f"trap 'echo > \"{ended}\"; exit' TERM; echo > '{ready}'; "
                               "while :; do sleep 0.1; done", RunAtLoad=True)
    succeeded(sandbox.bootstrap(path))
    wait_for("the job", ready.exists)
    succeeded(sandbox.bootout())
    assert ended.exists()


# A job and two children, one of them deaf; each notes its process ID.
FAMILY = """
pids='{pids}'
(trap '' TERM HUP; sleep 1000) & echo $! >> "$pids"
sleep 1000 & echo $! >> "$pids"
echo $$ >> "$pids"
{end}
"""


def wait_for_family(pids):
    return wait_for("the whole family", lambda: len(pids_in(pids)) == 3 and pids_in(pids))


@pytest.mark.parametrize("stop", ["bootout", "shutdown", "kickstart"])
def test_a_jobs_children_go_with_it(sandbox, stop):
    pids = sandbox.home / "pids"
    path = sandbox.write_agent(FAMILY.format(pids=pids, end="wait"), RunAtLoad=True)
    succeeded(sandbox.bootstrap(path))
    family = wait_for_family(pids)
    assert all(map(is_running, family))
    if stop == "shutdown":
        succeeded(sandbox.launchctl("shutdown"))
    else:
        succeeded(sandbox.bootout() if stop == "bootout" else sandbox.kickstart("-k"))
    wait_for("the family's end", lambda: not any(map(is_running, family)))


def test_children_do_not_outlive_a_job_that_ends(sandbox):
    pids = sandbox.home / "pids"
    path = sandbox.write_agent(FAMILY.format(pids=pids, end="exit 0"), RunAtLoad=True)
    succeeded(sandbox.bootstrap(path))
    family = wait_for_family(pids)
    wait_for("the family's end", lambda: not any(map(is_running, family)))


# Exit statuses

@pytest.mark.parametrize("others", [False, True])
def test_what_is_not_loaded_cannot_be_found(sandbox, others):
    if others:
        succeeded(sandbox.bootstrap(sandbox.write_agent(FOREVER, label="other")))
    assert outcome(sandbox.bootout()) == NO_SUCH_PROCESS
    assert outcome(sandbox.kickstart()) == NOT_FOUND
    assert outcome(sandbox.kickstart("-k")) == NOT_FOUND
    assert outcome(sandbox.launchctl("print", f"{DOMAIN}/{LABEL}")) == NOT_FOUND
    assert len(sandbox.supervisors()) == others


def test_what_is_loaded_cannot_be_loaded_again(sandbox):
    path = sandbox.write_agent(FOREVER, RunAtLoad=True)
    succeeded(sandbox.bootstrap(path))
    pid = running_pid(sandbox)
    assert outcome(sandbox.bootstrap(path)) == (5, FAILED_5 + "\n")
    assert running_pid(sandbox) == pid


def test_what_is_being_unloaded_cannot_be_loaded(sandbox):
    ready, end = sandbox.home / "ready", sandbox.home / "end"
    path = sandbox.write_agent(
        f"trap '' TERM; echo > '{ready}'; while ! [ -e '{end}' ]; do sleep 0.1; done",
        RunAtLoad=True, ExitTimeOut=30)
    succeeded(sandbox.bootstrap(path))
    wait_for("the job", ready.exists)
    unloading = sandbox.start("bootout", f"{DOMAIN}/{LABEL}")
    wait_for("the unloading",
             lambda: sandbox.launchctl("print", f"{DOMAIN}/{LABEL}").returncode == 113)
    assert outcome(sandbox.bootstrap(path)) == (
        37, "Bootstrap failed: 37: Operation already in progress\n")
    assert outcome(sandbox.kickstart("-k")) == NOT_FOUND
    end.touch()
    assert unloading.communicate(timeout=30) == ("", "")
    assert unloading.returncode == 0


def test_unloading_ends_a_restart_in_progress(sandbox):
    ready = sandbox.home / "ready"
    path = sandbox.write_agent(f"trap '' TERM; echo > '{ready}'; while :; do sleep 0.1; done",
                               RunAtLoad=True, ExitTimeOut=1)
    succeeded(sandbox.bootstrap(path))
    wait_for("the job", ready.exists)
    restarting = sandbox.start("kickstart", "-k", f"{DOMAIN}/{LABEL}")
    time.sleep(0.3)
    succeeded(sandbox.bootout())
    _, error = restarting.communicate(timeout=30)
    assert (restarting.returncode, error) == NOT_FOUND


def test_a_missing_property_list_cannot_be_loaded(sandbox):
    path = sandbox.agents / "missing.plist"
    result = sandbox.bootstrap(path)
    assert outcome(result) == (5, f"{path}: No such file or directory\n{FAILED_5}\n")
    assert not sandbox.supervisors()


def xml(body):
    return f'<?xml version="1.0" encoding="UTF-8"?><plist version="1.0">{body}</plist>'.encode()


def job(**keys):
    content = {"Label": LABEL, "ProgramArguments": ["/bin/true"]} | keys
    return plistlib.dumps({key: value for key, value in content.items() if value is not None})


@pytest.mark.parametrize("content", [
    b"", b"garbage", b"\xff\xfe\x00", b"bplist00" + b"\xff" * 64, xml("<dict>"), xml("<array/>"),
    xml("<dict><key>Label</key><string>a & b</string></dict>"),
    xml("<dict><key>Label</key></dict>"),
    xml("<integer>x</integer>"), xml("<array>" * 3000), xml("<date>never</date>"),
    job(Label=None), job(Label=5), job(Label=""), job(Label="a/b"),
    job(ProgramArguments=None), job(ProgramArguments=[]), job(ProgramArguments=[1]),
    job(ProgramArguments="/bin/true"),
    job(EnvironmentVariables=[]), job(EnvironmentVariables={"A": 1}),
    job(StandardOutPath=5), job(RunAtLoad="yes"),
    job(KeepAlive={"SuccessfulExit": False}), job(ThrottleInterval=-1), job(ThrottleInterval="1"),
    job(ExitTimeOut=True)], ids=itertools.count())
def test_a_wrong_property_list_cannot_be_loaded(sandbox, content):
    path = sandbox.agents / "wrong.plist"
    path.write_bytes(content)
    status, error = outcome(sandbox.bootstrap(path))
    assert status == 5
    assert error.startswith(f"{path}: Invalid ")
    assert error.endswith(FAILED_5 + "\n")
    assert "Traceback" not in error


@pytest.mark.parametrize("make", [pathlib.Path.mkdir, os.mkfifo])
def test_what_is_no_file_cannot_be_loaded(sandbox, make):
    path = sandbox.agents / "odd.plist"
    make(path)
    status, error = outcome(sandbox.bootstrap(path))
    assert status == 5
    assert error.startswith(f"{path}: ") and error.endswith(FAILED_5 + "\n")


@pytest.mark.parametrize("domain", [f"gui/{os.getuid() + 1}", f"user/{os.getuid()}", "gui/x"])
def test_another_domain_is_not_served(sandbox, domain):
    target = f"{domain}/{LABEL}"
    for arguments in (["bootstrap", domain, sandbox.write_agent(FOREVER)], ["bootout", target],
                      ["kickstart", "-k", target], ["print", target]):
        assert outcome(sandbox.launchctl(*arguments)) == (
            125, "Domain does not support specified action\n")


@pytest.mark.parametrize("arguments", [
    [], ["list"], ["bootout"], ["bootout", "nonsense"], ["bootout", DOMAIN],
    ["bootout", DOMAIN + "/"], ["bootout", "a", "b"], ["bootstrap", DOMAIN],
    ["bootstrap", "gui", "x.plist"],
    ["kickstart", "-x", f"{DOMAIN}/{LABEL}"], ["kickstart"], ["print"], ["shutdown", "now"]])
def test_a_wrong_command_line_shows_the_usage(sandbox, arguments):
    result = sandbox.launchctl(*arguments)
    assert result.returncode == 64
    assert "Usage: launchctl bootstrap" in result.stderr
    assert result.stdout == ""


@pytest.mark.parametrize("argument", ["help", "--help"])
def test_help_names_the_stand_ins_own_command(sandbox, argument):
    result = succeeded(sandbox.launchctl(argument))
    assert "launchctl shutdown" in result.stdout


def expect_no_start(sandbox, **keys):
    path = sandbox.write_agent(KeepAlive=True, ThrottleInterval=0.1, **keys)
    succeeded(sandbox.bootstrap(path))
    shown = wait_for("two runs", lambda: int(sandbox.print()["runs"]) >= 2 and sandbox.print())
    assert shown["state"] == "not running"
    assert shown["last exit code"].startswith("78: EX_CONFIG")
    succeeded(sandbox.bootout())


@pytest.mark.parametrize("keys", [
    {"ProgramArguments": ["/does/not/exist"]}, {"ProgramArguments": ["/etc/passwd"]},
    {"ProgramArguments": [""]}, {"ProgramArguments": ["true"], "EnvironmentVariables": {"A=B": ""}},
    {"ProgramArguments": ["/bin/true"], "StandardOutPath": "/does/not/exist/log"}])
def test_a_job_that_cannot_start_is_loaded_all_the_same(sandbox, keys):
    expect_no_start(sandbox, **keys)


@pytest.fixture
def pipe(sandbox):
    path = sandbox.home / "pipe"
    os.mkfifo(path)
    return path


@pytest.mark.parametrize("key", ["StandardOutPath", "StandardErrorPath"])
def test_nobody_waits_for_the_reader_of_a_log_that_is_a_pipe(sandbox, pipe, key):
    try:
        expect_no_start(sandbox, ProgramArguments=["/bin/true"], **{key: str(pipe)})
    finally:  # lets go whoever waits all the same
        with open(os.open(pipe, os.O_RDONLY | os.O_NONBLOCK), "rb"):
            pipe.unlink()


def test_a_log_that_is_a_pipe_gets_all_that_the_job_prints_however_slowly_it_is_read(sandbox, pipe):
    with open(os.open(pipe, os.O_RDONLY | os.O_NONBLOCK), "rb") as reader:
        os.set_blocking(reader.fileno(), True)
        succeeded(sandbox.bootstrap(sandbox.write_agent(
            "head -c 1000000 /dev/zero", RunAtLoad=True, StandardOutPath=str(pipe))))
        time.sleep(0.3)  # until the pipe is full
        assert len(reader.read()) == 1_000_000
    wait_for("the job's end", lambda: sandbox.print()["last exit code"] == "0")


# The supervisor

def test_it_leaves_with_the_last_job(sandbox):
    for label in ("one", "two"):
        succeeded(sandbox.bootstrap(sandbox.write_agent(FOREVER, label, RunAtLoad=True)))
    assert len(sandbox.supervisors()) == 1
    succeeded(sandbox.bootout("one"))
    assert is_running(running_pid(sandbox, "two"))
    succeeded(sandbox.bootout("two"))
    wait_for_supervisors_end(sandbox)


def test_shutdown_leaves_nothing_behind(sandbox):
    succeeded(sandbox.launchctl("shutdown"))
    before = sorted(sandbox.home.rglob("*"))
    paths = [sandbox.write_agent(FOREVER, label, KeepAlive=True) for label in ("one", "two")]
    for path in paths:
        succeeded(sandbox.bootstrap(path))
    pids = [running_pid(sandbox, label) for label in ("one", "two")]
    succeeded(sandbox.launchctl("shutdown"))
    assert not any(map(is_running, pids))
    assert sorted(sandbox.home.rglob("*")) == sorted(before + paths)
    wait_for("the supervisor's end", lambda: not sandbox.supervisors(), timeout=1)
    succeeded(sandbox.launchctl("shutdown"))


def test_two_homes_share_nothing(make_sandbox):
    one, two = make_sandbox("one"), make_sandbox("two")
    for sandbox in (one, two):
        succeeded(sandbox.bootstrap(sandbox.write_agent(FOREVER, RunAtLoad=True)))
    survivor = running_pid(two)
    assert running_pid(one) != survivor
    succeeded(one.launchctl("shutdown"))
    assert is_running(survivor)
    assert outcome(one.bootout()) == NO_SUCH_PROCESS
    assert running_pid(two) == survivor


def test_a_deep_home_is_no_problem(make_sandbox):
    sandbox = make_sandbox("/".join(["a folder with a long name"] * 8))
    assert len(str(sandbox.home)) > 200
    succeeded(sandbox.bootstrap(sandbox.write_agent(FOREVER, RunAtLoad=True)))
    assert is_running(running_pid(sandbox))


def test_the_callers_pipes_are_left_alone(sandbox):
    path = sandbox.write_agent(FOREVER, RunAtLoad=True)
    reader, writer = os.pipe()
    try:
        succeeded(sandbox.bootstrap(path, pass_fds=[writer]))  # itself reads to the end
        os.close(writer)
        os.set_blocking(reader, False)
        assert os.read(reader, 1) == b""  # the end, not "nothing yet"
        assert is_running(running_pid(sandbox))
    finally:
        os.close(reader)


def test_the_callers_signals_do_not_reach_it(sandbox):
    caller = subprocess.Popen(
        [STANDIN / "launchctl", "bootstrap", DOMAIN, sandbox.write_agent(FOREVER, RunAtLoad=True)],
        env=sandbox.environment, start_new_session=True)
    assert caller.wait(timeout=30) == 0
    pid = running_pid(sandbox)
    with pytest.raises(ProcessLookupError):
        os.killpg(caller.pid, signal.SIGKILL)  # nothing of the caller's group is left
    assert is_running(pid)


def test_it_sleeps_while_nothing_happens(sandbox):
    succeeded(sandbox.bootstrap(sandbox.write_agent(FOREVER, KeepAlive=True)))
    succeeded(sandbox.bootstrap(sandbox.write_agent("exit 0", "done", KeepAlive=True)))
    wait_for("the job's end", lambda: sandbox.print("done")["state"] == "not running")
    (supervisor,) = sandbox.supervisors()

    def wakeups():
        text = pathlib.Path(f"/proc/{supervisor}/status").read_text()
        return int(text.split("\nvoluntary_ctxt_switches:")[1].split()[0])

    time.sleep(0.2)
    before = wakeups()
    time.sleep(1)
    assert wakeups() - before <= 2


def test_sigterm_stops_it_and_its_jobs(sandbox):
    succeeded(sandbox.bootstrap(sandbox.write_agent(FOREVER, KeepAlive=True)))
    pid = running_pid(sandbox)
    (supervisor,) = sandbox.supervisors()
    os.kill(supervisor, signal.SIGTERM)
    wait_for_supervisors_end(sandbox)
    wait_for("the job's end", lambda: not is_running(pid))


def test_a_deleted_home_takes_its_jobs_with_it(sandbox):
    succeeded(sandbox.bootstrap(sandbox.write_agent(FOREVER, KeepAlive=True)))
    pid = running_pid(sandbox)
    shutil.rmtree(sandbox.home)
    wait_for("the supervisor's end", lambda: not sandbox.supervisors(), timeout=15)
    assert not is_running(pid)


# A killed supervisor

def kill_supervisor(sandbox):
    (supervisor,) = sandbox.supervisors()
    os.kill(supervisor, signal.SIGKILL)
    wait_for("its end", lambda: not is_running(supervisor))


@pytest.mark.parametrize("command, expected", [
    (["bootout", f"{DOMAIN}/{LABEL}"], NO_SUCH_PROCESS),
    (["kickstart", "-k", f"{DOMAIN}/{LABEL}"], NOT_FOUND),
    (["print", f"{DOMAIN}/{LABEL}"], NOT_FOUND), (["shutdown"], (0, ""))])
def test_a_killed_supervisors_jobs_go_with_it(sandbox, command, expected):
    succeeded(sandbox.bootstrap(sandbox.write_agent(FOREVER, KeepAlive=True)))
    pid = running_pid(sandbox)
    kill_supervisor(sandbox)
    wait_for("the job's end", lambda: not is_running(pid))
    assert outcome(sandbox.launchctl(*command)) == expected


def test_loading_works_after_the_supervisor_was_killed(sandbox):
    path = sandbox.write_agent(FOREVER, KeepAlive=True)
    succeeded(sandbox.bootstrap(path))
    kill_supervisor(sandbox)
    succeeded(sandbox.bootstrap(path))
    assert is_running(running_pid(sandbox))


# Strangers at the socket

@contextlib.contextmanager
def connection_to(sandbox):
    home = sandbox.home.stat()
    with socket.socket(socket.AF_UNIX) as connection:
        connection.settimeout(10)
        connection.connect(f"\0launchd-standin/{os.getuid()}/{home.st_dev}:{home.st_ino}")
        yield connection


@pytest.mark.parametrize("request_line", [
    b"\n", b"{\n", b"[]\n", b"{}\n", b'{"command": "run"}\n', b'{"command": 5}\n',
    b'{"command": "bootout"}\n', b'{"command": "bootstrap", "job": {}}\n', b"[" * 100000 + b"\n",
    b"x" * (1 << 21)], ids=itertools.count())
def test_what_is_no_request_gets_no_answer(sandbox, request_line):
    succeeded(sandbox.bootstrap(sandbox.write_agent(FOREVER, RunAtLoad=True)))
    pid = running_pid(sandbox)
    with connection_to(sandbox) as connection, contextlib.suppress(ConnectionError):
        connection.sendall(request_line)
        assert connection.recv(1) == b""
    assert running_pid(sandbox) == pid


def test_who_says_nothing_holds_nobody_up(sandbox):
    succeeded(sandbox.bootstrap(sandbox.write_agent(FOREVER, RunAtLoad=True)))
    with connection_to(sandbox):
        succeeded(sandbox.launchctl("shutdown"))
        wait_for_supervisors_end(sandbox)


# Many at once

def test_fifty_loads_of_one_job_load_it_once(sandbox):
    path = sandbox.write_agent(FOREVER, RunAtLoad=True)
    callers = [sandbox.start("bootstrap", DOMAIN, path) for _ in range(50)]
    results = sorted((caller.communicate(timeout=60)[1], caller.returncode) for caller in callers)
    assert results == [("", 0)] + [(FAILED_5 + "\n", 5)] * 49
    assert sandbox.print()["runs"] == "1"
    assert len(sandbox.supervisors()) == 1


def test_fifty_jobs_loaded_and_unloaded_at_once(sandbox):
    labels = [f"job{number}" for number in range(25)]
    paths = [sandbox.write_agent(FOREVER, label, RunAtLoad=True) for label in labels]
    callers = [sandbox.start("bootstrap", DOMAIN, path) for path in paths]
    callers += [sandbox.start("bootout", f"{DOMAIN}/{label}") for label in labels]
    for caller in callers:
        caller.communicate(timeout=60)
    assert {caller.returncode for caller in callers[:25]} == {0}
    assert {caller.returncode for caller in callers[25:]} <= {0, 3}
    for label, unloading in zip(labels, callers[25:]):
        loaded = sandbox.launchctl("print", f"{DOMAIN}/{label}").returncode == 0
        assert loaded == (unloading.returncode == 3)
    assert len(sandbox.supervisors()) <= 1


def test_coming_and_going_at_once_loses_no_job(sandbox):
    """Loads keep meeting a supervisor that is just leaving."""
    paths = {label: sandbox.write_agent("exit 0", label) for label in ("one", "two", "three")}

    def come_and_go(label):
        outcomes = []
        for _ in range(6):
            outcomes.append(outcome(sandbox.bootstrap(paths[label])))
            outcomes.append(outcome(sandbox.bootout(label)))
        return outcomes

    with concurrent.futures.ThreadPoolExecutor() as pool:
        assert list(pool.map(come_and_go, paths)) == [[(0, "")] * 12] * 3
    wait_for_supervisors_end(sandbox)


# With the service

def test_the_service_runs_under_it(sandbox, stopped_guard):
    guard = stopped_guard
    guard.port = unclaimed_port()
    logs = sandbox.home / "logs"
    logs.mkdir()
    path = sandbox.write_agent(
        ProgramArguments=[str(guard.binary), "run", "--port", str(guard.port)], RunAtLoad=True,
        KeepAlive=True, ThrottleInterval=0.1, ProcessType="Background",
        EnvironmentVariables={"VLX_QUIET": "1"},
        StandardOutPath=str(logs / "launchd.out.log"),
        StandardErrorPath=str(logs / "launchd.err.log"))

    def answers():
        try:
            return guard.status()
        except OSError:
            return None

    sandbox.bootout()
    succeeded(sandbox.bootstrap(path))
    succeeded(sandbox.kickstart("-k"))
    wait_for("an answer", answers)
    guard.set(state="revoked")
    succeeded(sandbox.kickstart("-k"))
    assert wait_for("an answer", answers)["state"] == "revoked"
    os.kill(running_pid(sandbox), signal.SIGKILL)
    assert wait_for("an answer", answers)["state"] == "revoked"
    succeeded(sandbox.bootout())
    assert answers() is None
    assert {file.name: file.read_text() for file in logs.iterdir()} == {
        "launchd.out.log": "", "launchd.err.log": ""}
