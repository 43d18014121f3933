"""How much of the core do the unit tests hold?

Changes one thing at a time in the core's sources (an operator, a constant, a text, a branch, a
statement, a returned value), compiles that one file and runs the unit tests. A mutant that they
do not notice survives: either a test is missing, or the change makes no difference. Prints the
survivors and fails if fewer than nine in ten are killed. All is left in build/mutate.
"""
import argparse
import concurrent.futures
import json
import os
import pathlib
import random
import re
import resource
import shlex
import subprocess
import sys
import threading
from collections import Counter
from typing import Iterator, NamedTuple

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = ROOT / "build/mutate"
FOLDERS = ("model", "client", "install", "identity", "app")
TIMEOUT = 20  # seconds for the unit tests, which take less than one
GOAL = 0.9
# Quick to compile; a mutant without a result or with a view read beyond its end is no subtle one.
FLAGS = ("-O0", "-g0", "-Wno-error", "-Werror=return-type", "-D_GLIBCXX_ASSERTIONS")

TOKEN = re.compile(r"""
    (?P<skip>   //[^\n]* | /\*.*?\*/ | ^[ ]*\#[^\n]* | ^using[^;]*; | ^namespace[^\n]* )
  | (?P<raw>    R"\((?P<rawtext>.*?)\)" )
  | (?P<string> "(?:\\.|[^"\\])*" )
  | (?P<char>   '(?:\\.|[^'\\])+' )
  | (?P<number> \b(?:0x[0-9A-Fa-f]+|\d+(?:\.\d+)?)\b )
  | (?P<branch> \b(?:if|while)[ ]\( )
  | (?P<word>   [A-Za-z_]\w*(?:::[A-Za-z_]\w*)* )
  | (?P<operator> <<|>>|->|\+\+|--|[-+*/=!<>]=|&&|\|\||[-+*/<>!] )
  | (?P<other>  . )
""", re.VERBOSE | re.DOTALL | re.MULTILINE)

OPERATORS = {
    "==": ["!="], "!=": ["=="], "<": ["<=", ">="], "<=": ["<", ">"], ">": [">=", "<="],
    ">=": [">", "<"], "&&": ["||"], "||": ["&&"], "+": ["-"], "-": ["+"], "*": ["/"],
    "/": ["*"], "++": ["--"], "--": ["++"], "+=": ["-="], "-=": ["+="], "!": [""],
}
STATES = re.findall(r"TrustState::(\w+)", (ROOT / "model/TrustState.h").read_text(encoding="utf-8"))
WORDS = {
    "true": ["false"], "false": ["true"],
    "Color::systemOrange": ["Color::systemRed", "std::nullopt"],
    "Color::systemRed": ["Color::systemOrange", "std::nullopt"],
    "Color::controlBackground": ["Color::systemRed"],
    **{f"TrustState::{state}": [f"TrustState::{STATES[i - 1]}"] for i, state in enumerate(STATES)},
}


class Mutant(NamedTuple):
    file: str
    start: int
    end: int
    text: str
    line: int
    change: str


def closing(source: str, at: int) -> int:
    """The place of the parenthesis that closes the one at `at`."""
    depth = 0
    for match in TOKEN.finditer(source, at):
        depth += {"(": 1, ")": -1}.get(match.group(), 0)
        if match["branch"]:
            depth += 1
        if depth == 0:
            return match.start()
    raise ValueError("unbalanced parentheses")


def token_changes(source: str) -> Iterator[tuple[int, int, str]]:
    for match in TOKEN.finditer(source):
        start, end, text = match.start(), match.end(), match.group()
        if match["string"]:
            yield start, end, '"mutant"' if text == '""' else '""'
            if len(text) > 3:
                yield end - 1, end, '~"'
        elif match["raw"]:
            # One line of the text at a time.
            at = match.start("rawtext")
            for line in match["rawtext"].splitlines(keepends=True):
                yield at, at + len(line), ""
                at += len(line)
        elif match["char"]:
            yield start, end, "'~'"
        elif match["number"]:
            base = 16 if text.startswith("0x") else 10
            if "." in text:
                value = float(text)
                yield start, end, repr(value + 1 if value + 1 != value else value * 2)
            else:
                # 010 is an octal number.
                value = int(text, 8 if base == 10 and len(text) > 1 and text[0] == "0" else base)
                yield start, end, str(value + 1)
                if value > 0:
                    yield start, end, str(value - 1)
        elif match["branch"]:
            # A declaration in the condition keeps its name, and only its outcome changes.
            stop = closing(source, end - 1)
            condition = source[end:stop]
            if ";" in condition:
                first, condition = condition.rsplit(";", 1)
                for outcome in ("true", "false"):
                    yield end, stop, f"{first}; {outcome}"
            elif re.match(r"(?:const )?auto ", condition):
                name = re.search(r"(\w+) =", condition)[1]
                yield end, stop, f"{condition}; !{name}"
            else:
                yield end, stop, "false"
                if text.startswith("if"):
                    yield end, stop, "true"
        elif match["word"]:
            for other in WORDS.get(text.removeprefix("platform::"), []):
                yield start, end, ("platform::" if text.startswith("platform::Color")
                                   and other.startswith("Color") else "") + other
        elif match["operator"]:
            for other in OPERATORS.get(text, []):
                yield start, end, other


