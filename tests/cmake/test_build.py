"""script/build starts from what it is given: settings of an earlier build never reach what ships."""

import os
import re
import shutil
import subprocess

import pytest

from desktop.files import read, write_program

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))

# Configures for real, and builds and installs nothing.
CMAKE = f"""#!/bin/sh
case $1 in
  --preset) exec '{shutil.which("cmake")}' "$@" ;;
esac
"""


@pytest.fixture
def build(tmp_path):
    """Runs script/build in a copy of the tree. What it has configured, by name."""
    tree = shutil.copytree(ROOT, tmp_path / "tree", ignore=lambda folder, _names: (
        {"build", ".git"} if folder == ROOT else ()))
    write_program(CMAKE, tmp_path, "bin", "cmake")

    def run(*options):
        subprocess.run([tree / "script" / "build", *options], check=True, timeout=300,
                       env=os.environ | {"PATH": f"{tmp_path}/bin:{os.environ['PATH']}"})
        cache = read(tree / "build" / "release", "CMakeCache.txt").decode()
        return dict(re.findall(r"^(VELMOR_SITE_URL|VELMOR_GUARD|PELLIX_INSTRUMENT):\w+=(.*)$",
                               cache, re.MULTILINE))
    return run


def test_every_build_starts_from_what_it_is_given(build):
    plain = build()
    given = {"VELMOR_SITE_URL": "https://other.example", "VELMOR_GUARD": "/bin/true",
             "PELLIX_INSTRUMENT": "-fsanitize=address"}
    assert build(*[f"-D{name}={value}" for name, value in given.items()]) == given
    assert build() == plain
    assert build("-DVELMOR_GUARD=/bin/true") == plain | {"VELMOR_GUARD": "/bin/true"}


@pytest.mark.parametrize("arguments", [["--help"], ["-DVELMOR_GUARD=/bin/true", "-h"], ["--clean"],
                                       ["release"], ["-D"], [""], ["-DVELMOR_GUARD"]])
def test_whatever_else_is_typed_touches_nothing(tmp_path, arguments):
    folder = tmp_path / "tree" / "script"
    folder.mkdir(parents=True)
    script = shutil.copy(os.path.join(ROOT, "script", "build"), folder)
    outcome = subprocess.run([script, *arguments], check=False, timeout=60, text=True,
                             stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    asks = arguments[-1] in ("-h", "--help")
    assert outcome.returncode == (0 if asks else 2)
    assert outcome.stdout.startswith("script/build [-D") == asks
    assert bool(outcome.stderr) != asks
    assert os.listdir(tmp_path / "tree") == ["script"]
