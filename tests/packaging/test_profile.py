"""The configuration profile says what the sources say."""

import plistlib
import re
import subprocess
import uuid

import pytest

from packaging_harness import ROOT


def run(*arguments):
    return subprocess.run([ROOT / "packaging/macos/make_profile", *arguments], check=False,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE)


def profile(*arguments):
    result = run(*arguments)
    assert result.returncode == 0, result.stderr
    return plistlib.loads(result.stdout)


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


def test_both_jobs_of_the_code_are_allowed_and_no_other():
    paths = (ROOT / "install/Paths.h").read_text()
    assert [(rule["RuleType"], rule["RuleValue"]) for rule in rules()] == [
        ("Label", label) for label in re.findall(r'string_view \w+Label = "([^"]+)"', paths)]


def test_the_property_lists_of_the_code_bear_these_labels():
    tests = (ROOT / "tests/install/LaunchAgentsTest.cpp").read_text()
    for rule in rules():
        assert f"<key>Label</key><string>{rule['RuleValue']}</string>" in tests


def test_the_port_is_pinned_to_the_one_of_the_service_in_the_domain_of_the_application():
    info = plistlib.loads((ROOT / "resources/macos/Info.plist.in").read_bytes())
    service = (ROOT / "install/LaunchAgents.cpp").read_text()
    [port] = re.findall(r"<string>--port</string>\s+<string>(\d+)</string>", service)
    assert managed_defaults() == (info["CFBundleIdentifier"], {"port": int(port)})


def test_a_given_port_is_pinned_instead():
    assert managed_defaults("--port", "65535")[1] == {"port": 65535}


@pytest.mark.parametrize("port", ["0", "65536", "-1", "", "http", "1e3", "\u0661"])
def test_a_port_that_cannot_be_is_refused(port):
    result = run("--port", port)
    assert result.returncode != 0 and b"1 to 65535" in result.stderr and not result.stdout


def test_jobs_are_bound_to_the_given_team():
    assert [rule["TeamIdentifier"] for rule in rules("--team", "ABCDE12345")] == ["ABCDE12345"] * 2
    assert not any("TeamIdentifier" in rule for rule in rules())


@pytest.mark.parametrize("team", ["", "ABCDE1234", "abcde12345", "ABCDE123456", "ABCDE 1234"])
def test_what_is_no_team_identifier_is_refused(team):
    result = run("--team", team)
    assert result.returncode != 0 and not result.stdout


def test_the_same_profile_is_the_same_bytes():
    assert run("--team", "ABCDE12345").stdout == run("--team", "ABCDE12345").stdout


def test_a_changed_profile_replaces_the_earlier_one():
    def identity(content):
        return [(each["PayloadIdentifier"], each["PayloadUUID"])
                for each in (content, *content["PayloadContent"])]

    identities = identity(profile())
    assert identities == identity(profile("--port", "9000", "--team", "ABCDE12345"))
    assert len(set(identities)) == len({uuid.UUID(each[1]) for each in identities}) == 3
