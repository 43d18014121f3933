"""Every source is built: a list in a CMakeLists.txt names what is in its folder, and nothing else.

Without this a source that a list forgets is missed only by the machine that builds that folder.
"""

import fnmatch
import pathlib
import re

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
FOLDERS = ("app", "client", "identity", "install", "model", "platform", "tests")
LISTS = [ROOT / "CMakeLists.txt",
         *(path for folder in FOLDERS for path in sorted((ROOT / folder).rglob("CMakeLists.txt")))]


def sources_below(folder):
    return {path.relative_to(folder).as_posix() for suffix in ("cpp", "mm")
            for path in folder.rglob(f"*.{suffix}")}


def named(text):
    """The sources that a list names: patterns, relative to its folder."""
    text = re.sub(r"#[^\n]*", "", text)
    names = re.findall(r"[\w.*$/{}-]+\.(?:cpp|mm)\b", text)
    # What is elsewhere is some other list's to name; a variable may stand for any text.
    return {re.sub(r"\$\{\w+\}", "*", name) for name in names if not name.startswith("${root}")}


def problems(folder, text, lists_below):
    """What is wrong with the list of a folder: names without a source, sources without a name."""
    patterns = named(text)
    sources = sources_below(folder)
    own = {source for source in sources
           if not any((folder / source).is_relative_to(below) for below in lists_below)}
    unnamed = {source for source in own
               if not any(fnmatch.fnmatchcase(source, pattern) for pattern in patterns)}
    unmet = {pattern for pattern in patterns if not fnmatch.filter(sources, pattern)}
    return {"not named": sorted(unnamed), "not there": sorted(unmet)}


@pytest.mark.parametrize("path", LISTS, ids=lambda path: str(path.relative_to(ROOT)))
def test_a_list_names_what_is_in_its_folder(path):
    below = [other.parent for other in LISTS
             if other.parent != path.parent and other.is_relative_to(path.parent)]
    if path.parent == ROOT:
        below += [each for each in ROOT.iterdir() if each.name not in FOLDERS]
    found = problems(path.parent, path.read_text(encoding="utf-8"), below)
    assert found == {"not named": [], "not there": []}


def test_every_folder_with_sources_has_a_list():
    for folder in FOLDERS:
        for source in sources_below(ROOT / folder):
            parents = (ROOT / folder / source).parents
            assert any(path.parent in parents for path in LISTS if path.parent != ROOT), source


@pytest.mark.parametrize("old, new, found", [
    ("  Timer.mm\n", "", {"not named": ["Timer.mm"], "not there": []}),
    ("  Timer.mm\n", "  # Timer.mm\n", {"not named": ["Timer.mm"], "not there": []}),
    ("  Timer.mm\n", "  Timer.mm Gone.mm\n", {"not named": [], "not there": ["Gone.mm"]}),
])
def test_a_list_that_lies_is_found(old, new, found):
    path = ROOT / "platform/cocoa/CMakeLists.txt"
    text = path.read_text(encoding="utf-8")
    assert old in text
    assert problems(path.parent, text.replace(old, new), []) == found
