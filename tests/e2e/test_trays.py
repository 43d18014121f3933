"""Both kinds of tray: the StatusNotifierItem host and the X11 system tray in a bar."""

import time

import pytest

from desktop import notifier, product
from desktop.processes import TimedOut, wait_for
from e2e_harness import SERVICE_ID, expect_page, pixel_tint, wait_for_usual_menu


@pytest.fixture
def application(application_on):
    """In a session with a menu bar and no StatusNotifierItem host."""
    return application_on(bar="light")


def start(application, service, state="authorized"):
    service.status["state"] = state
    application.start()
    service.wait_for_requests(1)
    application.bar_icon()
    application.desktop.settled_picture()


@pytest.mark.parametrize("bar", ["light", "dark"])
@pytest.mark.parametrize("state", product.STATES)
def test_the_icon_in_a_bar_has_its_colour(application_on, service, bar, state):
    application = application_on(bar=bar)
    start(application, service, state)
    picture = application.desktop.picture()
    background = picture.pixel(4, 4)
    drawn = [pixel for pixel in picture.crop(*application.bar_icon()).pixels()
             if max(abs(a - b) for a, b in zip(pixel, background)) > 100]
    assert len(drawn) > 40, "nothing is drawn"
    wanted = product.STATES[state].tint or "none"
    same = [pixel for pixel in drawn if pixel_tint(*pixel) == wanted]
    assert len(same) > 0.6 * len(drawn)  # the rest are edges, between both colours


def test_a_session_without_a_bus_has_the_icon_too(application, service):
    application.desktop.environment["DBUS_SESSION_BUS_ADDRESS"] = "unix:path=/nonexistent/bus"
    start(application, service)
    application.open_menu()


def open_menu(application):
    application.open_menu()
    return application.read_open_menu()


@pytest.mark.parametrize("state", product.STATES)
def test_a_click_opens_the_whole_menu(application, service, state):
    start(application, service, state)
    entries = open_menu(application)
    assert [entry.name or product.SEPARATOR for entry in entries] == product.menu(
        state, "5 min ago", SERVICE_ID)
    assert [entry.role == "separator" for entry in entries] == [
        title == product.SEPARATOR for title in product.menu(state, "", "")]
    commands = [entry for entry in entries if entry.role != "separator"]
    assert [entry.has("enabled") for entry in commands] == [
        row.enabled for row in product.items(state)]


@pytest.mark.parametrize("identifier", ["R&D_lab", "A_B__C", "<b>x</b>", "two\nlines", "x" * 10_000])
def test_identifiers_are_shown_and_copied_as_they_are(application, service, identifier):
    service.status["device_id"] = identifier
    start(application, service)
    row = open_menu(application)[product.ID_ROW]
    x, _y, width, _height = row.frame
    assert 0 <= x and x + width <= application.desktop.size[0]
    commands = [row for row in product.items("authorized") if row.enabled]
    [place] = [at for at, row in enumerate(commands) if not row.title]
    application.desktop.press(*place * ["Down"], "Return")  # one key chose the first
    application.desktop.wait_for_clipboard(identifier)


@pytest.mark.parametrize("state, key, page", [
    ("authorized", "ctrl+o", "/authorize"), ("stale", "ctrl+a", "/"), ("stale", "ctrl+s", "/"),
])
def test_key_equivalents_work_while_the_menu_is_open(application, service, state, key, page):
    start(application, service, state)
    application.open_menu()
    application.desktop.press(key)
    expect_page(application, service, page)
    wait_for("the end of the menu", lambda: not application.popups())


def test_key_equivalents_do_nothing_otherwise(application, service):
    application.set_defaults(port=service.port)
    start(application, service)
    application.window(product.WINDOW_TITLE)
    application.desktop.press("ctrl+q", "ctrl+s")
    with pytest.raises(TimedOut):
        wait_for("a page", application.desktop.opened_pages, 1)
    assert [window.texts()[0] for window in application.windows()] == [product.WINDOW_HEADING]


def test_i_shows_the_window_and_q_asks(application, service):
    start(application, service)
    application.open_menu()
    application.desktop.press("ctrl+i")
    assert application.window(product.WINDOW_TITLE).texts()[-1] == SERVICE_ID
    application.desktop.press("Return")
    application.wait_for_no_windows()
    application.open_menu()
    application.desktop.press("ctrl+q")
    assert application.window(product.WINDOW_TITLE).texts()[0] == product.QUIT_QUESTION
    application.desktop.settled_picture()
    application.desktop.press("Return")
    assert application.wait_for_end() == 0


def test_an_open_menu_stays_through_a_poll_and_works(application, service):
    start(application, service)
    entries = open_menu(application)
    service.status["state"] = "revoked"
    service.wait_for_requests(2)
    application.desktop.settled_picture()
    assert len(application.popups()) == 1
    assert entries[product.STATE_ROW].name == product.STATES["authorized"].summary
    application.desktop.press("Return")
    expect_page(application, service, "/authorize")
    assert open_menu(application)[product.STATE_ROW].name == product.STATES["revoked"].summary


@pytest.mark.parametrize("place, text", [
    ("icon", product.tooltip("stale")),
    ("row", "Click to copy — IT needs this to approve your Mac"),
])
def test_tooltips_appear_under_the_pointer(application, service, place, text):
    start(application, service, "stale")
    if place == "icon":
        frame = application.bar_icon()
    else:
        frame = open_menu(application)[product.ID_ROW].frame
    x, y = frame[0] + frame[2] // 2, frame[1] + frame[3] // 2
    application.desktop.point(x - 3, y)
    application.desktop.point(x, y)
    wait_for("the tooltip", lambda: text in [window.name for window in application.windows()], 5)


def test_a_host_that_comes_late_gets_the_item(application_on, service):
    application = application_on()
    application.start()
    service.wait_for_requests(1)
    application.desktop.host = notifier.Host(application.desktop.bus_address)
    wait_for_usual_menu(application)


def test_a_host_that_comes_again_gets_the_item_again(application_on):
    application = application_on(tray=True)
    application.start()
    wait_for_usual_menu(application)
    application.desktop.host.close()
    application.desktop.host = notifier.Host(application.desktop.bus_address)
    wait_for_usual_menu(application)


def test_a_host_that_is_busy_when_it_is_asked_gets_the_item_in_the_end(application_on, service):
    application = application_on(tray=True)
    application.desktop.host.be_busy(6)
    application.start()
    service.wait_for_requests(1)
    assert application.running
    wait_for_usual_menu(application)


def test_where_there_is_no_host_nobody_keeps_asking_for_one(application_on, service):
    application = application_on()
    application.desktop.start("monitor", "dbus-monitor", "--session", "member='Get'")
    application.start()
    service.wait_for_requests(1)
    time.sleep(6)
    assert application.desktop.log("monitor").count("IsStatusNotifierHostRegistered") == 1


def test_a_bar_that_comes_late_gets_the_icon(application_on, service):
    application = application_on()
    application.start()
    service.wait_for_requests(1)
    application.desktop.start_bar("light")
    assert application.bar_icon()[2] >= 16


def test_a_host_is_preferred_to_a_bar(application_on, service):
    application = application_on(tray=True, bar="light")
    application.start()
    wait_for_usual_menu(application)
    with pytest.raises(TimedOut):
        application.bar_icon(timeout=1)
