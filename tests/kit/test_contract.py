"""The schemas, the checker and docs/service-contract.md say the same."""

import json
import re
import shlex
import time

import jsonschema
import pytest

from desktop.product import STATES
from kit_harness import COMMAND, ROOT, rules, run

from kit import contract, exchange, mac  # noqa: I100 (kit_harness makes it known)
from kit.outcome import NotSo

DOCUMENT = (ROOT / "docs" / "service-contract.md").read_text(encoding="utf-8")


def validator(name):
    schema = json.loads((ROOT / "docs" / f"{name}.schema.json").read_text(encoding="utf-8"))
    jsonschema.Draft7Validator.check_schema(schema)
    return jsonschema.Draft7Validator(schema)


STATUS, ID = validator("status"), validator("id")


def conforms_to_schema(schema, data):
    try:
        return schema.is_valid(json.loads(data))
    except ValueError:
        return False


def status_conforms(data):
    try:
        status = contract.json_object(data)
        for check in (contract.check_members, contract.check_state, contract.check_heartbeat):
            check(status)
    except NotSo:
        return False
    return status.get("device_id") != ""  # no ID is empty, so it is not the same


def id_conforms(data):
    try:
        return bool(contract.identifier(data))
    except NotSo:
        return False


def blocks():
    """Kind and text of each fenced block."""
    return [(kind, text) for kind, text in re.findall(
        r"^```\w* ?([\w-]*)\n(.*?)^```$", DOCUMENT, re.MULTILINE | re.DOTALL)]


def examples(kind):
    """The examples of a kind, and whether the document says that they conform."""
    all_blocks = blocks()
    for (found, text), (_, outcome) in zip(all_blocks, all_blocks[1:]):
        if found == kind:
            yield text, re.search(r"^conforms: (yes|no)$", outcome, re.MULTILINE)[1] == "yes"


@pytest.mark.parametrize("text, conforms", examples("answer"))
def test_the_examples_of_answers_conform_where_the_document_says_so(text, conforms):
    assert conforms_to_schema(STATUS, text) is conforms
    assert status_conforms(text.encode()) is conforms


@pytest.mark.parametrize("text, conforms", examples("id-output"))
def test_the_examples_of_output_conform_where_the_document_says_so(text, conforms):
    assert conforms_to_schema(ID, text) is conforms
    assert id_conforms(text.encode()) is conforms


STATUSES = [
    ({"state": "authorized"}, True),
    ({"state": "authorized", "anything": {"else": [1, 2.5, None, True]}}, True),
    ({"state": "stale", "device_id": None, "site": "", "email": "", "last_heartbeat": None}, True),
    ({}, False),
    ({"state": None}, False),
    ({"state": ""}, False),
    ({"state": "Authorized"}, False),
    ({"state": "authorized "}, False),
    ({"state": ["authorized"]}, False),
    ({"state": "stale", "device_id": 4711}, False),
    ({"state": "stale", "device_id": ""}, False),
    ({"state": "stale", "site": {}}, False),
    ({"state": "stale", "email": ["a@b.example"]}, False),
    ({"state": "stale", "email": False}, False),
    ({"state": "stale", "last_heartbeat": 1714566896}, False),
    ({"state": "stale", "last_heartbeat": ""}, False),
]


@pytest.mark.parametrize("status, conforms", STATUSES)
def test_schema_and_checker_agree_on_members(status, conforms):
    data = json.dumps(status).encode()
    assert conforms_to_schema(STATUS, data) is conforms
    assert status_conforms(data) is conforms


@pytest.mark.parametrize("text, conforms", [
    ("2024-05-01T12:34:56Z", True),
    ("2024-05-01T12:34:56.7Z", True),
    ("2024-05-01T12:34:56.123456789+02:00", True),
    ("0001-01-01T00:00:00-23:59", True),
    ("2024-02-29T23:59:59-00:00", True),
    ("0000-01-01T00:00:00Z", False),
    ("2024-05-01T12:34:56.1234567890Z", False),
    ("2024-05-01T12:34:56.Z", False),
    ("2024-05-01T12:34:56,5Z", False),
    ("2024-05-01T12:34:56", False),
    ("2024-05-01T12:34:56+0200", False),
    ("2024-05-01T12:34:56+02", False),
    ("2024-05-01T12:34:56+24:00", False),
    ("2024-05-01T12:34Z", False),
    ("2024-05-01 12:34:56Z", False),
    ("2024-05-01t12:34:56z", False),
    ("2024-05-01T24:00:00Z", False),
    ("2024-05-01T12:34:60Z", False),
    ("2024-13-01T12:34:56Z", False),
    ("2024-05-32T12:34:56Z", False),
    ("12024-05-01T12:34:56Z", False),
    ("٢٠٢٤-05-01T12:34:56Z", False),
    ("2024-05-01T12:34:56Zx", False),
    (" 2024-05-01T12:34:56Z", False),
])
def test_schema_and_checker_agree_on_date_times(text, conforms):
    data = json.dumps({"state": "stale", "last_heartbeat": text}).encode()
    assert conforms_to_schema(STATUS, data) is conforms
    assert (contract.heartbeat_fault(text) is None) is conforms


def test_the_checker_knows_the_days_that_no_pattern_knows():
    for day in ("2023-02-29", "2024-04-31", "1900-02-29"):
        assert contract.heartbeat_fault(f"{day}T12:34:56Z") == "a day that does not exist"
    assert contract.heartbeat_fault("2024-05-01T12:34:56Z\n")


