"""The device-ID window, over AT-SPI and in pixels."""

import time

import pytest

from desktop import product
from desktop.processes import wait_for
from e2e_harness import GUARD_ID


@pytest.fixture
def window(application):
    application.start("--show-id")
    window = application.window(product.WINDOW_TITLE)
    application.desktop.settled_picture()
    return window


def test_frames_and_texts(application, window):
    x, y, width, height = window.frame
    assert (width, height) == (520, 280)
    root = window.children[0]
    shown = []
    for node in root.walk():
        node_x, node_y, *size = node.frame
        shown.append((node.role, node.name, (node_x - x, node_y - y, *size)))
    assert [entry for entry in shown if entry[1]] == [
        ("label", product.WINDOW_HEADING, (28, 32, 460, 28)),
        ("label", product.WINDOW_TEXT, (28, 70, 460, 50)),
        ("label", GUARD_ID, (40, 152, 440, 24)),
        ("push button", product.COPY, (28, 220, 160, 32)),
        ("push button", product.DONE, (400, 220, 90, 32)),
    ]
    box = [frame for role, name, frame in shown if not name]
    assert (28, 136, 464, 56) in box
    assert window.find("label", GUARD_ID).description == GUARD_ID


def test_it_stands_in_the_middle_and_cannot_be_resized(application, window):
    x, y, width, height = window.frame
    screen_width, screen_height = application.desktop.size
    assert abs(x + width / 2 - screen_width / 2) <= 2
    assert abs(y + height / 2 - screen_height / 2) <= 20  # half a title bar
    [number] = application.desktop.x_windows("--name", f"^{product.WINDOW_TITLE}$")
    application.desktop.run("xdotool", "windowsize", number, "700", "500")
    application.desktop.settled_picture()
    assert application.desktop.x_frame(number)[2:] == (520, 280)


def test_the_box_is_round_and_lighter_than_the_window(application, window):
    x, y, _width, _height = window.frame
    picture = application.desktop.picture()
    outside, corner, inside = (picture.pixel(x + dx, y + dy) for dx, dy in
                               ((20, 164), (28, 136), (34, 164)))
    assert corner == outside
    assert inside == (255, 255, 255) != outside


def picture_of_identifier(application, window):
    x, y, width, height = window.find("label", window.texts()[-1]).frame
    return application.desktop.picture().crop(x, y, width, height)


def written_columns(picture):
    return [x for x in range(picture.width)
            if any(sum(picture.pixel(x, y)) < 384 for y in range(picture.height))]


def test_a_long_identifier_is_cut_in_its_middle(application, window):
    application.stop()
    pictures = []
    for middle in ("m" * 200, "n" * 300):
        application.set_guard_output("GEN-start" + middle + "end")
        application.start("--show-id")
        window = application.window(product.WINDOW_TITLE)
        application.desktop.settled_picture()
        label = window.find("label", "GEN-start" + middle + "end")
        assert label.description == "GEN-start" + middle + "end"
        pictures.append(picture_of_identifier(application, window))
        application.stop()
    columns = written_columns(pictures[0])
    assert columns[0] < 8 and 400 < columns[-1] <= 440
    for left, width in ((0, 70), (410, 30)):  # "GEN-start" and "end" stand in both
        assert pictures[0].crop(left, 0, width, 24).rows == pictures[1].crop(left, 0, width, 24).rows
    assert pictures[0].rows != pictures[1].rows


def test_copy_says_so_for_a_second_and_a_half(application, window):
    button = window.find("push button", product.COPY)
    pressed = time.monotonic()
    button.press()
    wait_for("the confirmation", lambda: button.name == product.COPIED, 1, 0.02)
    assert application.desktop.clipboard() == GUARD_ID
    assert button.has("enabled")
    wait_for("the old title", lambda: button.name == product.COPY, 3, 0.02)
    assert 1.4 < time.monotonic() - pressed < 2.0


def test_a_second_press_does_not_prolong_it(application, window):
    button = window.find("push button", product.COPY)
    first = time.monotonic()
    button.press()
    time.sleep(1)
    button.press()
    wait_for("the old title", lambda: button.name == product.COPY, 3, 0.02)
    assert 1.4 < time.monotonic() - first < 2.0
    time.sleep(1.2)
    assert button.name == product.COPY


def test_copying_and_closing_at_once_harms_nothing(application, window):
    window.find("push button", product.COPY).press()
    application.desktop.wait_for_clipboard(GUARD_ID)
    application.desktop.press("Return")
    application.wait_for_no_windows()
    time.sleep(2)
    assert application.running and application.said() == ""
    assert application.desktop.clipboard() == GUARD_ID


@pytest.mark.parametrize("title", [product.COPY, product.DONE])
def test_the_keyboard_alone_reaches_every_button(application, window, title):
    button = window.find("push button", title)

    def is_reached():
        time.sleep(0.3)  # the focus follows the key
        return button.has("focused") or application.desktop.press("Tab")

    wait_for("the focus", is_reached)
    application.desktop.press("space")
    if title == product.COPY:
        wait_for("the copy", lambda: application.desktop.clipboard() == GUARD_ID)
    else:
        wait_for("the end of the window", lambda: not application.windows())


@pytest.mark.parametrize("way", ["Return", "KP_Enter", "Done", "close", "Return after Tab"])
def test_it_closes(application, window, way):
    if way == "Done":
        window.find("push button", product.DONE).press()
    elif way == "close":
        application.desktop.press("alt+F4")
    elif way == "Return after Tab":
        application.desktop.press("Tab", "Return")
    else:
        application.desktop.press(way)
    application.wait_for_no_windows()
    assert application.running


def test_escape_does_nothing(application, window):
    application.desktop.press("Escape")
    time.sleep(0.5)
    assert len(application.windows()) == 1


def test_it_comes_to_the_front(application, window):
    active = application.desktop.run("xdotool", "getactivewindow", "getwindowname").decode().strip()
    assert active == product.WINDOW_TITLE
