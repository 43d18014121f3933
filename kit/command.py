"""The command script/check-service."""

import argparse
import dataclasses
import fnmatch
import json
import os
import pathlib
import signal
import sys

from kit import contract
from kit.outcome import NotSo, Untold, printable
from kit.rules import RULES
from kit.session import WHOLE_SECONDS, Session

DESCRIPTION = """\
Runs a velmor-guard as the application and launchd do, in a home of its own and on a free port, and
prints one line per rule: what is expected, what was seen, and how to mend it.

Exits with 0 if every rule holds that must, and with 1 if not. Advice changes nothing about that.
docs/service-contract.md explains the rules."""

ENDS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT)

OK, FAILED, UNHEEDED, SKIPPED = "ok", "failed", "unheeded", "skipped"
WORDS = {OK: "ok", FAILED: "FAILED", UNHEEDED: "advice", SKIPPED: "skipped"}


@dataclasses.dataclass(frozen=True)
class Outcome:
    rule: object
    result: str
    seen: str

    def line(self):
        label = "Skipped" if self.result == SKIPPED else "Seen"
        text = (f"{WORDS[self.result]:8}{self.rule.name:18}{self.rule.expected}. "
                f"{label}: {self.seen}.")
        return f"{text} Mend: {self.rule.mend}" if self.result in (FAILED, UNHEEDED) else text

    def record(self):
        return dict(described(self.rule), result=self.result, seen=self.seen)


class Interrupted(BaseException):
    """The check is to end before its end."""

    def __init__(self, why, status):
        super().__init__(why)
        self.status = status


def described(rule):
    return {"rule": rule.name, "kind": "must" if rule.is_must else "advice",
            "expected": rule.expected, "mend": rule.mend}


def outcome_of(rule, session, kept):
    """`kept` are the names of the rules that have held so far."""
    try:
        try:
            return Outcome(rule, OK, printable(rule.check(session)))
        except Untold as reason:
            if reason.rule in kept:
                raise NotSo(f"nothing: {reason} any more") from None
            return Outcome(rule, SKIPPED, str(reason))
    except (NotSo, OSError) as seen:  # nothing here fails but for what the service has done
        session.note_death(0.2)
        session.forget()  # whatever state it is in, the next rule gets a new one
        return Outcome(rule, FAILED if rule.is_must else UNHEEDED, printable(str(seen)))


def outcomes(program, patience, skipped):
    with Session(program, patience) as session:
        try:
            session.install()
            kept = set()
            for rule in RULES:
                if any(fnmatch.fnmatchcase(rule.name, pattern) for pattern in skipped):
                    yield Outcome(rule, SKIPPED, "you asked for it")
                    continue
                outcome = outcome_of(rule, session, kept)
                if outcome.result == OK:
                    kept.add(rule.name)
                yield outcome
        finally:
            hold_interrupts()


def interrupt_on_signals(seconds):
    def end(number, _frame):
        hold_interrupts()
        if number == signal.SIGALRM:
            raise Interrupted(f"This has taken {seconds:g} seconds: the rest is not checked.", 1)
        raise Interrupted(f"Ended by {signal.Signals(number).name}.", 128 + number)

    for number in (*ENDS, signal.SIGALRM):
        signal.signal(number, end)
    signal.setitimer(signal.ITIMER_REAL, seconds)


def hold_interrupts():
    """Tidying up takes a moment and must not be cut short."""
    signal.setitimer(signal.ITIMER_REAL, 0)
    for number in ENDS:
        signal.signal(number, signal.SIG_IGN)


def check(options):
    seen = []
    why, status = None, None
    running = outcomes(options.program, options.patience, options.skip)
    try:
        interrupt_on_signals(options.limit * options.patience)
        for outcome in running:
            seen.append(outcome)
            if not options.json:
                print(outcome.line(), flush=True)
    except Interrupted as interruption:
        why, status = str(interruption), interruption.status
    finally:
        running.close()
    failed = [outcome for outcome in seen if outcome.result == FAILED]
    if options.json:
        print(json.dumps({
            "contract": contract.VERSION, "program": str(options.program),
            "holds": not failed and why is None, "interrupted": why,
            "rules": [outcome.record() for outcome in seen]}, indent=2))
    else:
        print(summary(seen, options.patience))
    if why:
        print(f"check-service: {why}", file=sys.stderr)
        return status
    return 1 if failed else 0


def summary(seen, patience):
    counts = {result: sum(outcome.result == result for outcome in seen)
              for result in (OK, FAILED, UNHEEDED, SKIPPED)}
    return (f"{len(seen)} rules: {counts[OK]} ok, {counts[FAILED]} failed, "
            f"{counts[UNHEEDED]} advised, {counts[SKIPPED]} skipped"
            + (f" (all limits times {patience:g})" if patience != 1 else ""))


def list_rules(options):
    if options.json:
        print(json.dumps({"contract": contract.VERSION,
                          "rules": [described(rule) for rule in RULES]}, indent=2))
    else:
        for rule in RULES:
            kind = "must" if rule.is_must else "advice"
            print(f"{kind:8}{rule.name:18}{rule.expected}. {rule.mend}")
    return 0


def positive(text):
    number = float(text)
    if not 0 < number < 1e6:
        raise ValueError
    return number


def options_in(arguments):
    parser = argparse.ArgumentParser(
        prog="check-service", description=DESCRIPTION, allow_abbrev=False,
        formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("program", nargs="?", type=pathlib.Path, metavar="PROGRAM",
                        help="the velmor-guard to check; it runs from a copy")
    parser.add_argument("--json", action="store_true", help="one JSON object instead of lines")
    parser.add_argument("--list", action="store_true", help="only say what the rules are")
    parser.add_argument("--skip", action="append", default=[], metavar="RULE",
                        help="leave out a rule, or all that match, such as 'mac-*'")
    parser.add_argument("--patience", type=positive, default=1, metavar="FACTOR",
                        help="multiplies all limits, for a slow machine (default: 1)")
    parser.add_argument("--limit", type=positive, default=WHOLE_SECONDS, metavar="SECONDS",
                        help="for the whole check (default: %(default)s)")
    parser.add_argument("--version", action="version",
                        version=f"version {contract.VERSION} of the contract")
    options = parser.parse_args(arguments)
    if options.list != (options.program is None):
        parser.error("give either a PROGRAM or --list")
    for pattern in options.skip:
        if not any(fnmatch.fnmatchcase(rule.name, pattern) for rule in RULES):
            parser.error(f"no rule is called {pattern}")
    if options.program:
        options.program = options.program.absolute()
        if not options.program.is_file() or not os.access(options.program, os.R_OK):
            parser.error(f"{options.program}: no file that can be read")
    return options


def main(arguments):
    for stream in filter(None, (sys.stdout, sys.stderr)):  # None is one that is closed
        stream.reconfigure(errors="backslashreplace")
    options = options_in(arguments)
    try:
        return list_rules(options) if options.list else check(options)
    except BrokenPipeError:  # whoever read this has seen enough
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        return 1
    except OSError as problem:  # no room for a copy, say
        print(f"check-service: {problem}", file=sys.stderr)
        return 2
