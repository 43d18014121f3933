"""What the service's answers must be. States, members and their forms are those of the schemas."""

import datetime
import json
import pathlib
import re

from kit.outcome import NotSo, quoted

DOCS = pathlib.Path(__file__).resolve().parent.parent / "docs"
DEEPEST = 512  # what the system's reader takes


def schema(name):
    return json.loads((DOCS / f"{name}.schema.json").read_text(encoding="utf-8"))


STATUS = schema("status")["properties"]
STATES = STATUS["state"]["enum"]
VERSION = schema("status")["$id"].rpartition(":")[2]
PLACEHOLDER = schema("id")["properties"]["device_id"]["not"]["const"]


def finite(text):
    number = float(text)
    if number in (float("inf"), float("-inf")):
        raise NotSo(f"a number that is too large: {quoted(text, 20)}")
    if number == 0 and re.search("[1-9]", re.split("[eE]", text)[0]):
        raise NotSo(f"a number that is too close to 0: {quoted(text, 20)}")
    return number


def no_number(text):
    raise NotSo(f"{text}, which is not JSON")


def without_duplicates(pairs):
    members = {}
    for key, value in pairs:
        if key in members:
            raise NotSo(f"two members of the name {quoted(key)}")
        members[key] = value
    return members


def depth(content):
    """How deep lists and objects are nested, without being nested oneself."""
    count, level = 0, [content]
    while level := [each for each in level if isinstance(each, (dict, list))]:
        count += 1
        level = [inner for each in level
                 for inner in (each.values() if isinstance(each, dict) else each)]
    return count


def json_object(data):
    """The object in these bytes, if every reader of JSON finds that one in them."""
    try:
        text = data.decode("utf-8")
    except UnicodeDecodeError as error:
        raise NotSo(f"no UTF-8, at byte {error.start}") from None
    if text.startswith("\ufeff"):
        raise NotSo("a byte-order mark before the text")
    too_deep = NotSo(f"more than {DEEPEST} levels of nesting")
    try:
        content = json.loads(text, parse_int=finite, parse_float=finite,
                             parse_constant=no_number, object_pairs_hook=without_duplicates)
    except ValueError as error:
        raise NotSo(f"no JSON: {error}; it begins {quoted(text)}") from None
    except RecursionError:
        raise too_deep from None
    if depth(content) > DEEPEST:
        raise too_deep
    if not isinstance(content, dict):
        raise NotSo(f"no object but {quoted(content)}")
    try:
        json.dumps(content, ensure_ascii=False).encode()
    except UnicodeEncodeError:
        raise NotSo("an escape of half a surrogate pair") from None
    return content


def heartbeat_fault(text):
    """What keeps a text from being a date-time for every reader, or None."""
    if not re.fullmatch(STATUS["last_heartbeat"]["pattern"], text):
        return "no date-time like 2024-05-01T12:34:56Z"
    try:
        datetime.date.fromisoformat(text[:10])
    except ValueError:
        return "a day that does not exist"
    return None


def check_members(status):
    wrong = [f"{name} is {quoted(status[name])}" for name in STATUS
             if not isinstance(status.get(name), (str, type(None)))]
    if wrong:
        raise NotSo("; ".join(wrong))


def check_state(status):
    if "state" not in status:
        raise NotSo("no state")
    if status["state"] not in STATES:
        raise NotSo(quoted(status["state"]))


def check_heartbeat(status):
    text = status.get("last_heartbeat")
    fault = heartbeat_fault(text) if isinstance(text, str) else None
    if fault:
        raise NotSo(f"{quoted(text)}, {fault}")


def identifier(output):
    """The device ID in the output of `id --json`."""
    found = json_object(output).get("device_id")
    if not isinstance(found, str) or not found or found == PLACEHOLDER:
        raise NotSo("no device_id" if found is None else f"device_id is {quoted(found)}")
    return found
