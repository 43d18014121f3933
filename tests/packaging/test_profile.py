"""The configuration profile, and what consoles take instead of it, say what the sources say."""

import json
import os
import plistlib
import re
import subprocess
import uuid

import jsonschema
import pytest

from packaging_harness import ROOT


def run(*arguments):
    # Of several Pythons that of the system, which starts at once.
    return subprocess.run([ROOT / "packaging/macos/make_profile", *arguments], check=False,
                          env=os.environ | {"PATH": "/usr/bin:/bin"},
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE)


def made(*arguments):
    result = run(*arguments)
    assert (result.returncode, result.stderr) == (0, b"")
    return result.stdout


def profile(*arguments):
    """Of the whole, with any team where none is named."""
    named = {"--team", "--only", "--any-team"} & set(arguments)
    return plistlib.loads(made(*arguments, *([] if named else ["--any-team"])))


def payload(content, kind):
    [found] = [each for each in content["PayloadContent"] if each["PayloadType"] == kind]
    return found


def rules(*arguments):
    return payload(profile(*arguments), "com.apple.servicemanagement")["Rules"]


def managed_defaults(*arguments):
    content = payload(profile(*arguments), "com.apple.ManagedClient.preferences")["PayloadContent"]
    [[domain, settings]] = content.items()
    [forced] = settings["Forced"]
    return domain, forced["mcx_preference_settings"]


def labels_of_the_code():
    return re.findall(r'string_view \w+Label = "([^"]+)"', (ROOT / "install/Paths.h").read_text())


def labels_of_the_package():
    return [plistlib.loads(path.read_bytes())["Label"]
            for path in sorted((ROOT / "packaging/macos/LaunchAgents").glob("*.plist"))]


def test_the_jobs_of_code_and_package_are_allowed_and_no_other():
    assert [(rule["RuleType"], rule["RuleValue"]) for rule in rules()] == [
        ("Label", label) for label in labels_of_the_code() + labels_of_the_package()]


def test_the_property_lists_of_the_code_bear_these_labels():
    tests = (ROOT / "tests/install/LaunchAgentsTest.cpp").read_text()
    for label in labels_of_the_code():
        assert f"<key>Label</key><string>{label}</string>" in tests


def test_the_port_is_pinned_to_the_one_of_the_service_in_the_domain_of_the_application():
    info = plistlib.loads((ROOT / "resources/macos/Info.plist.in").read_bytes())
    service = (ROOT / "tests/install/LaunchAgentsTest.cpp").read_text()
    [port] = re.findall(r'<string>--port</string>\\n"\s+"\s+<string>(\d+)</string>', service)
    assert managed_defaults() == (info["CFBundleIdentifier"], {"port": int(port)})


def test_a_given_port_is_pinned_instead_with_a_warning_that_nobody_listens_there():
    result = run("--any-team", "--port", "65535")
    [_, defaults] = plistlib.loads(result.stdout)["PayloadContent"]
    [forced] = defaults["PayloadContent"]["com.velmor.pellix.app"]["Forced"]
    assert forced["mcx_preference_settings"] == {"port": 65535}
    assert result.returncode == 0 and b"always listens on 8787" in result.stderr
    assert run("--any-team", "--port", "8787").stderr == b""


@pytest.mark.parametrize("port", ["0", "65536", "-1", "", "http", "1e3", "\u0661", "8787\n",
                                  pytest.param("9" * 5000, id="long")])
def test_a_port_that_cannot_be_is_refused(port):
    result = run("--any-team", "--port", port)
    assert result.returncode != 0 and b"1 to 65535" in result.stderr and not result.stdout


def test_jobs_are_bound_to_the_given_team_but_for_the_one_that_a_shell_runs():
    teams = {rule["RuleValue"]: rule.get("TeamIdentifier") for rule in rules("--team", "ABCDE12345")}
    assert teams == (dict.fromkeys(labels_of_the_code(), "ABCDE12345")
                     | dict.fromkeys(labels_of_the_package()))
    assert not any("TeamIdentifier" in rule for rule in rules("--any-team"))


@pytest.mark.parametrize("team", ["", "ABCDE1234", "abcde12345", "ABCDE123456", "ABCDE 1234",
                                  "ABCDE1234\n", "ÀBCDE12345"])
def test_what_is_no_team_identifier_is_refused(team):
    result = run("--team", team)
    assert result.returncode != 0 and not result.stdout


@pytest.mark.parametrize("arguments", [
    (), ("--only", "background"), ("--team", "ABCDE12345", "--any-team"),
    ("--only", "defaults", "--any-team"), ("--only", "defaults", "--team", "ABCDE12345"),
    ("--only", "background", "--any-team", "--port", "8787"),
    ("--only", "background", "--any-team", "--no-welcome"),
    ("--only", "everything"), ("--any-team", "more"), ("--any-team", "--organization", ""),
    ("--any-team", "--organization", "two\nlines"), ("--any-team", "--organization", "\x01"),
    ("--format", "manifest", "--port", "8787"), ("--format", "schema", "--any-team"),
    ("--format", "schema", "--organization", "x"), ("--format", "plist", "--any-team"), ("--any",)])
