"""What a launch reads, does and leaves behind."""

import signal

import pytest

from desktop import product
from e2e_harness import GUARD_ID, wait_for_usual_menu


@pytest.mark.parametrize("arguments", [(), ("--show-id",), ("--nonsense",)])
def test_the_first_launch_shows_the_window_and_remembers_it(application, service, arguments):
    application.set_defaults(port=service.port)
    application.start(*arguments)
    assert application.window(product.WINDOW_TITLE).texts()[-1] == GUARD_ID
    wait_for_usual_menu(application)
    assert application.defaults() == {"port": str(service.port), "vlx_welcomed": "true"}
    assert len(application.windows()) == 1


@pytest.mark.parametrize("arguments, shown", [
    ((), 0), (("--show-id",), 1), (("--other", "--show-id"), 1), (("--show-ids",), 0),
    (("--Show-ID",), 0),
])
def test_later_launches_show_it_when_asked(application, arguments, shown):
    application.start(*arguments)
    wait_for_usual_menu(application)
    assert len(application.windows()) == shown
    assert application.defaults()["vlx_welcomed"] == "true"


def test_a_window_left_open_does_not_end_the_application_when_closed(application):
    application.start("--show-id")
    application.window(product.WINDOW_TITLE)
    application.desktop.settled_picture()
    application.desktop.press("Return")
    application.wait_for_no_windows()
    wait_for_usual_menu(application)
    assert application.running


def test_the_answer_is_asked_for_once_and_plainly(application, service):
    application.start()
    wait_for_usual_menu(application)
    assert service.requests[0].splitlines()[0] == "GET /status.json HTTP/1.1"
    assert f"Host: 127.0.0.1:{service.port}" in service.requests[0].splitlines()
    assert len(service.requests) == 1


def test_the_guard_is_asked_once_for_the_identifier(application):
    application.start()
    wait_for_usual_menu(application)
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
    application.wait_for_titles(product.menu("unknown", "never",
                                             shown or product.hardware_identifier()))


@pytest.mark.parametrize("end", [signal.SIGTERM, signal.SIGINT])
def test_a_signal_ends_it_quietly(application, end):
    application.start("--show-id")
    wait_for_usual_menu(application)
    application.process.send_signal(end)
    assert application.wait_for_end(2) in (0, -end)
    assert application.said() == ""


def test_the_end_of_the_display_ends_it(application):
    application.start("--show-id")
    wait_for_usual_menu(application)
    application.desktop.end_display()
    application.wait_for_end(3)
