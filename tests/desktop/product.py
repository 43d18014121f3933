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

STARTING = "Starting Pellix…"
SEPARATOR = "---"


def menu(state, last_check, device_id):
    """The titles of the ten entries; `last_check` is None while no service answers."""
    authorized = state == "authorized"
    return [
        STATES[state].summary,
        STARTING if last_check is None else f"Last check: {last_check}",
        SEPARATOR,
        "Open WordPress Admin" if authorized else "Authorize this Mac…",
        "Show status…",
        "Show device ID…",
        SEPARATOR,
        device_id,
        SEPARATOR,
        "Quit Pellix",
    ]


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
