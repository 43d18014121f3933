"""What the sources and documents of the repository say."""

import pathlib
import re

ROOT = pathlib.Path(__file__).resolve().parents[2]
FOLDERS = [path.name for path in ROOT.iterdir()
           if path.is_dir() and path.name != "build" and path.name[0] not in "._"]
DOCUMENTS = sorted(path for path in (
    each.relative_to(ROOT).as_posix()
    for pattern in ("*.md", *(f"{folder}/**/*.md" for folder in FOLDERS))
    for each in ROOT.glob(pattern)) if "/." not in path)


def read(path):
    return (ROOT / path).read_text(encoding="utf-8")


def found(path, pattern):
    """All that a file says in the words of a pattern, which must be there."""
    matches = re.findall(pattern, read(path), re.MULTILINE)
    assert matches, f"{path} has no {pattern}"
    return matches
