"""docs/deployment.md names things that are fixed elsewhere: here they are compared."""

import plistlib
import re

import pytest

from desktop import product
from sources import ROOT, found, read

DOCUMENT = read("docs/deployment.md")


def table_below(heading):
    """The rows of the first table after a heading, without the head."""
    section = DOCUMENT.split(f"\n{heading}\n")[1]
    table = re.search(r"(?:^\|.*\n)+", section, re.MULTILINE)[0]
    return [[cell.strip() for cell in row.strip("|").split("|")]
            for row in table.splitlines()[2:]]


def test_every_state_has_a_remedy_under_the_text_that_the_menu_shows():
    assert {row[0] for row in table_below("### What the menu says")} == {
        state.summary for state in product.STATES.values()}


def test_the_second_line_is_one_of_those_that_the_menu_shows():
    texts = found("app/StatusMenu.cpp", r'"(Last check: )"') + ["Starting Pellix…"]
    assert found("app/StatusMenu.cpp", '"Starting Pellix…"')
    for row in table_below("### What the menu says"):
        assert row[1].startswith(tuple(texts))


def test_the_glyphs_are_those_of_the_states():
    assert f"({' '.join(state.glyph for state in product.STATES.values())})" in DOCUMENT


def test_the_alert_has_the_text_of_the_code():
    [text] = found("install/Installer.cpp", r'string\(\) \+ "( binary missing [^"]+)"\)')
    assert table_below("### Alerts at launch")[0][0] == "velmor-guard" + text


def test_every_installed_file_is_listed_where_the_code_puts_it():
    places = {row[1].strip("`") for row in table_below("## What it installs")}
    [folder] = found("install/Paths.cpp", r'front\(\) / "(\w+/)"')
    support = f"~/Library/Application Support/{folder}"
    expected = {support + name for name in
                found("install/Paths.cpp", r'supportDir\(\) / "([^"]+)"')
                + found("install/Installer.cpp", r'supportDir\(\) / "([^"]+)"')
                + found("install/LaunchAgents.cpp", r'supportDir\(\) / "([^"]+)"')}
    [agents] = found("install/Paths.cpp", r'"(Library/[^"]+)"')
    expected |= {f"~/{agents}/{label}.plist"
                 for label in found("install/Paths.h", r'Label = "([^"]+)"')}
    assert len(expected) == 5 and expected <= places


@pytest.mark.parametrize("path, pattern", [
    ("install/Paths.h", r'Label = "([^"]+)"'),
    ("app/AppDelegate.cpp", r'welcomedKey = "([^"]+)"'),
    ("app/AppDelegate.cpp", r'"(--show-id)"'),
    ("app/StatusMenu.cpp", r'item\("(Authorize [^"]+|Show device [^"]+)"'),
    ("script/package", r"(PELLIX_\w+)"),
    ("script/package", r"-D(VELMOR_\w+)"),
    ("CMakeLists.txt", r"set\((VELMOR_\w+)"),
])
def test_what_is_named_is_what_the_sources_say(path, pattern):
    for text in found(path, pattern):
        assert text in DOCUMENT


def test_every_option_of_the_profile_is_explained():
    options = found("packaging/macos/make_profile", r'add_argument\("(--[a-z-]+)"')
    explained = " ".join(row[0] for row in table_below("### Other profiles"))
    assert set(re.findall(r"--[a-z-]+", explained)) == set(options)


def test_application_and_system_are_those_of_the_bundle():
    info = plistlib.loads((ROOT / "resources/macos/Info.plist.in").read_bytes())
    assert f"domain `{info['CFBundleIdentifier']}`" in DOCUMENT
    assert f"`/Applications/{info['CFBundleName']}.app`" in DOCUMENT
    [oldest] = found("CMakeLists.txt", r"DEPLOYMENT_TARGET (\d+)\.0")
    assert f"macOS {oldest} or later" in DOCUMENT


def test_the_changes_begin_with_the_version_that_is_built():
    [version] = found("CMakeLists.txt", r"project\(VelmorPellix VERSION ([\d.]+)")
    assert found("CHANGELOG.md", r"\n## ([\d.]+)")[0] == version
