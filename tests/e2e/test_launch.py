"""What a launch reads, does and leaves behind."""

import signal

import pytest

from e2e_harness import GUARD_ID, SERVICE_ID
from desktop import product
from desktop.processes import wait_for


def wait_for_menu(application, service):
    service.wait_for_requests(1)
    application.wait_for_titles(product.menu("authorized", "5 min ago", SERVICE_ID))


@pytest.mark.parametrize("arguments", [(), ("--show-id",), ("--nonsense",)])
def test_the_first_launch_shows_the_window_and_remembers_it(application, service, arguments):
    application.set_defaults(port=service.port)
    application.start(*arguments)
    assert application.window(product.WINDOW_TITLE).texts()[-1] == GUARD_ID
    wait_for_menu(application, service)
    assert application.defaults() == {"port": str(service.port), "vlx_welcomed": "true"}
    assert len(application.windows()) == 1


@pytest.mark.parametrize("arguments, shown", [
    ((), 0), (("--show-id",), 1), (("--other", "--show-id"), 1), (("--show-ids",), 0),
    (("--Show-ID",), 0),
])
def test_later_launches_show_it_when_asked(application, service, arguments, shown):
    application.start(*arguments)
    wait_for_menu(application, service)
    assert len(application.windows()) == shown
    assert application.defaults()["vlx_welcomed"] == "true"


def test_a_window_left_open_does_not_end_the_application_when_closed(application, service):
    application.start("--show-id")
    application.window(product.WINDOW_TITLE)
    application.desktop.settled_picture()
    application.desktop.press("Return")
    wait_for("the end of the window", lambda: not application.windows())
    wait_for_menu(application, service)
    assert application.running


def test_the_answer_is_asked_for_once_and_plainly(application, service):
    application.start()
    wait_for_menu(application, service)
    assert service.requests[0].splitlines()[0] == "GET /status.json HTTP/1.1"
    assert f"Host: 127.0.0.1:{service.port}" in service.requests[0].splitlines()
    assert len(service.requests) == 1


def test_the_guard_is_asked_once_for_the_identifier(application, service):
    application.start()
    wait_for_menu(application, service)
    assert application.guard_calls() == ["id --json"]


@pytest.mark.parametrize("output, shown", [
    ('{"device_id": "  as it is  "}', "  as it is  "),
    ("hello\n \t GEN-from-a-line \nHW-UUID-later\n", "GEN-from-a-line"),
    ("GEN-with-return\r\n", "GEN-with-return\r\n"),
    ('{"device_id": ""}', None),
    (b"GEN-\xff", None),
    ("", None),
    ("x" * 61_440, None),
])
def test_the_identifier_is_the_guards_or_the_hardwares(application, service, output, shown):
    application.set_guard_output(output)
    service.answer(b"{}")
    application.start()
    service.wait_for_requests(1)
    application.wait_for_titles(product.menu("unknown", "never", shown or hardware_identifier()))


def hardware_identifier():
    with open("/etc/machine-id", encoding="ascii") as file:
        number = file.read().strip().upper()
    return "HW-UUID-" + "-".join((number[:8], number[8:12], number[12:16], number[16:20],
                                  number[20:]))


@pytest.mark.parametrize("end", [signal.SIGTERM, signal.SIGINT])
def test_a_signal_ends_it_quietly(application, service, end):
    application.start("--show-id")
    wait_for_menu(application, service)
    application.process.send_signal(end)
    assert application.wait_for_end(2) in (0, -end)
    assert application.said() == ""


def test_the_end_of_the_display_ends_it(application, service):
    application.start("--show-id")
    wait_for_menu(application, service)
    application.desktop.end_display()
    application.wait_for_end(3)
