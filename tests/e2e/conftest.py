"""Each test has a display, buses, a home, a service and recorders of its own."""

import contextlib

import pytest

from desktop.application import Application
from desktop.service import Service
from desktop.session import Desktop

from e2e_harness import GUARD_ID, SERVICE_ID, minutes_ago


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