@pytest.mark.parametrize("data, fault", [
    (b"", "no JSON"),
    (b"{", "no JSON"),
    (b'{"a": 1,}', "no JSON"),
    (b"{'a': 1}", "no JSON"),
    (b'{"a": 01}', "no JSON"),
    (b'{"a": "x\ty"}', "no JSON"),
    (b'{"a": 1} {}', "no JSON"),
    (b"\x00{}", "no JSON"),
    (b"[]", "no object but []"),
    (b"null", "no object but null"),
    (b'"state"', 'no object but "state"'),
    (b"\xef\xbb\xbf{}", "a byte-order mark"),
    ('{"a": "ä"}'.encode("latin-1"), "no UTF-8, at byte 7"),
    ("{}".encode("utf-16"), "no UTF-8, at byte 0"),
    ("{}".encode("utf-16-be"), "no JSON"),
    (b'{"a": NaN}', "NaN, which is not JSON"),
    (b'{"a": -Infinity}', "-Infinity, which is not JSON"),
    (b'{"a": 1e999}', "a number that is too large"),
    (b'{"a": ' + b"9" * 100000 + b"}", "a number that is too large"),
    (b'{"a": -0.5e-999}', "a number that is too close to 0"),
    (b'{"a": 1, "a": 1}', 'two members of the name "a"'),
    (b'{"b": [{"a": 1, "\\u0061": 2}]}', 'two members of the name "a"'),
    (b'{"a": "\\ud83d"}', "an escape of half a surrogate pair"),
    (b'{"\\ude00": 1}', "an escape of half a surrogate pair"),
    (b'{"a": ' + b"[" * 512 + b"]" * 512 + b"}", "more than 512 levels"),
    (b"[" * 1_000_000, "more than 512 levels"),
    (b'{"a":' * 100_000, "more than 512 levels"),
    (b'{"a":"' + rb"\"" * 500_000, "no JSON"),
    (b'{"a": "' + b"[" * 1_000_000, "no JSON"),
])
def test_what_readers_could_differ_on_is_refused_soon(data, fault):
    begin = time.process_time()
    with pytest.raises(NotSo) as told:
        contract.json_object(data)
    assert str(told.value).startswith(fault)
    assert time.process_time() - begin < 1


@pytest.mark.parametrize("data, content", [
    (b' {"a" : "\\u20ac\\ud83d\\ude00"}\r\n', {"a": "€😀"}),
    (b'{"a": "[[[[{{{{\\"[", "b": 1.5e3}', {"a": '[[[[{{{{"[', "b": 1500}),
    (b'{"a": ' + b'"' + b"[" * 1000 + b'"}', {"a": "[" * 1000}),
])
def test_what_every_reader_reads_is_read(data, content):
    assert contract.json_object(data) == content


def test_as_many_levels_as_every_reader_takes_are_read():
    assert contract.depth(contract.json_object(b'{"a": ' + b"[" * 511 + b"]" * 511 + b"}")) == 512


def commands():
    return [line for kind, text in blocks() if kind == "check" for line in text.splitlines()]


@pytest.mark.parametrize("command", commands())
def test_the_commands_of_the_document_run(command, scratch):
    program, *arguments = shlex.split(command)
    assert ROOT / program == COMMAND
    result = run(*arguments, cwd=ROOT)
    assert (result.returncode, result.stderr) == (0, "")


def test_the_report_in_the_document_is_one_that_could_be(make):
    [text] = [text for kind, text in blocks() if kind == "report"]
    result = run(make("""
right = status
def status(): return right() | {"state": "Authorized"}
def status_headers(): return {"Content-Type": "text/plain", "Cache-Control": "no-store"}
"""), "--patience", "3")
    printed = [re.sub(r"\d\.\d\d s", "0.01 s", line) for line in result.stdout.splitlines()]
    assert set(text.splitlines()) <= set(printed)
    assert result.returncode == 1


# One home for each fact

def test_the_states_are_those_of_the_product():
    assert contract.STATES == list(STATES)


def test_both_schemas_and_the_document_have_one_version():
    assert {schema.schema["$id"] for schema in (STATUS, ID)} == {
        f"urn:velmor-pellix:{name}:{contract.VERSION}" for name in ("status", "id")}
    assert f"version {contract.VERSION} of the contract" in DOCUMENT


def test_the_largest_answer_is_that_of_the_checker():
    limits = re.findall(r"\bat most (\d+) MiB", " ".join(DOCUMENT.split()))
    assert set(limits) == {str(exchange.LARGEST >> 20)} and len(limits) == 2


def test_the_members_are_those_of_the_document():
    table = re.findall(r"^\| `(\w+)` \| string \|", DOCUMENT, re.MULTILINE)
    assert table == list(contract.STATUS)


def test_every_rule_stands_in_the_document():
    """In the checker's order: name, whether it must hold, what is expected, how to mend it."""
    expected = [f"| `{rule['rule']}` | {rule['kind']} | {rule['expected']} | {rule['mend']} |"
                for rule in rules()]
    found = re.findall(r"^\| `[\w-]+` \| (?:must|advice) \| .*$", DOCUMENT, re.MULTILINE)
    assert found == expected, "the table should be\n" + "\n".join(expected)


def test_every_rule_that_the_document_mentions_exists():
    mentioned = set(re.findall(r"\(`([a-z-]+)`\)", DOCUMENT))
    assert {"quiet", "stop-early"} <= mentioned <= {rule["rule"] for rule in rules()}


def test_the_oldest_system_and_the_architectures_are_those_of_the_application():
    lists = (ROOT / "CMakeLists.txt").read_text(encoding="utf-8")
    assert re.search(r"DEPLOYMENT_TARGET ([\d.]+)", lists)[1] == mac.OLDEST
    package = (ROOT / "script" / "package").read_text(encoding="utf-8")
    assert f"architectures=({' '.join(mac.ARCHITECTURES)})" in package
