"""docs/security.md lists what the program reads, writes, runs and sends: here the sources are asked."""

import pathlib
import re

ROOT = pathlib.Path(__file__).resolve().parents[2]
DOCUMENT = (ROOT / "docs/security.md").read_text(encoding="utf-8")
CORE = {path: path.read_text(encoding="utf-8") for folder in ("app", "client", "identity", "install", "model")
        for path in (ROOT / folder).glob("*.cpp")}
COCOA = {path: path.read_text(encoding="utf-8") for path in (ROOT / "platform/cocoa").glob("*.mm")}


def table_after(words):
    text = DOCUMENT.split(f"\n{words}")[1]
    return re.search(r"(?:^\|.*\n)+", text, re.MULTILINE)[0]


def found(sources, pattern):
    return {match for text in sources.values() for match in re.findall(pattern, text)}


def test_no_address_but_that_of_the_service_is_in_the_program():
    addresses = found(CORE | COCOA, r'https?://[^\s")]*')
    # The second is the name of a document type, which nobody fetches.
    assert addresses == {"http://127.0.0.1:", "http://www.apple.com/DTDs/PropertyList-1.0.dtd"}
    assert "`127.0.0.1`" in table_after("It sends:")


def test_every_page_and_request_is_listed():
    sent = table_after("It sends:")
    pages, requests = found(CORE, r'openPage\("([^"]+)"\)'), found(CORE, r'baseURL\(\) \+ "([^"]+)"')
    assert pages and requests
    for path in pages | requests:
        assert f"{path}`" in sent
    assert set(re.findall(r"`(?:GET )?(/[a-z.]*)`", sent)) == pages | requests


def test_every_file_that_is_written_is_listed():
    written = table_after("It writes,")
    labels = re.findall(r'string_view \w+Label = "([^"]+)"', (ROOT / "install/Paths.h").read_text())
    paths = found(CORE, r'supportDir\(\) / "([^"/]+)"') | {f"{label}.plist" for label in labels}
    assert len(paths) == 4
    for name in paths:
        assert f"`{name}`" in written


def test_every_program_that_is_run_is_listed():
    run = table_after("It runs,")
    commands = found(CORE, r'launchctl\(\{"(\w+)"')
    assert commands == set(re.findall(r"`(boot\w+|kickstart)`", run))
    assert found(CORE, r'Paths::guardBinary\(\), \{([^}]*)\}') == {'"id", "--json"'} and "`id --json`" in run
    assert len(re.findall(r"platform::Task task\(", "".join(CORE.values()))) == 2


def test_every_setting_is_listed():
    keys = found(CORE, r'integerForKey\("(\w+)"\)') | found(CORE, r'welcomedKey = "(\w+)"')
    assert keys == set(re.findall(r"`(port|vlx_\w+)`", table_after("It reads:")))
    assert len(re.findall(r"UserDefaults::set\w+\(", "".join(CORE.values()))) == 1


def test_there_are_no_entitlements():
    assert not [path for path in ROOT.glob("resources/**/*") if path.suffix == ".entitlements"]
    assert "--entitlements -" in (ROOT / "script/package").read_text()  # which only displays those of the service
    assert not re.search(r"--entitlements [^-]", (ROOT / "script/package").read_text())
