"""What the tests have in common: what they set up, and what they expect of a whole launch."""

import os
import re
import stat
import time

from desktop import product
from desktop.files import listing, read
from desktop.processes import wait_for

GUARD_ID = "GEN-from-the-guard"
SERVICE_ID = "GEN-from-the-service"
USUAL_MENU = product.menu("authorized", "5 min ago", SERVICE_ID)  # by the `service` as it is made

# Bound by permissions, also where the tests run as root.
ORDINARY_USER = os.getuid() or 65534


def minutes_ago(minutes):
    # half a minute more, so that the text stays the same while a test runs
    return time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(time.time() - 60 * minutes - 30))


def wait_for_usual_menu(application):
    application.wait_for_titles(USUAL_MENU)


def expect_page(application, service, path):
    """That page of the service, and no other, opens in the browser."""
    wait_for("the page", application.desktop.opened_pages)
    assert application.desktop.opened_pages() == [f"http://127.0.0.1:{service.port}{path}"]


# The installation ------------------------------------------------------------------

HEADER = ('<?xml version="1.0" encoding="UTF-8"?>\n'
          '<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" '
          '"http://www.apple.com/DTDs/PropertyList-1.0.dtd">\n'
          '<plist version="1.0">\n'
          '<dict>\n')


def service_agent(application):
    return HEADER + f"""\
  <key>Label</key><string>com.velmor.pellix</string>
  <key>ProgramArguments</key>
  <array>
    <string>{application.support}/velmor-guard</string>
    <string>run</string>
    <string>--port</string>
    <string>8787</string>
  </array>
  <key>RunAtLoad</key><true/>
  <key>KeepAlive</key><true/>
  <key>ProcessType</key><string>Background</string>
  <key>EnvironmentVariables</key>
  <dict><key>VLX_QUIET</key><string>1</string></dict>
  <key>StandardOutPath</key><string>{application.support}/logs/launchd.out.log</string>
  <key>StandardErrorPath</key><string>{application.support}/logs/launchd.err.log</string>
</dict>
</plist>"""


def menubar_agent(application):
    return HEADER + f"""\
  <key>Label</key><string>com.velmor.pellix.menubar</string>
  <key>ProgramArguments</key>
  <array>
    <string>{application.bundle}/velmor-pellix</string>
  </array>
  <key>RunAtLoad</key><true/>
  <key>KeepAlive</key><false/>
  <key>ProcessType</key><string>Interactive</string>
</dict>
</plist>"""


def launchctl_sequence(application):
    """The calls by which one launch registers the service."""
    target = f"gui/{application.user_id}/com.velmor.pellix"
    return [["bootout", target],
            ["bootstrap", f"gui/{application.user_id}",
             os.path.join(application.agents, "com.velmor.pellix.plist")],
            ["kickstart", "-k", target]]


def expect_installed_files(installation, guard):
    """To the byte; `guard` is the service binary."""
    assert sorted(os.listdir(installation.agents)) == [
        "com.velmor.pellix.menubar.plist", "com.velmor.pellix.plist"]
    assert read(installation.agents, "com.velmor.pellix.plist").decode() == service_agent(
        installation)
    assert read(installation.agents, "com.velmor.pellix.menubar.plist").decode() == menubar_agent(
        installation)
    assert re.fullmatch(rb'\{"site":"https://[a-z0-9.-]+"\}',
                        read(installation.support, "managed.json"))
    assert read(installation.installed_guard) == guard
    assert stat.S_IMODE(os.stat(installation.installed_guard).st_mode) == 0o755


def expect_installation(application, guard=None):
    """All files, and one registration; the service binary is the bundled one by default."""
    if guard is None:
        guard = read(application.resource("velmor-guard"))
    expect_installed_files(application, guard)
    assert application.launchctl_calls() == launchctl_sequence(application)


def expect_whole_files(installation, before, renewed, root=""):
    """Each file is as it was or as it should be. The binary, which is removed before it is
    replaced, may be missing. What the files hold."""
    after = installation.installed_content(root)
    for path in installation.installed_files:
        allowed = [before[path], renewed[path], *[None] * (path == installation.installed_guard)]
        assert after[path] in allowed, f"{path}: {(after[path] or b'')[:200]}"
    return after


def stray_files(installation, root=""):
    """What a launch that was cut short has left beside the installed files."""
    def paths(folder):
        return [os.path.join(folder, name) for name in listing(root + folder)]

    usual = [*installation.installed_files, os.path.join(installation.support, "logs")]
    return [root + path for folder in (installation.support, installation.agents)
            for path in paths(folder) if path not in usual]


def expect_alert(application):
    """The texts of the one alert, which stands before everything else; then all is as usual."""
    alert = application.window(product.WINDOW_TITLE)
    assert [node.name for node in alert.walk() if node.role == "push button"] == ["OK"]
    assert application.desktop.host.items == []
    texts = alert.texts()
    application.desktop.settled_picture()
    application.desktop.press("Return")
    wait_for_usual_menu(application)
    assert application.windows() == []
    return texts


# Colours ---------------------------------------------------------------------------

def drawing_tint(pixels):
    """Of a drawing in (alpha, red, green, blue): "orange", "red", "none" or "mixed"."""
    opaque = [pixel[1:] for pixel in pixels if pixel[0] > 200]
    assert len(opaque) > len(pixels) / 50, "nothing is drawn"
    tints = {pixel_tint(*pixel) for pixel in opaque}
    return tints.pop() if len(tints) == 1 else "mixed"


def pixel_tint(red, green, blue):
    if max(red, green, blue) - min(red, green, blue) < 16:
        return "none"
    if red > 180 and blue < 110:
        return "orange" if green > 120 else "red"
    return f"{red, green, blue}"
