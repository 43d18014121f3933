"""What the tests run script/check-service with: services that differ from a right one."""

import functools
import glob
import json
import os
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
COMMAND = ROOT / "script" / "check-service"
RIGHT = pathlib.Path(__file__).resolve().parent / "right_service.py"
LAST_LINE = "sys.exit(main())\n"
PATIENCE = 2  # many of these run at once

sys.path.insert(0, str(ROOT))


def service(folder, change=""):
    """The right service, changed by what is defined anew in `change`."""
    folder.mkdir(exist_ok=True)
    text = RIGHT.read_text(encoding="utf-8")
    assert text.endswith("\n" + LAST_LINE)
    path = folder / "velmor-guard"
    path.write_text(text.replace(LAST_LINE, change + "\n" + LAST_LINE), encoding="utf-8")
    return path  # not executable, as a copy of it is made so


def start(*arguments, cwd=None, **variables):
    return subprocess.Popen([COMMAND, *map(str, arguments)], stdin=subprocess.DEVNULL, text=True,
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE, cwd=cwd,
                            env={**os.environ, **variables})


def run(*arguments, cwd=None, **variables):
    process = start(*arguments, cwd=cwd, **variables)
    try:
        output, error = process.communicate(timeout=240)
    except subprocess.TimeoutExpired:
        process.kill()
        raise
    return subprocess.CompletedProcess(arguments, process.returncode, output, error)


class Report:
    """What the command says of a program, as JSON."""

    def __init__(self, program, *options, patience=PATIENCE, **variables):
        result = run(program, "--json", "--patience", patience, *options, **variables)
        assert result.stdout, result.stderr
        self.status = result.returncode
        self.error = result.stderr
        self.content = json.loads(result.stdout)
        self.rules = {rule["rule"]: rule for rule in self.content["rules"]}
        for name in self.named("failed"):
            print(f"{name}: {self.seen(name)}")  # for whom a test fails

    def named(self, outcome):
        return [name for name, rule in self.rules.items() if rule["result"] == outcome]

    def seen(self, name):
        return self.rules[name]["seen"]


@functools.lru_cache(None)
def rules():
    """All that there are, as the command lists them."""
    return json.loads(run("--list", "--json").stdout)["rules"]


def running_below(folder):
    """The processes whose command line or home names something below the folder. Each thread is
    asked, as the first one may have ended before the others."""
    found = set()
    for thread in map(pathlib.Path, glob.iglob("/proc/[0-9]*/task/[0-9]*")):
        pid = int(thread.parts[2])
        try:
            text = (thread / "cmdline").read_bytes() + (thread / "environ").read_bytes()
        except OSError:
            continue
        if pid != os.getpid() and os.fsencode(f"{folder}/check-service-") in text:
            found.add(pid)
    return found
