"""Each test has a display, buses, a home, a service and recorders of its own."""

import contextlib
import time

import pytest

from desktop.application import Application
from desktop.service import Service
from desktop.session import Desktop

GUARD_ID = "GEN-from-the-guard"
SERVICE_ID = "GEN-from-the-service"


def minutes_ago(minutes):
    # half a minute more, so that the text stays the same while a test runs
    return time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(time.time() - 60 * minutes - 30))


@pytest.fixture
def stack():
    with contextlib.ExitStack() as stack:
        yield stack


@pytest.fixture
def service(stack):
    """Answers "authorized", heard of five minutes ago."""
    service = Service(state="authorized", device_id=SERVICE_ID, site="https://intranet.example",
                      email="jo@example.com", last_heartbeat=minutes_ago(5))
    stack.callback(service.close)
    return service


@pytest.fixture
def application_on(stack, service, request):
    """Makes a desktop and prepares the application on it: welcomed before, polling `service`, its
    launchctl recorded and a scripted guard bundled."""
    def make(**options):
        desktop = stack.enter_context(Desktop(**options))
        application = Application(desktop)
        application.record_launchctl()
        application.bundle_scripted_guard(f'{{"device_id": "{GUARD_ID}"}}')
        application.set_defaults(port=service.port, vlx_welcomed="true")
        request.node.application = application
        return application
    return make


@pytest.fixture
def application(application_on):
    """The application in a session with a StatusNotifierItem host."""
    return application_on(tray=True)


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    report = (yield).get_result()
    application = getattr(item, "application", None)
    if call.when == "call" and report.failed and application:
        report.sections.append(("What the application said", application.said()))


def colors(pixels):
    """The tint of a drawing, from (alpha, red, green, blue): "orange", "red", "none" or "mixed"."""
    opaque = [pixel[1:] for pixel in pixels if pixel[0] > 200]
    assert len(opaque) > len(pixels) / 50, "nothing is drawn"
    names = {tint(*pixel) for pixel in opaque}
    return names.pop() if len(names) == 1 else "mixed"


def tint(red, green, blue):
    if max(red, green, blue) - min(red, green, blue) < 16:
        return "none"
    if red > 180 and blue < 110:
        return "orange" if green > 120 else "red"
    return f"{red, green, blue}"
