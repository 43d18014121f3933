"""script/check-service as a command: what it takes, what it prints, and that it always ends."""

import ast
import json
import os
import pathlib
import re
import signal
import subprocess
import time

import pytest

from desktop.processes import wait_for
from kit_harness import COMMAND, RIGHT, ROOT, Report, rules, run, running_below, service, start

# What runs on its own afterwards, with nothing in it that tells whence it comes.
ESCAPE = """
def prepare():
    if os.fork() == 0:
        os.setsid()
        if os.fork() == 0:
            os.execve("/bin/sleep", ["sleep", "%d"], {})
        os._exit(0)
    os.wait()
"""


def processes_called(*arguments):
    line = b"\0".join(map(os.fsencode, arguments)) + b"\0"
    return [path for path in pathlib.Path("/proc").glob("[0-9]*/cmdline") if contents(path) == line]


def contents(path):
    try:
        return path.read_bytes()
    except OSError:
        return b""


# Its arguments

@pytest.mark.parametrize("arguments", [
    [], ["--nonsense", RIGHT], [RIGHT, RIGHT], ["--list", RIGHT], ["/no/such/file"], ["/tmp"],
    ["--skip", "nonsense", RIGHT], ["--patience", "0", RIGHT], ["--patience", "nan", RIGHT],
    ["--limit", "-1", RIGHT], ["--limi", "1", RIGHT]])
def test_a_wrong_command_line_runs_nothing(scratch, arguments):
    result = run(*arguments)
    assert (result.returncode, result.stdout) == (2, "")
    assert result.stderr.startswith("usage: check-service")


@pytest.mark.parametrize("arguments", [["--help"], ["--help", RIGHT], ["--version", RIGHT]])
def test_asking_for_help_runs_nothing(scratch, arguments):
    result = run(*arguments)
    assert (result.returncode, result.stderr) == (0, "")
    assert result.stdout.startswith(("usage: check-service", "version "))


def test_rules_are_listed_with_or_without_json():
    lines = run("--list").stdout.splitlines()
    assert len(lines) == len(rules()) > 40
    for line, rule in zip(lines, rules()):
        assert line.split()[:2] == [rule["kind"], rule["rule"]]
        assert line.endswith(f"{rule['expected']}. {rule['mend']}")


def test_names_of_rules_are_unique_and_stay_on_one_line():
    names = [rule["rule"] for rule in rules()]
    assert len(set(names)) == len(names)
    for rule in rules():
        assert re.fullmatch("[a-z]+(-[a-z]+)?", rule["rule"]) and len(rule["rule"]) <= 17
        assert "\n" not in rule["expected"] + rule["mend"]


def test_skipped_rules_are_named_as_such(make):
    report = Report(make("def check_host(headers): pass"), "--skip", "foreign-*", "--skip", "crowd")
    assert (report.status, report.content["holds"]) == (0, True)
    assert report.seen("foreign-host") == report.seen("crowd") == "you asked for it"


def test_the_program_may_be_called_from_anywhere(make, monkeypatch):
    path = make()
    monkeypatch.chdir(path.parent)
    assert run("velmor-guard", "--skip", "[!i]*").returncode == 0


def test_where_nothing_can_be_installed_nothing_is_checked(make):
    result = subprocess.run(["/bin/bash", "-c", 'ulimit -f 1; exec "$@"', "", COMMAND, make()],
                            stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=60)
    assert (result.returncode, result.stdout) == (2, "")
    assert re.fullmatch("check-service: .*File too large.*\n", result.stderr)


# What it prints

def test_each_rule_is_one_line_and_failures_say_how_to_mend(make):
    result = run(make("DEVICE_ID = 'GEN-' + 'x' * 200\ndef check_host(headers): pass"),
                 "--patience", "3")
    assert (result.returncode, result.stderr) == (1, "")
    lines = result.stdout.splitlines()
    assert [line.split()[1] for line in lines[:-1]] == [rule["rule"] for rule in rules()]
    assert {line.split()[0] for line in lines[:-1]} == {"ok", "FAILED", "advice", "skipped"}
    for line, rule in zip(lines, rules()):
        word = line.split()[0]
        assert f" {rule['expected']}. {'Skipped' if word == 'skipped' else 'Seen'}: " in line
        assert line.endswith(f" Mend: {rule['mend']}") is (word in ("FAILED", "advice"))
    assert lines[-1] == (f"{len(rules())} rules: {len(rules()) - 6} ok, 1 failed, "
                         "1 advised, 4 skipped (all limits times 3)")


def test_hostile_texts_reach_no_terminal(make):
    result = run(make('DEVICE_ID = "GEN-\\x1b]0;title\\x07\\u202e\\n"'), "--patience", "3",
                 LC_ALL="C", PYTHONUTF8="0")
    assert result.stdout.isascii() and len(result.stdout.splitlines()) == len(rules()) + 1
    assert "\x1b" not in result.stdout and "\\x1b]0;title" in result.stdout


def test_a_reader_who_leaves_early_ends_it(make, scratch):
    process = start(make())
    process.stdout.readline()
    process.stdout.close()
    assert process.wait(60) == 1
    assert process.stderr.read() == ""
    process.stderr.close()


