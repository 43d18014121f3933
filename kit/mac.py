"""What a Mac's tools say about the program's file."""

import plistlib
import re
import shutil

from kit import tools
from kit.outcome import NotSo, Untold

ARCHITECTURES = ("arm64", "x86_64")
OLDEST = "12.0"
DEBUGGING = "com.apple.security.get-task-allow"


def output(tool, *arguments):
    """What a tool prints, or None if it fails."""
    path = shutil.which(tool)
    if path is None:
        raise Untold(f"it needs a Mac, there is no {tool} here")
    run = tools.run(path, *arguments)
    return run.stdout if run.returncode == 0 else None


def architectures(program):
    return (output("lipo", "-archs", program) or b"").decode().split()


def load_commands(program):
    """The listing of load commands of each architecture."""
    text = (output("otool", "-arch", "all", "-l", program) or b"").decode("utf-8", "replace")
    parts = re.split(r"^.*?(?: \(architecture (\S+)\))?:\n(?=Load command 0$)", text,
                     flags=re.MULTILINE)
    found = dict(zip((name or "it" for name in parts[1::2]), parts[2::2]))
    if not found:
        raise NotSo("no program for a Mac")
    return found


def oldest_systems(program):
    """For each architecture the oldest system that it runs on, or an empty text."""
    return {name: first(r"\bcmd LC_BUILD_VERSION\n.*\n *platform (?i:1|macos)\n *minos ([\d.]+)\n",
                        text)
            or first(r"\bcmd LC_VERSION_MIN_MACOSX\n.*\n *version ([\d.]+)\n", text)
            for name, text in load_commands(program).items()}


def identifiers(program):
    return {name: first(r"\bcmd LC_UUID\n.*\n *uuid (?![0-]+$)(\S+)\n", text)
            for name, text in load_commands(program).items()}


def first(pattern, text):
    match = re.search(pattern, text, re.MULTILINE)
    return match[1] if match else ""


def version(text):
    numbers = [int(number) for number in text.split(".")]
    return numbers + [0] * (3 - len(numbers))


def listed(found):
    return ", ".join(f"{name}: {value or 'none'}" for name, value in found.items())


def entitlements(program):
    """Those in its signature in either architecture; none without one."""
    found = {}
    for name in ARCHITECTURES:
        data = output("codesign", "--display", "--entitlements", "-", "--xml", "--architecture",
                      name, program)
        try:
            found.update(plistlib.loads(data) if data else {})
        except Exception as problem:  # each kind of damage has its own
            raise NotSo(f"unreadable entitlements: {problem}") from None
    return found
