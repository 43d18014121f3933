"""Every function that a header of the seam declares is defined on every platform.

Without this the one that is missing on the other platform is found by that platform's linker only.
"""

import pathlib
import re

import pytest

PLATFORM = pathlib.Path(__file__).resolve().parents[2] / "platform"
HEADERS = sorted(PLATFORM.glob("*.h"))
SUFFIXES = {"cocoa": ".mm", "qt": ".cpp"}

NOISE = re.compile(
    r"""//[^\n]*            # comments
      | /\*.*?\*/
      | @?"(?:[^"\\\n]|\\.)*"  # texts
      | '(?:[^'\\\n]|\\.)'
      | ^[ \t]*\#(?:[^\n\\]|\\.)*  # directives
      | @end\b
    """,
    re.VERBOSE | re.DOTALL | re.MULTILINE,
)


def statements(text):
    """Yields (enclosing names, statement, what ended it: ";" or "{"), function bodies left out."""
    scopes = []  # the names that each open brace adds, or None inside bodies
    statement = ""
    parentheses = 0
    for character in NOISE.sub(" ", text):
        if character == "(":
            parentheses += 1
        elif character == ")":
            parentheses -= 1
        if parentheses or character not in "{};":
            statement += character
            continue
        within = None if None in scopes else [name for names in scopes for name in names]
        if character == "}":
            scopes.pop()
        else:
            if within is not None:
                yield within, " ".join(statement.split()), character
            if character == "{":
                scopes.append(scope_names(statement))
        statement = ""


def scope_names(opening):
    match = re.match(r"\s*(?:public:|private:|protected:)?\s*(namespace|class|struct)\b([^(]*)$", opening)
    if not match:
        return None
    names = re.sub(r"\b(?:final|inline)\b|:(?!:)(?<!::).*", "", match[2])
    return names.strip().split("::") if names.strip() else [""]


def function_name(statement):
    """The name that stands before the first parenthesis outside angle brackets, if one does."""
    plain = re.sub(r"^(?:(?:public|private|protected) ?: ?)+", "", statement)
    if re.match(r"(?:using|friend|typedef|static_assert|return|[-+@])", plain):
        return None
    depth = 0
    for at, character in enumerate(plain):
        depth += {"<": 1, ">": -1}.get(character, 0)
        if character == "(" and depth == 0:
            match = re.search(r"([~\w:]+) ?$", plain[:at])
            return match[1] if match else None
    return None


def declared(text):
    """The functions that a header leaves to the implementations."""
    for within, statement, end in statements(text):
        name = function_name(statement)
        if end == ";" and name and not re.search(r"= ?(?:0|default|delete)$", statement):
            yield "::".join([*within, name])


def defined(text):
    for within, statement, end in statements(text):
        name = function_name(statement)
        if name and "" not in within and (end == "{" or re.search(r"\w+::.*= ?default$", statement)):
            yield "::".join([*within, name])


def sources(platform):
    return {path.stem: path.read_text() for path in (PLATFORM / platform).glob(f"*{SUFFIXES[platform]}")}


def missing(header, implementation):
    return sorted(set(declared(header)) - set(defined(implementation)))


def test_the_headers_are_read():
    found = [name for header in HEADERS for name in declared(header.read_text())]
    assert len(found) == len(set(found))
    for name in ("platform::runModal", "platform::Task::Task", "platform::Task::~Task",
                 "platform::Image::withSystemSymbolName", "platform::FileManager::copyItem",
                 "platform::Timer::Timer", "platform::Application::activateIgnoringOtherApps"):
        assert name in found
    for name in ("platform::Action::perform", "platform::Error::Error", "platform::Url::Url"):
        assert name not in found  # defined in place


@pytest.mark.parametrize("platform", SUFFIXES)
@pytest.mark.parametrize("header", HEADERS, ids=lambda header: header.name)
def test_every_function_is_defined_in_the_header_s_own_source(header, platform):
    text = header.read_text()
    if any(declared(text)):
        assert missing(text, sources(platform).get(header.stem, "")) == []


@pytest.mark.parametrize("platform", SUFFIXES)
def test_a_function_that_goes_is_missed(platform):
    header = (PLATFORM / "FileManager.h").read_text()
    complete = sources(platform)["FileManager"]
    for function in ("removeItem", "writeAtomically"):
        renamed = re.sub(rf"\bvoid {function}\(", f"void {function}2(", complete)
        assert missing(header, renamed) == [f"platform::FileManager::{function}"]
    assert missing("namespace platform { class A { public: ~A(); void b() const; }; }",
                   "namespace platform { A::~A() = default; namespace { void b() {} } }") == [
                       "platform::A::b"]
