"""Files, read and written whole."""

import contextlib
import os


def read(*parts):
    with open(os.path.join(*parts), "rb") as file:
        return file.read()


def read_lines(*parts):
    """No lines where there is no file."""
    with contextlib.suppress(FileNotFoundError):
        return read(*parts).decode().splitlines()
    return []


def write(content, *parts):
    """Makes the folders that are missing."""
    path = os.path.join(*parts)
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as file:
        file.write(content.encode() if isinstance(content, str) else content)
    return path


def write_program(content, *parts):
    os.chmod(write(content, *parts), 0o755)


def listing(folder):
    """The paths of everything in it, from there; empty if there is no such folder."""
    return sorted(os.path.relpath(os.path.join(where, name), folder)
                  for where, folders, names in os.walk(folder) for name in folders + names)
