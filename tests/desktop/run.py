"""script/run: the application in a sandboxed home, on this desktop or on a private one."""

import contextlib
import fcntl
import json
import os
import shutil
import signal
import subprocess
import sys
import time
import urllib.request

from desktop import processes, product, service
from desktop.application import ROOT, Application, install_bundle
from desktop.session import Desktop, Unavailable

FOLDER = os.path.join(ROOT, "build", "run")
HOME = os.path.join(FOLDER, "home")
BUNDLE = os.path.join(FOLDER, "bin")
README_PICTURES = os.path.join(ROOT, "docs", "images")

SERVICE = f"http://127.0.0.1:{product.PORT}"
SCREEN = (900, 560)

# What the stand-in service answers on the tour: state, seconds since the last heartbeat.
TOUR = (("authorized", 20), ("not_enrolled", None), ("stale", 9 * 86400), ("revoked", 5 * 60),
        ("offline", 3 * 3600), ("unknown", None))
AGES = {None: "never", 20: "just now", 5 * 60: "5 min ago", 3 * 3600: "3 h ago",
        9 * 86400: "9 d ago"}
DEVICE_ID = "HW-UUID-7D3A94C1-52E8-4B0F-9A6D-1C0E8F2B7A55"


class Failure(Exception):
    """What went wrong, in one line."""


def main(arguments):
    pictures = "--pictures" in arguments
    arguments = [argument for argument in arguments if argument != "--pictures"]
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, stop_requested)
    os.makedirs(FOLDER, exist_ok=True)
    try:
        with only_run():
            stop_jobs()
            require_port()
            if not pictures and (os.environ.get("DISPLAY") or os.environ.get("WAYLAND_DISPLAY")):
                return run_here(arguments)
            return tour(arguments, pictures)
    except (Failure, Unavailable, processes.TimedOut) as error:
        print(f"script/run: {error}", file=sys.stderr)
        return 1


def stop_requested(number, _frame):
    sys.exit(0 if number == signal.SIGINT else 128 + number)


@contextlib.contextmanager
def only_run():
    """Holds this checkout's sandbox; another run's death gives it up."""
    with open(os.path.join(FOLDER, "lock"), "w", encoding="ascii") as lock:
        try:
            fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            raise Failure("another run of this checkout has not ended") from None
        yield


def stop_jobs():
    """Stops what runs in the sandbox, an earlier killed run's processes included."""
    with contextlib.suppress(OSError, subprocess.TimeoutExpired):
        subprocess.run([os.path.join(BUNDLE, "launchctl"), "shutdown"],
                       env={"HOME": HOME, "PATH": "/usr/bin:/bin"}, stdin=subprocess.DEVNULL,
                       stdout=subprocess.DEVNULL, timeout=30, check=False)
    processes.stop_all_with("HOME", HOME)


def require_port():
    try:
        service.require_free(product.PORT)
    except OSError as error:
        raise Failure(f"port {product.PORT}, where the service answers: {error.strerror}") from None


# On this desktop ---------------------------------------------------------------

def run_here(arguments):
    install_bundle(BUNDLE)
    os.makedirs(os.path.join(HOME, "Library", "LaunchAgents"), exist_ok=True)
    environment = os.environ | {
        "HOME": HOME,
        "XAUTHORITY": os.environ.get("XAUTHORITY", os.path.expanduser("~/.Xauthority")),
        "XDG_CACHE_HOME": os.path.join(HOME, ".cache"),
        "XDG_CONFIG_HOME": os.path.join(HOME, ".config"),
        "XDG_DATA_HOME": os.path.join(HOME, ".local", "share"),
    }
    print(f"The shield is in the menu bar; {SERVICE}/ chooses what it shows.\n"
          "Control-C stops everything.", flush=True)
    try:
        application = processes.start([os.path.join(BUNDLE, "velmor-pellix"), *arguments],
                                      environment)
        try:
            status = application.wait()
        finally:
            processes.stop(application)
    finally:
        stop_jobs()
    if status > 0:
        raise Failure(f"the application ended with status {status}")
    return 0


# On a private one --------------------------------------------------------------

def tour(arguments, for_readme):
    shutil.rmtree(HOME, ignore_errors=True)
    with contextlib.ExitStack() as stack:
        desktop = stack.enter_context(Desktop(home=HOME, size=SCREEN, bar="light"))
        stack.callback(stop_jobs)
        Tour(desktop, arguments, for_readme).walk()
    shutil.rmtree(HOME, ignore_errors=True)
    print(f"Pictures of every stop are in {os.path.relpath(FOLDER)}.")
    return 0


