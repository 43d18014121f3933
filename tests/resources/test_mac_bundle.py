"""What goes into the application bundle of macOS, and how it is signed."""

import importlib.machinery
import importlib.util
import os
import pathlib
import plistlib
import struct
import subprocess

import pytest

RESOURCES = pathlib.Path(__file__).resolve().parents[2] / "resources" / "macos"
LABELS = ("com.velmor.pellix", "com.velmor.pellix.menubar")


@pytest.fixture(scope="module")
def info():
    return plistlib.loads((RESOURCES / "Info.plist.in").read_bytes())


def test_the_application_is_an_accessory_with_an_identity_of_its_own(info):
    assert info["LSUIElement"] is True
    assert info["CFBundlePackageType"] == "APPL"
    assert info["CFBundleIdentifier"] not in LABELS
    assert "Velmor" in info["NSHumanReadableCopyright"]


def test_versions_come_from_the_build(info):
    assert info["CFBundleShortVersionString"] == info["CFBundleVersion"] == "@PROJECT_VERSION@"
    assert info["LSMinimumSystemVersion"] == "@CMAKE_OSX_DEPLOYMENT_TARGET@"


def test_plain_http_is_allowed_to_the_loopback_address_and_nowhere_else(info):
    assert info["NSAppTransportSecurity"] == {
        "NSExceptionDomains": {"127.0.0.1": {"NSExceptionAllowsInsecureHTTPLoads": True}}}


def test_what_the_application_writes_is_not_quarantined(info):
    """launchd would not load the property lists."""
    assert not info.get("LSFileQuarantineEnabled")


def icon_members():
    loader = importlib.machinery.SourceFileLoader("make_icns", str(RESOURCES / "make_icns"))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader("make_icns", loader))
    loader.exec_module(module)
    return {kind: width for kind, width, _ in module.MEMBERS}


def test_the_icon_holds_a_png_of_every_size(info):
    data = (RESOURCES / f"{info['CFBundleIconFile']}.icns").read_bytes()
    assert data[:8] == b"icns" + struct.pack(">I", len(data))
    sizes = {}
    at = 8
    while at < len(data):
        kind, length = struct.unpack_from(">4sI", data, at)
        png = data[at + 8:at + length]
        assert png.startswith(b"\x89PNG\r\n\x1a\n") and png.endswith(b"IEND\xaeB`\x82")
        sizes[kind] = struct.unpack_from(">II", png, 16)
        at += length
    assert at == len(data)
    assert sizes == {kind: (width, width) for kind, width in icon_members().items()}


@pytest.mark.parametrize(
    "kind, is_signed, signatures",
    [
        ("Mach-O universal binary", False, ["Contents/Resources/velmor-guard", "."]),
        ("Mach-O universal binary", True, ["."]),
        ("Python script, ASCII text executable", False, ["."]),
        (None, False, ["."]),
    ],
    ids=["binary", "signed binary", "script", "no service"],
)
def test_signing_goes_from_the_inside_out(tmp_path, kind, is_signed, signatures):
    app = tmp_path / "Some App.app"
    guard = app / "Contents" / "Resources" / "velmor-guard"
    guard.parent.mkdir(parents=True)
    if kind:
        guard.write_text("service")
    log = tmp_path / "log"
    tools = {"file": f"echo '{kind}'",
             "codesign": f'[ "$1" != --verify ] || exit {0 if is_signed else 1}\n'
                         f'echo "$*" >>"{log}"'}
    for name, body in tools.items():
        tool = tmp_path / name
        tool.write_text(f"#!/bin/sh\n{body}\n")
        tool.chmod(0o755)
    subprocess.run([RESOURCES / "sign", app], check=True,
                   env={"PATH": f"{tmp_path}:{os.environ['PATH']}"})
    expected = [app if item == "." else app / item for item in signatures]
    assert log.read_text().splitlines() == [f"--force --sign - {path}" for path in expected]
