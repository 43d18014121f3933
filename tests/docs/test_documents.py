"""The documents name what there is."""

import re

import pytest

from sources import DOCUMENTS, FOLDERS, ROOT, read


def test_every_folder_is_described():
    assert set(re.findall(r"^\| `(\w+)/` \|", read("docs/architecture.md"), re.MULTILINE)) == set(FOLDERS)


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


@pytest.mark.parametrize("document", DOCUMENTS)
def test_every_row_of_a_table_has_as_many_cells_as_its_head(document):
    """Further ones are not shown."""
    for table in re.findall(r"(?:^\|.*\n)+", read(document), re.MULTILINE):
        head, *rows = [len(re.findall(r"(?<!\\)\|", row)) for row in table.splitlines()]
        assert [row for row in rows if row != head] == [], table


def paths_named(document):
    """Those of the tree: seen from its root, or from the document."""
    return re.findall(r"`(?!build/|\./)([\w.-]+/[\w./-]+)", read(document))


@pytest.mark.parametrize("document", DOCUMENTS)
def test_every_path_that_a_document_names_is_there(document):
    assert [name for name in paths_named(document)
            if not (ROOT / name).exists() and not (ROOT / document).parent.joinpath(name).exists()] == []


def anchors_of(path):
    return {re.sub(r"[^\w -]", "", heading.lower()).replace(" ", "-")
            for heading in re.findall(r"^#+ (.+)$", path.read_text(encoding="utf-8"), re.MULTILINE)}


def leads_somewhere(document, target):
    name, _, anchor = target.partition("#")
    path = (ROOT / document).parent / name if name else ROOT / document
    return path.exists() and (not anchor or anchor in anchors_of(path))


@pytest.mark.parametrize("document", DOCUMENTS)
def test_every_link_leads_somewhere(document):
    assert [target for target in re.findall(r"\]\(([^)]+)\)", read(document))
            if not leads_somewhere(document, target)] == []


def test_paths_and_links_are_found():
    assert {"kit/session.py", "model/Status.h"} <= set(paths_named("CONTRIBUTING.md"))
    assert not leads_somewhere("README.md", "docs/mdm.md#nothing-of-the-kind")
