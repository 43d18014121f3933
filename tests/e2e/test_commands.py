"""What each command of the menu does."""

import pytest

from desktop import product
from desktop.processes import TimedOut, wait_for
from e2e_harness import GUARD_ID, SERVICE_ID, USUAL_MENU, expect_page


def start(application, service, state):
    service.status["state"] = state
    application.start()
    application.wait_for_titles(product.menu(state, "5 min ago", SERVICE_ID))
    return application.item()


@pytest.mark.parametrize("state, command, page", [
    ("authorized", "Open WordPress Admin", "/authorize"),
    ("authorized", "Show status…", "/"),
    ("revoked", "Authorize this Mac…", "/"),
    ("revoked", "Show status…", "/"),
])
def test_pages_open_in_the_browser(application, service, state, command, page):
    start(application, service, state).click(command)
    expect_page(application, service, page)


def test_the_identifier_row_replaces_the_clipboard(application, service):
    item = start(application, service, "authorized")
    application.desktop.fill_clipboard("something else")
    item.click(SERVICE_ID)
    application.desktop.wait_for_clipboard(SERVICE_ID)


def test_show_device_id_opens_the_window_with_the_identifier_of_the_service(application, service):
    start(application, service, "authorized").click("Show device ID…")
    assert application.window(product.WINDOW_TITLE).texts()[-1] == SERVICE_ID


def test_a_second_window_has_the_identifier_of_its_time(application, service):
    item = start(application, service, "authorized")
    item.click("Show device ID…")
    assert application.window(product.WINDOW_TITLE).texts()[-1] == SERVICE_ID
    service.status["device_id"] = "GEN-later"
    application.wait_for_titles(product.menu("authorized", "5 min ago", "GEN-later"),
                                timeout=product.POLL_INTERVAL + 5)
    assert application.window(product.WINDOW_TITLE).texts()[-1] == SERVICE_ID
    application.item().click("Show device ID…")
    wait_for("the second window", lambda: "GEN-later" in [
        window.texts()[-1] for window in application.windows()])


def test_a_click_on_a_menu_that_was_replaced_meanwhile_still_counts(application, service):
    item = start(application, service, "authorized")
    number = next(entry.number for entry in item.menu if entry.title == "Open WordPress Admin")
    service.status["state"] = "revoked"
    application.wait_for_titles(product.menu("revoked", "5 min ago", SERVICE_ID),
                                timeout=product.POLL_INTERVAL + 5)
    application.item().click_number(number)
    expect_page(application, service, "/authorize")


def ask_to_quit(application, service):
    start(application, service, "authorized").click("Quit Pellix")
    alert = application.window(product.WINDOW_TITLE)
    assert alert.texts() == [product.QUIT_QUESTION, product.QUIT_TEXT]
    assert [node.name for node in alert.walk() if node.role == "push button"] == ["Quit", "Cancel"]
    return alert


@pytest.mark.parametrize("key", ["Return", "KP_Enter"])
def test_quitting_is_the_default_answer(application, service, key):
    ask_to_quit(application, service)
    application.desktop.settled_picture()
    application.desktop.press(key)
    assert application.wait_for_end() == 0
    assert application.said() == ""


def test_a_click_on_quit_quits(application, service):
    ask_to_quit(application, service).find("push button", "Quit").press()
    assert application.wait_for_end() == 0


@pytest.mark.parametrize("answer", ["Escape", "Cancel", "close"])
def test_anything_else_leaves_the_application_running(application, service, answer):
    alert = ask_to_quit(application, service)
    application.desktop.settled_picture()
    if answer == "Cancel":
        alert.find("push button", "Cancel").press()
    else:
        application.desktop.press("alt+F4" if answer == "close" else answer)
    application.wait_for_no_windows()
    with pytest.raises(TimedOut):
        application.wait_for_end(1)
    assert application.titles() == USUAL_MENU


def test_the_copied_identifier_is_the_last_known_one(application, service):
    service.answer(b'{"state": "authorized"}')
    application.start()
    application.wait_for_titles(product.menu("authorized", "never", GUARD_ID))
    application.item().click(GUARD_ID)
    application.desktop.wait_for_clipboard(GUARD_ID)


@pytest.mark.parametrize("command", ["Authorize this Mac…", "Show status…"])
def test_an_impossible_port_opens_nothing(application, command):
    application.set_defaults(port=99999999, vlx_welcomed="true")
    application.start()
    application.wait_for_titles(product.menu("unknown", None, GUARD_ID))
    application.item().click(command)
    with pytest.raises(TimedOut):
        wait_for("a page", application.desktop.opened_pages, timeout=1)
    assert application.running