class Tour:
    def __init__(self, desktop, arguments, for_readme):
        self.desktop = desktop
        self.arguments = arguments
        self.for_readme = for_readme
        self.application = Application(desktop, BUNDLE)
        self.application.bundle_standin_guard()
        self.stop = 0
        for name in os.listdir(FOLDER):
            if name.endswith(".png"):
                os.remove(os.path.join(FOLDER, name))

    def walk(self):
        self.put_pointer_aside()
        self.choose_beforehand(device_id=DEVICE_ID)
        self.first_run()
        for state, age in TOUR:
            self.show(state, age)
        self.quit()

    def first_run(self):
        self.application.start(*self.arguments)
        window = self.application.window(product.WINDOW_TITLE)
        heading, text, device_id = window.texts()
        self.expect("the first-run window", [heading, text, device_id],
                    [product.WINDOW_HEADING, product.WINDOW_TEXT, DEVICE_ID])
        picture = self.report("device-id", "First run: the device-ID window", window.texts())
        if self.for_readme:
            x, y, width, height = window.frame
            self.save_for_readme("device-id", picture.crop(x - 13, y - 32, width + 26, height + 45))
        self.desktop.press("Return")
        self.application.wait_for_no_windows()
        wait_for_service()

    def show(self, state, age):
        """Launches the application anew, which polls at once: quicker than the next poll. But a
        launch restarts the service as well, which may come too late for that first one."""
        choose(state=state, heartbeat_age=age)
        for _attempt in range(3):
            self.application.stop()
            self.application.start(*self.arguments)
            picture, entries, titles = self.look_into_menu()
            if titles[1] != product.STARTING:
                break
            wait_for_service()
        else:
            self.desktop.press("Escape")
            time.sleep(product.POLL_INTERVAL + 1)
            picture, entries, titles = self.look_into_menu()
        self.expect(f"the menu in the state {state}", titles,
                    product.menu(state, AGES[age], DEVICE_ID))
        self.report(state, f"The service says {state}", titles, picture)
        if self.for_readme:
            x, _y, _width, _height = entries[0].frame
            _x, bottom, _width, height = entries[-1].frame
            self.save_for_readme(f"menu-{state}", picture.crop(
                x - 24, 0, self.desktop.size[0], bottom + height + 22))

    def look_into_menu(self):
        self.application.open_menu()
        self.put_pointer_aside()
        picture = self.desktop.settled_picture()
        entries = self.application.read_open_menu()
        return picture, entries, [entry.name or product.SEPARATOR for entry in entries]

    def quit(self):
        self.desktop.press("Up", "Return")  # from the first command to the last
        alert = self.application.window(product.WINDOW_TITLE)
        texts = alert.texts()
        self.expect("the quit alert", texts, [product.QUIT_QUESTION, product.QUIT_TEXT])
        self.report("quit", "Quit Pellix", texts)
        self.desktop.press("Return")
        if self.application.wait_for_end() != 0:
            raise Failure("the application did not quit with status 0")
        choose()
        print("The application has quit; the service still answers.\n")

    def put_pointer_aside(self):
        self.desktop.point(self.desktop.size[0] // 2, self.desktop.size[1] - 40)

    # Looking, and telling ------------------------------------------------------

    def expect(self, what, seen, expected):
        if seen != expected:
            raise Failure(f"{what} shows {seen}, not {expected}")

    def report(self, name, title, lines, picture=None):
        self.stop += 1
        picture = picture or self.desktop.settled_picture()
        picture.save(os.path.join(FOLDER, f"{self.stop}-{name}.png"))
        print(title)
        print("".join(f"    {line}\n" for line in lines), flush=True)
        return picture

    def save_for_readme(self, name, picture):
        os.makedirs(README_PICTURES, exist_ok=True)
        picture.save(os.path.join(README_PICTURES, f"{name}.png"))

    # The stand-in service --------------------------------------------------------

    def choose_beforehand(self, **choices):
        """What the service shall answer, before it runs for the first time."""
        os.makedirs(self.application.support)
        with open(os.path.join(self.application.support, "velmor-guard.state.json"), "w",
                  encoding="utf-8") as file:
            json.dump(choices, file)


def choose(**choices):
    """Tells the running service what to answer."""
    request = urllib.request.Request(SERVICE + "/state", json.dumps(choices).encode(),
                                     {"Content-Type": "application/json"})
    with urllib.request.urlopen(request, timeout=5) as answer:
        answer.read()


def wait_for_service():
    processes.wait_for("the service", lambda: service.answers(SERVICE + "/state"))


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
