"""What the install sequence leaves on disk and asks of launchd, and what it says when it cannot."""

import os

import pytest

from desktop import product
from desktop.files import listing, read, write
from desktop.processes import wait_for
from e2e_harness import (ORDINARY_USER, expect_alert, expect_installation, launchctl_sequence,
                         wait_for_usual_menu)


def test_a_fresh_home_gets_everything_to_the_byte(application):
    os.chmod(application.resource("velmor-guard"), 0o640)
    application.start()
    wait_for_usual_menu(application)
    expect_installation(application)
    assert listing(application.support) == ["logs", "managed.json", "velmor-guard"]


def test_an_existing_installation_is_renewed_and_nothing_else_touched(application):
    write(b"an older service", application.installed_guard)
    os.chmod(application.installed_guard, 0o400)
    write(b'{"site":"https://edited.example"}', application.support, "managed.json")
    write(b"old", application.agents, "com.velmor.pellix.plist")
    write(b"old and much longer" * 500, application.agents, "com.velmor.pellix.menubar.plist")
    write(b"its own", application.support, "velmor-guard.state.json")
    write(b"a log", application.support, "logs", "launchd.out.log")
    application.start()
    wait_for_usual_menu(application)
    expect_installation(application)
    assert read(application.support, "velmor-guard.state.json") == b"its own"
    assert read(application.support, "logs", "launchd.out.log") == b"a log"
    assert len(listing(application.support)) == 5


def test_every_launch_installs_again(application):
    application.start()
    wait_for_usual_menu(application)
    application.stop()
    application.bundle_guard("#!/bin/sh\necho GEN-newer\n")
    application.start()
    wait_for_usual_menu(application)
    assert read(application.installed_guard) == b"#!/bin/sh\necho GEN-newer\n"
    assert application.launchctl_calls() == 2 * launchctl_sequence(application)


def test_without_a_service_binary_it_says_so_and_goes_on(application):
    application.remove_resource("velmor-guard")
    application.start()
    assert expect_alert(application) == [product.MISSING_GUARD]
    assert listing(application.support) == ["managed.json"]
    assert os.listdir(application.agents) == []
    assert application.launchctl_calls() == []


def test_an_installed_service_binary_is_enough(application):
    application.start()
    wait_for_usual_menu(application)
    application.stop()
    installed = read(application.installed_guard)
    application.remove_resource("velmor-guard")
    os.remove(application.launchctl_log)
    application.start()
    wait_for_usual_menu(application)
    expect_installation(application, installed)


def test_without_launch_agents_folder_it_says_so_after_the_binary(application):
    os.rmdir(application.agents)
    application.start()
    [text] = expect_alert(application)
    assert text
    assert not os.path.exists(application.agents)
    assert listing(application.support) == ["logs", "managed.json", "velmor-guard"]
    assert application.launchctl_calls() == []


@pytest.mark.parametrize("in_the_way, left", [
    (("support", "managed.json"), ["managed.json"]),
    (("agents", "com.velmor.pellix.plist"), ["logs", "managed.json", "velmor-guard"]),
    (("agents", "com.velmor.pellix.menubar.plist"), ["logs", "managed.json", "velmor-guard"]),
])
def test_a_folder_where_a_file_should_be_stops_it_there(application, in_the_way, left):
    place, name = in_the_way
    folder = os.path.join(getattr(application, place), name)
    write(b"kept", folder, "inside")
    application.start()
    [text] = expect_alert(application)
    assert text
    assert read(folder, "inside") == b"kept"
    assert [path for path in listing(application.support) if "inside" not in path] == left
    assert application.launchctl_calls() == []


def test_a_folder_in_place_of_the_binary_gives_way(application):
    write(b"gone", application.installed_guard, "inside")
    application.start()
    wait_for_usual_menu(application)
    expect_installation(application)


def test_a_file_in_place_of_the_support_folder_stops_everything(application):
    write(b"kept", application.support)
    application.start()
    [text] = expect_alert(application)
    assert text
    assert read(application.support) == b"kept"
    assert os.listdir(application.agents) == []


def test_a_file_in_place_of_the_logs_folder_stops_before_the_property_lists(application):
    write(b"kept", application.support, "logs")
    application.start()
    expect_alert(application)
    assert os.listdir(application.agents) == []
    assert read(application.installed_guard) == read(application.resource("velmor-guard"))


def test_the_first_window_comes_after_the_alert(application, service):
    application.set_defaults(port=service.port)
    application.remove_resource("velmor-guard")
    application.start()
    alert = application.window(product.WINDOW_TITLE)
    assert alert.texts() == [product.MISSING_GUARD]
    application.desktop.settled_picture()
    application.desktop.press("Return")
    wait_for("the window", lambda: [window.texts()[0] for window in application.windows()] == [
        product.WINDOW_HEADING])
    wait_for_usual_menu(application)


# As a user who is bound by permissions ------------------------------------------

@pytest.fixture
def bound_application(application_on):
    return application_on(tray=True, user=ORDINARY_USER)


@pytest.fixture
def read_only():
    """Takes away the right to write; gives it back for the clean-up."""
    taken = []

    def take(folder):
        taken.append((folder, os.stat(folder).st_mode))
        os.chmod(folder, 0o555)
    yield take
    for folder, mode in taken:
        os.chmod(folder, mode)


def test_a_read_only_home_stops_everything_and_the_launch_goes_on(bound_application, read_only):
    application = bound_application
    read_only(os.path.join(application.home, "Library"))
    application.start()
    [text] = expect_alert(application)
    assert "ermission" in text
    assert not os.path.exists(application.support)
    assert os.listdir(application.agents) == []
    assert application.launchctl_calls() == []


def test_a_read_only_support_folder_keeps_what_it_has(bound_application, read_only):
    application = bound_application
    write(b"older", application.installed_guard)
    write(b"older", application.support, "managed.json")
    read_only(application.support)
    application.start()
    [text] = expect_alert(application)
    assert "ermission" in text
    assert read(application.installed_guard) == b"older"
    assert read(application.support, "managed.json") == b"older"
    assert os.listdir(application.agents) == []


def test_a_read_only_launch_agents_folder_keeps_what_it_has(bound_application, read_only):
    application = bound_application
    write(b"older", application.agents, "com.velmor.pellix.plist")
    read_only(application.agents)
    application.start()
    [text] = expect_alert(application)
    assert "ermission" in text
    assert read(application.agents, "com.velmor.pellix.plist") == b"older"
    assert os.listdir(application.agents) == ["com.velmor.pellix.plist"]
    assert read(application.installed_guard) == read(application.resource("velmor-guard"))
    assert application.launchctl_calls() == []


def test_an_unreadable_bundled_binary_is_reported(bound_application):
    application = bound_application
    os.chmod(application.resource("velmor-guard"), 0)
    application.start()
    [text] = expect_alert(application)
    assert "ermission" in text
    assert listing(application.support) == ["managed.json"]
    assert os.listdir(application.agents) == []


def test_unescaped_paths_reach_the_property_lists_as_they_are(application_on, service, stack):
    application = application_on(tray=True)
    moved = application.desktop.path("R & D <x>")
    os.rename(application.bundle, moved)
    application.bundle = moved
    application.start()
    wait_for_usual_menu(application)
    expect_installation(application)