def statement_changes(source: str) -> Iterator[tuple[int, int, str]]:
    """Leaves out statements, and returns default values."""
    start, depth = 0, 0
    for match in TOKEN.finditer(source):
        text = match.group()
        if match["skip"]:
            if source[start:match.start()].strip() == "":
                start = match.end()
            continue
        if match["branch"] or text == "(":
            depth += 1
        elif text == ")":
            depth -= 1
        elif text in "{}":
            start, depth = match.end(), 0
        elif text == ";" and depth == 0:
            begin = start + len(source[start:]) - len(source[start:].lstrip())
            statement = source[begin:match.start()]
            start = match.end()
            returned = re.search(r"\breturn (.+)", statement, re.DOTALL)
            if returned and returned[1].strip() not in ("{}", "std::nullopt", "0", "false"):
                yield begin + returned.start(1), match.start(), "{}"
            if statement and not re.match(r"(?:const|constexpr|using|static|struct)\b", statement):
                yield begin, match.start(), ""


def row_changes(source: str) -> Iterator[tuple[int, int, str]]:
    """Leaves out the rows of tables and of lists."""
    for match in re.finditer(r"^ +[^\s/][^\n;]*,$", source, re.MULTILINE):
        yield match.start(), match.end(), ""


def mutants(path: pathlib.Path) -> list[Mutant]:
    source = path.read_text(encoding="utf-8")
    file = str(path.relative_to(ROOT))
    found: dict[tuple[int, int, str], Mutant] = {}
    for changes in (token_changes, statement_changes, row_changes):
        for start, end, text in changes(source):
            if source[start:end] == text:
                continue
            before = " ".join(source[start:end].split())
            change = f"{before[:60]!r} -> {text[:60]!r}" if text else f"without {before[:80]!r}"
            line = source.count("\n", 0, start + len(source[start:end]) - len(source[start:end].lstrip())) + 1
            found.setdefault((start, end, text), Mutant(file, start, end, text, line, change))
    return sorted(found.values(), key=lambda mutant: (mutant.start, mutant.end, mutant.text))


def limit_resources() -> None:
    resource.setrlimit(resource.RLIMIT_AS, (2 << 30, 2 << 30))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


