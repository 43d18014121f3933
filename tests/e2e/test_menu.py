"""The ten entries, the icon and the tooltip, as a panel gets them over D-Bus."""

import time

import pytest

from desktop import product
from desktop.notifier import MENU
from desktop.processes import wait_for
from e2e_harness import GUARD_ID, SERVICE_ID, drawing_tint, minutes_ago, wait_for_usual_menu

STATES = list(product.STATES)


def test_the_menu_follows_the_service(application, service):
    application.start()
    wait_for_usual_menu(application)
    icon, tooltip = application.item().icon, application.item().tooltip
    before, _layout = application.item().call_menu("GetLayout", "(iias)", 0, -1, [])
    announced = []
    application.desktop.host.bus.subscribe(lambda _sender, _path, arguments: announced.append(arguments),
                                           MENU, "LayoutUpdated")

    service.status.update(state="revoked", last_heartbeat=minutes_ago(180))
    application.wait_for_titles(product.menu("revoked", "3 h ago", SERVICE_ID),
                                timeout=product.POLL_INTERVAL + 5)
    assert tooltip == product.tooltip("authorized")
    assert application.item().tooltip == product.tooltip("revoked")
    assert application.item().icon != icon
    assert len(service.requests) == 2
    # Some panels read a menu again only if its number is higher than before.
    revisions = [revision for revision, _parent in announced]
    assert before < revisions[0] and revisions == sorted(revisions)
    assert {parent for _revision, parent in announced} == {0}


@pytest.mark.parametrize("state", STATES)
def test_every_state_shows_its_menu_icon_and_tooltip(application, service, state):
    service.status["state"] = state
    application.start()
    application.wait_for_titles(product.menu(state, "5 min ago", SERVICE_ID))
    item = application.item()

    assert item.tooltip == product.tooltip(state)
    assert drawing_tint(item.icon[1]) == (product.STATES[state].tint or "none")
    entries = application.menu()
    assert [entry.separator for entry in entries] == [title == product.SEPARATOR for title in
                                                      product.menu(state, "", "")]
    commands = [entry for entry in entries if not entry.separator]
    assert [entry.enabled for entry in commands] == [row.enabled for row in product.items(state)]
    assert [entry.key for entry in commands] == [
        row.key and f"Control+{row.key}" for row in product.items(state)]


def test_all_icons_differ(application, service):
    icons = {}
    for state in STATES:
        service.status["state"] = state
        application.start()
        wait_for(state, lambda: application.item().tooltip == product.tooltip(state))
        icons[state] = tuple(application.item().icon[1])
        application.stop()
    assert len(set(icons.values())) == len(STATES)


def test_a_service_that_is_down_is_starting(application, service):
    service.close()
    application.start()
    application.wait_for_titles(product.menu("offline", None, GUARD_ID))
    assert application.item().tooltip == product.tooltip("offline")


def test_a_service_that_never_answers_is_given_up_after_four_seconds(application, service):
    service.respond = lambda connection: connection.recv(1)
    application.start()
    service.wait_for_requests(1)
    asked = time.monotonic()
    application.wait_for_titles(product.menu("offline", None, GUARD_ID))
    assert 3.5 < time.monotonic() - asked < 5.5


@pytest.mark.parametrize("body, state, last_check", [
    (b"<html>not found</html>", "offline", None),
    (b"[1, 2]", "offline", None),
    (b"", "offline", None),
    (b"[" * 8_388_608, "offline", None),
    (b"{}", "unknown", "never"),
    (b'{"state": "Authorized", "device_id": 7}', "unknown", "never"),
    (b'{"state": "stale", "last_heartbeat": "2024-05-01 12:34:56"}', "stale", "never"),
    (b'{"state": "authorized", "last_heartbeat": "9999-12-31T23:59:59Z"}', "authorized", "just now"),
])
def test_an_odd_answer_leaves_the_known_identifier(application, service, body, state, last_check):
    service.answer(body, status="500 Internal Server Error")
    application.start()
    application.wait_for_titles(product.menu(state, last_check, GUARD_ID))


def test_the_identifier_outlives_the_service(application, service):
    application.start()
    wait_for_usual_menu(application)
    service.close()
    application.wait_for_titles(product.menu("offline", None, SERVICE_ID),
                                timeout=product.POLL_INTERVAL + 5)


@pytest.mark.parametrize("identifier", [
    "R&D_lab", "A_B__C", "&", "a&", "&a", "a && b", "_", "<b>x</b>", "100 %1 \\n {0}", " padded ",
    "", "two\nlines", "tab\there", "\u202eright to left\u202c", "\u05d0\u05d1", "\U0001f6e1",
    "x" * 10_000,
])
def test_identifiers_are_shown_and_copied_as_they_are(application, service, identifier):
    service.status["device_id"] = identifier
    application.start()
    application.wait_for_titles(product.menu("authorized", "5 min ago", identifier))
    application.item().click_number(application.menu()[product.ID_ROW].number)
    wait_for("the copy", lambda: application.desktop.clipboard() == identifier
             and application.desktop.owns_clipboard())


def test_an_unknown_symbol_leaves_a_glyph(application, service):
    def icon():
        application.start()
        wait_for("the icon", lambda: application.item().tooltip == product.tooltip("stale"))
        icon = application.item().icon[1]
        application.stop()
        return icon

    service.status["state"] = "stale"
    symbol = icon()
    application.remove_resource("symbols", product.STATES["stale"].symbol + ".svg")
    glyph = icon()
    assert glyph != symbol
    assert drawing_tint(glyph) == "orange"
