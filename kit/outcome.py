"""How a rule can turn out otherwise than holding, and how to show what was seen."""

import json


class NotSo(Exception):
    """A rule that does not hold: what was seen instead."""


class Untold(Exception):
    """Why there is nothing to be said about a rule, and by which other rule if it is one."""

    rule = None

    @classmethod
    def because(cls, rule):
        reason = cls(f"{rule} does not hold")
        reason.rule = rule
        return reason


def printable(text):
    """The text on one line, whatever a terminal would make of its characters."""
    return "".join(each if each.isprintable() else each.encode("unicode_escape").decode()
                   for each in text)


def quoted(value, longest=60):
    """Anything, on one line and not too long."""
    text = value if isinstance(value, str) else json.dumps(value, ensure_ascii=False)
    shown = printable(text[:longest]) + ("…" if len(text) > longest else "")
    return f'"{shown}"' if isinstance(value, str) else shown