def test_arguments_that_make_no_sense_are_refused(arguments):
    result = run(*arguments)
    assert result.returncode == 2 and result.stderr.startswith(b"usage: ") and not result.stdout


def test_the_first_window_stays_closed_if_asked_for():
    assert managed_defaults("--no-welcome")[1] == {"port": 8787, "vlx_welcomed": True}
    assert "vlx_welcomed" not in managed_defaults()[1]


def test_a_profile_is_for_the_whole_mac_and_all_users():
    whole = profile()
    assert (whole["PayloadType"], whole["PayloadScope"]) == ("Configuration", "System")
    # The version is that of the format, and the only one that macOS knows.
    assert {each["PayloadVersion"] for each in (whole, *whole["PayloadContent"])} == {1}


def test_halves_are_profiles_of_their_own_that_replace_nothing():
    whole = profile("--team", "ABCDE12345", "--no-welcome")
    background = profile("--only", "background", "--team", "ABCDE12345")
    defaults = profile("--only", "defaults", "--no-welcome")
    [background_payload], [defaults_payload] = background["PayloadContent"], defaults["PayloadContent"]

    def content(payload):
        return payload.get("Rules") or payload["PayloadContent"]

    assert list(map(content, whole["PayloadContent"])) == [content(background_payload),
                                                           content(defaults_payload)]
    assert len(set(map(identity_of, (whole, background, defaults)))) == 3


def test_the_organisation_is_taken_as_it_is():
    name = 'Fish & "Chips" <Ltd>, Überlingen — 東京'
    assert profile("--organization", name)["PayloadOrganization"] == name


def test_the_same_profile_is_the_same_bytes():
    assert run("--team", "ABCDE12345").stdout == run("--team", "ABCDE12345").stdout


def identity_of(content):
    return tuple((each["PayloadIdentifier"], each["PayloadUUID"])
                 for each in (content, *content["PayloadContent"]))


def test_a_changed_profile_replaces_the_earlier_one():
    identities = identity_of(profile())
    assert identities == identity_of(profile("--no-welcome", "--team", "ABCDE12345"))
    assert len(set(identities)) == len({uuid.UUID(each[1]) for each in identities}) == 3


# What consoles take instead.

def schema():
    return json.loads(made("--format", "schema"))


def manifest():
    return plistlib.loads(made("--format", "manifest"))


def settings_of_manifest():
    return {each["pfm_name"]: each for each in manifest()["pfm_subkeys"]
            if not each["pfm_name"].startswith("Payload")}


def test_the_settings_are_those_that_the_application_reads():
    delegate = (ROOT / "app/AppDelegate.cpp").read_text()
    keys = set(re.findall(r'UserDefaults::integerForKey\("(\w+)"\)|welcomedKey = "(\w+)"', delegate))
    assert delegate.count("UserDefaults::integerForKey") + delegate.count("UserDefaults::boolForKey") == 2
    assert {first or second for first, second in keys} == set(schema()["properties"])


def test_manifest_and_schema_say_the_same():
    properties, settings = schema()["properties"], settings_of_manifest()
    assert list(properties) == list(settings)
    for key, setting in settings.items():
        assert [setting[f"pfm_{name}"] for name in ("title", "description", "type", "default")] == [
            properties[key][name] for name in ("title", "description", "type", "default")]
        for of_manifest, of_schema in (("range_min", "minimum"), ("range_max", "maximum")):
            assert setting.get(f"pfm_{of_manifest}") == properties[key].get(of_schema)
    assert manifest()["pfm_domain"] == schema()["__preferencedomain"] == managed_defaults()[0]


def test_what_the_profile_sets_is_allowed_by_the_schema_and_nonsense_is_not():
    validator = jsonschema.Draft7Validator(schema())
    jsonschema.Draft7Validator.check_schema(schema())
    assert validator.is_valid(managed_defaults("--no-welcome")[1])
    for nonsense in ({"port": 0}, {"port": 65536}, {"port": "8787"}, {"vlx_welcomed": 1}):
        assert not validator.is_valid(nonsense)
    assert {key: each["default"] for key, each in schema()["properties"].items()} == {
        "port": 8787, "vlx_welcomed": False}


def test_the_manifest_describes_a_payload():
    assert manifest()["pfm_platforms"] == ["macOS"]
    names = [each["pfm_name"] for each in manifest()["pfm_subkeys"]]
    assert len(names) == len(set(names))
    assert {each["pfm_name"] for each in manifest()["pfm_subkeys"] if "pfm_require" in each} == {
        "PayloadDisplayName", "PayloadIdentifier", "PayloadType", "PayloadUUID", "PayloadVersion"}
    assert all(each["pfm_type"] in ("string", "integer", "boolean") for each in manifest()["pfm_subkeys"])