class Workshop:
    """Makes and tests mutants, any number at a time, each thread in a folder of its own."""

    def __init__(self) -> None:
        subprocess.run([ROOT / "script/bootstrap"], check=True)
        subprocess.run(["cmake", "-S", ROOT, "-B", BUILD, "-G", "Ninja", "--log-level=WARNING",
                        "-DCMAKE_EXPORT_COMPILE_COMMANDS=ON", "-DPELLIX_INSTRUMENT=" + ";".join(FLAGS)],
                       check=True, stdout=subprocess.DEVNULL)
        subprocess.run(["cmake", "--build", BUILD, "--target", "unit_tests", "--", "--quiet"], check=True)
        self.compile_commands = {
            os.path.relpath(entry["file"], ROOT): shlex.split(entry["command"])
            for entry in json.loads((BUILD / "compile_commands.json").read_text(encoding="utf-8"))}
        commands = subprocess.run(["ninja", "-C", BUILD, "-t", "commands", "-s", "tests/unit_tests"],
                                  check=True, capture_output=True, text=True).stdout
        link = re.search(r"&& (.* -o tests/unit_tests .*) && :", commands)
        if not link:
            raise SystemExit("Cannot tell how the unit tests are linked.")
        self.link_command = shlex.split(link[1])
        self.precompile()
        self.local = threading.local()
        if self.run_tests(BUILD / "tests/unit_tests") != "survived":
            raise SystemExit("The unit tests fail without any change.")

    def precompile(self) -> None:
        """The standard library's headers, which take most of the time."""
        headers = {line for folder in (*FOLDERS, "platform") for path in (ROOT / folder).glob("*.[ch]*")
                   for line in re.findall(r"^#include <.*>$", path.read_text(encoding="utf-8"), re.M)}
        self.prefix = BUILD / "standard.h"
        self.prefix.write_text("\n".join(sorted(headers)) + "\n", encoding="utf-8")
        command = list(self.compile_commands["model/Status.cpp"])
        command[command.index("-o") + 1] = str(self.prefix) + ".gch"
        at = command.index("-c")
        command[at:at + 2] = ["-x", "c++-header", str(self.prefix)]
        subprocess.run(command, cwd=BUILD, check=True)

    def folder(self) -> pathlib.Path:
        if not hasattr(self.local, "folder"):
            self.local.folder = BUILD / f"worker-{threading.get_ident()}"
            self.local.folder.mkdir(exist_ok=True)
        return self.local.folder

    @staticmethod
    def run_tests(binary: pathlib.Path) -> str:
        with subprocess.Popen([binary, "--gtest_brief=1", "--gtest_fail_fast"], cwd=binary.parent,
                              stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL, preexec_fn=limit_resources) as tests:
            try:
                return "survived" if tests.wait(TIMEOUT) == 0 else "killed"
            except subprocess.TimeoutExpired:
                tests.kill()
                return "killed"

    def outcome(self, mutant: Mutant) -> str:
        source = (ROOT / mutant.file).read_text(encoding="utf-8")
        name = pathlib.Path(mutant.file).name
        mutated, thing = self.folder() / name, self.folder() / (name + ".o")
        mutated.write_text(source[:mutant.start] + mutant.text + source[mutant.end:], encoding="utf-8")

        command = list(self.compile_commands[mutant.file])
        command[command.index("-o") + 1] = str(thing)
        command[command.index("-c") + 1] = str(mutated)
        command += ["-include", str(self.prefix)]
        if subprocess.run(command, cwd=BUILD, capture_output=True, check=False).returncode != 0:
            return "does not compile"

        # An object in front of the libraries keeps its original in them out.
        binary = self.folder() / "unit_tests"
        command = list(self.link_command)
        command[command.index("-o") + 1] = str(binary)
        library = next(at for at, word in enumerate(command) if word.endswith(".a"))
        command.insert(library, str(thing))
        if subprocess.run(command, cwd=BUILD, capture_output=True, check=False).returncode != 0:
            return "does not compile"
        return self.run_tests(binary)


def main() -> int:
    parser = argparse.ArgumentParser(prog="script/mutate", description=__doc__.splitlines()[0])
    parser.add_argument("--limit", type=int, help="try only so many, drawn at random")
    parser.add_argument("--seed", type=int, default=1, help="of the draw")
    parser.add_argument("--file", action="append", help="mutate this source only; may be repeated")
    parser.add_argument("--list", action="store_true", help="print the mutants, try none")
    options = parser.parse_args()

    files = [ROOT / file for file in options.file or []] or [
        path for folder in FOLDERS for path in sorted((ROOT / folder).glob("*.cpp"))
        if path.name != "main.cpp"]  # not in the unit tests
    chosen = [mutant for path in files for mutant in mutants(path)]
    if options.limit and options.limit < len(chosen):
        chosen = sorted(random.Random(options.seed).sample(chosen, options.limit))
    if options.list:
        print(*(f"{mutant.file}:{mutant.line}: {mutant.change}" for mutant in chosen), sep="\n")
        return 0

    os.nice(19)
    workshop = Workshop()
    counts: Counter[str] = Counter()
    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        for mutant, outcome in zip(chosen, pool.map(workshop.outcome, chosen)):
            counts[outcome] += 1
            if outcome == "survived":
                print(f"survived: {mutant.file}:{mutant.line}: {mutant.change}", flush=True)
    tried = counts["killed"] + counts["survived"]
    share = counts["killed"] / tried if tried else 0
    print(f"{counts['killed']} of {tried} mutants killed ({share:.1%}), {counts['survived']} survived;"
          f" {counts['does not compile']} more do not compile")
    return 0 if share >= GOAL else 1


if __name__ == "__main__":
    sys.exit(main())
