"""The system's own tools."""

import pathlib
import subprocess

from kit.outcome import NotSo

SECONDS = 20


def run(path, *arguments):
    """A run of a tool to its end, with what it has printed."""
    try:
        return subprocess.run([path, *map(str, arguments)], check=False, stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, timeout=SECONDS)
    except subprocess.TimeoutExpired:
        raise NotSo(f"{pathlib.Path(path).name} does not end") from None
    except OSError as error:
        raise NotSo(f"{path}: {error.strerror}") from None