@pytest.mark.parametrize("stream", ["1", "2"])
def test_it_needs_nobody_who_reads(make, stream):
    result = subprocess.run(["/bin/bash", "-c", f'exec "$@" {stream}>&-', "", COMMAND, make()],
                            stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=240)
    assert (result.returncode, result.stderr) == (0, "")


# Its end

def test_a_service_that_hangs_at_every_step_is_told_within_the_limit(make):
    begin = time.monotonic()
    report = Report(make("""
import signal
import time
def identify(): time.sleep(1000)
def accepted(connection): waiting.append(connection)
waiting = []
def port_is_taken(error): time.sleep(1000)
right = listen
def listen():
    listener = right()
    signal.signal(signal.SIGTERM, signal.SIG_IGN)
    return listener
"""), patience=0.5)
    assert time.monotonic() - begin < 60
    assert report.status == 1
    assert {"id-ends", "status-time", "page-root", "taken-port", "stop"} <= set(
        report.named("failed"))
    assert len(report.rules) == len(rules())


def test_the_whole_check_has_a_limit(make):
    begin = time.monotonic()
    report = Report(make("def identify(): threading.Event().wait()"), "--limit", "1.5", patience=1)
    assert time.monotonic() - begin < 30
    assert (report.status, report.content["holds"]) == (1, False)
    assert report.error == ("check-service: This has taken 1.5 seconds: "
                            "the rest is not checked.\n")
    assert list(report.rules) == []


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT, signal.SIGHUP, signal.SIGQUIT])
@pytest.mark.parametrize("moment", ["id-short", "loopback"])
def test_whoever_ends_it_ends_all(make, scratch, number, moment):
    seconds = 10_000_000 + os.getpid()
    process = start(make(ESCAPE % seconds + "def authorize(): threading.Event().wait()"))
    while moment not in process.stdout.readline():
        pass
    assert moment != "loopback" or processes_called("sleep", str(seconds))
    process.send_signal(number)
    _output, error = process.communicate(timeout=60)
    assert process.returncode == 128 + number
    assert error == f"check-service: Ended by {number.name}.\n"
    assert not processes_called("sleep", str(seconds))


def test_whoever_ends_it_before_it_begins_reads_nothing(make, scratch):
    for moment in range(6):
        process = start(make())
        time.sleep(moment * 0.04)
        process.send_signal(signal.SIGINT)
        _output, error = process.communicate(timeout=60)
        assert "kit" not in error.replace(str(ROOT), ""), error  # no traceback from there


def test_nothing_that_the_service_starts_is_left(make):
    seconds = 20_000_000 + os.getpid()
    assert Report(make(ESCAPE % seconds)).status == 0
    assert not processes_called("sleep", str(seconds))


def test_output_without_end_is_not_kept(make):
    report = Report(make("""
def identify():
    import signal
    signal.alarm(2)
    while True: os.write(1, b"x" * 65536)
"""), patience=3)
    assert report.named("failed")[:2] == ["id-ends", "id-short"]
    assert len(report.seen("id-short")) < 60


# What the service is given

def test_the_service_sees_what_launchd_and_the_application_give(make, tmp_path, scratch):
    seen = tmp_path / "seen"
    Report(make(f"""
def prepare():
    import signal, stat
    with open({str(seen)!r}, "w") as file:
        json.dump({{"environment": dict(os.environ), "folder": os.getcwd(), "arguments": sys.argv,
                   "input": os.read(0, 1).decode(), "terminal": os.isatty(1),
                   "mode": stat.S_IMODE(os.stat(__file__).st_mode), "around": os.listdir(FOLDER),
                   "mask": len(signal.pthread_sigmask(signal.SIG_BLOCK, []))}}, file)
"""), KIT_SECRET="x", LANG="de_DE.UTF-8")
    seen = json.loads(seen.read_text())
    home = pathlib.Path(seen["environment"]["HOME"])
    assert set(seen["environment"]) - {"LC_CTYPE"} == {  # LC_CTYPE: Python's own
        "HOME", "USER", "LOGNAME", "SHELL", "PATH", "TMPDIR", "VLX_QUIET", "XPC_SERVICE_NAME"}
    assert seen["environment"]["VLX_QUIET"] == "1"
    assert seen["environment"]["PATH"] == "/usr/bin:/bin:/usr/sbin:/sbin"
    assert home.parent.parent == scratch
    assert seen["arguments"][0] == str(
        home / "Library" / "Application Support" / "VelmorPellix" / "velmor-guard")
    assert seen["arguments"][1:3] == ["run", "--port"]
    assert (seen["folder"], seen["input"], seen["terminal"]) == ("/", "", False)
    assert (seen["mode"], seen["mask"]) == (0o755, 0)
    assert {"managed.json", "logs", "velmor-guard"} <= set(seen["around"])


def test_an_old_python_can_read_it():
    """The command-line tools of macOS come with Python 3.9."""
    sources = [COMMAND, *(ROOT / "kit").glob("*.py")]
    assert len(sources) > 5
    for path in sources:
        ast.parse(path.read_text(encoding="utf-8"), feature_version=(3, 9))


def test_a_check_leaves_nothing_in_the_tree(tmp_path, scratch):
    path = service(tmp_path / "made")
    run(path, "--skip", "[!i]*")
    assert sorted(entry.name for entry in path.parent.iterdir()) == ["velmor-guard"]
    wait_for("its end", lambda: not running_below(scratch))
