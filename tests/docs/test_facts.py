"""A figure has one home in the sources; wherever prose repeats it, it is the same."""

import re

import pytest

from sources import DOCUMENTS, ROOT, found, read

PROSE = [*DOCUMENTS, *(path.relative_to(ROOT).as_posix() for folder in ("app", "client", "install")
                       for path in (ROOT / folder).glob("*.h"))]

# Its home, and the words that prose puts it in.
FACTS = {
    "poll interval": ("app/AppDelegate.cpp", r"pollInterval = (\d+)\.0;",
                      r"(?:(?<!most )every|at the latest) (\d+) s(?:econds)?\b"),
    "request time-out": ("client/ServiceClient.cpp", r"timeoutIntervalForRequest = (\d+)\.0;",
                         r"(?:within|not for|an?|the) (\d+)[ -]seconds?\b"),
    "port": ("install/LaunchAgents.h", r"servicePort = (\d+);",
             r"(?:127\.0\.0\.1:|TCP:|--port |<string>|\bport `?|means )(\d{4,5})\b"),
}

# Other sources that have to repeat it.
REPEATED = [
    ("poll interval", "tests/desktop/product.py", r"^POLL_INTERVAL = (\d+)\b"),
    ("request time-out", "kit/session.py", r"^ANSWER_SECONDS = (\d+)\b"),
    ("request time-out", "packaging/macos/doctor", r"--max-time (\d+)\b"),
    ("request time-out", "packaging/macos/doctor", r"not answer within (\d+) seconds"),
    ("port", "tests/desktop/product.py", r"^PORT = (\d+)\b"),
    ("port", "packaging/macos/doctor", r"^service_port=(\d+)$"),
    ("port", "standin/velmor-guard", r"^DEFAULT_PORT = (\d+)\b"),
]


def said(prose):
    return [(path, *text) for path in PROSE for text in
            ((match[1], match[0]) for match in re.finditer(prose, " ".join(read(path).split())))]


@pytest.mark.parametrize("fact", FACTS)
def test_prose_repeats_the_figure_of_the_sources(fact):
    home, pattern, prose = FACTS[fact]
    [figure] = found(home, pattern)
    assert [each for each in said(prose) if each[1] != figure] == []


@pytest.mark.parametrize("fact, path, pattern", REPEATED)
def test_another_source_repeats_the_figure(fact, path, pattern):
    assert set(found(path, pattern)) == set(found(*FACTS[fact][:2]))


@pytest.mark.parametrize("fact, least", [("poll interval", 4), ("request time-out", 4), ("port", 6)])
def test_prose_that_repeats_it_is_found(fact, least):
    assert len(said(FACTS[fact][2])) >= least
