"""What the sources and documents of the repository say."""

import pathlib
import re

ROOT = pathlib.Path(__file__).resolve().parents[2]


def read(path):
    return (ROOT / path).read_text(encoding="utf-8")


def found(path, pattern):
    """All that a file says in the words of a pattern, which must be there."""
    matches = re.findall(pattern, read(path), re.MULTILINE)
    assert matches, f"{path} has no {pattern}"
    return matches
