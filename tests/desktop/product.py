"""What the product shows, as people see it."""

import uuid
from typing import NamedTuple


class State(NamedTuple):
    wire: str
    symbol: str
    summary: str
    tint: str
    glyph: str


STATES = {state.wire: state for state in (
    State("authorized", "checkmark.shield.fill", "Device authorized", None, "◆"),
    State("not_enrolled", "exclamationmark.shield", "Not authorized yet", "orange", "◇"),
    State("offline", "shield.slash", "Cannot reach WordPress", None, "◌"),
    State("stale", "clock.badge.exclamationmark", "Trust expired", "orange", "◑"),
    State("revoked", "xmark.shield.fill", "Revoked by IT", "red", "✕"),
    State("unknown", "shield", "Checking…", None, "◍"),
)}

PORT = 8787  # of the service, as its property list says
POLL_INTERVAL = 20  # seconds

STARTING = "Starting Pellix…"
SEPARATOR = "---"


class Row(NamedTuple):
    title: str
    key: str = ""
    enabled: bool = True


def menu_rows(state, last_check, device_id):
    """The whole menu; `last_check` is None while no service answers."""
    authorized = Row("Open WordPress Admin", "O")
    others = Row("Authorize this Mac…", "A")
    return [
        Row(STATES[state].summary, enabled=False),
        Row(STARTING if last_check is None else f"Last check: {last_check}", enabled=False),
        Row(SEPARATOR),
        authorized if state == "authorized" else others,
        Row("Show status…", "S"),
        Row("Show device ID…", "I"),
        Row(SEPARATOR),
        Row(device_id),
        Row(SEPARATOR),
        Row("Quit Pellix", "Q"),
    ]


def menu(state, last_check, device_id):
    return [row.title for row in menu_rows(state, last_check, device_id)]


# Where in the menu these stand, whatever it says.
STATE_ROW = menu("unknown", "", "").index(STATES["unknown"].summary)
ID_ROW = menu("unknown", "", "the ID").index("the ID")


def items(state):
    """The rows that are no separators, from the first to the last."""
    return [row for row in menu_rows(state, "", "") if row.title != SEPARATOR]


def hardware_identifier():
    """The device ID of this machine where no service tells another."""
    with open("/etc/machine-id", encoding="ascii") as file:
        return "HW-UUID-" + str(uuid.UUID(file.read().strip())).upper()


def tooltip(state):
    return f"Velmor Pellix — {STATES[state].summary}"


WINDOW_TITLE = "Velmor Pellix"
WINDOW_HEADING = "Your device ID"
WINDOW_TEXT = ("Send this to Orlen / IT with your work email. They will whitelist this Mac, "
               "then you can authorize from the menu bar shield.")
COPY, COPIED, DONE = "Copy device ID", "Copied!", "Done"

QUIT_QUESTION = "Quit Pellix?"
QUIT_TEXT = ("This closes the menu bar icon only. Your Mac stays authorized and Pellix keeps "
             "running in the background.")
MISSING_GUARD = "velmor-guard binary missing from the app bundle."
