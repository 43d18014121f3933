"""The documents name what there is."""

import re

from sources import ROOT, read


def folders_named(text):
    names = set()
    for path in re.findall(r"`(tests/[^`]*)`", text):
        before, braces, after = path.partition("{")
        for name in after.rstrip("}").split(",") if braces else [""]:
            names.add((before + name).split("/")[1])
    return names


def test_every_folder_of_tests_is_described():
    folders = {path.name for path in (ROOT / "tests").iterdir()
               if path.is_dir() and any(path.rglob("*.*")) and not path.name.startswith((".", "_"))}
    assert folders - folders_named(read("docs/testing.md")) == set()


def test_every_command_is_described():
    commands = {path.name for path in (ROOT / "script").iterdir()}
    named = set(re.findall(r"script/([\w-]+)", "".join(
        read(path) for path in ("README.md", "CONTRIBUTING.md", "docs/testing.md"))))
    assert commands - named == set()


def test_every_quoted_text_with_an_ellipsis_is_shown():
    """Menu titles, mostly. Code is no prose, and has ellipses of its own."""
    quoted = {(path.name, text) for path in [ROOT / "README.md", *ROOT.glob("docs/*.md")]
              for text in re.findall(r'"([A-Z][\w ]+…)"', " ".join(re.sub(
                  r"```.*?```|`[^`]*`", "", path.read_text(encoding="utf-8"), flags=re.DOTALL).split()))}
    shown = re.findall(r'"([^"]+…)"', read("app/StatusMenu.cpp") + read("model/TrustState.cpp"))
    assert {text for _path, text in quoted} >= {"Show status…", "Authorize this Mac…"}
    assert [each for each in sorted(quoted) if each[1] not in shown] == []


def test_every_path_that_a_guide_names_is_there():
    for path in ("README.md", "CONTRIBUTING.md", "docs/architecture.md", "docs/testing.md"):
        for name in re.findall(r"`((?:app|client|cmake|docs|identity|install|model|packaging|platform"
                               r"|resources|script|standin|tests)/[\w./-]+)", read(path)):
            assert (ROOT / name).exists(), f"{path}: {name}"
