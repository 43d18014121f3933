"""What runs on Macs keeps to what a bare macOS has: Bash 3.2, and BSD's tools."""

import re

import pytest

from packaging_harness import ROOT

# Of Bash 4.0 to 5.2, and of GNU; what the shell's own -n does not see, as it is a newer one.
NEWER = {
    "changing case by expansion": r"\$\{[^}]*(,,|\^\^|[\w\]][,^])[^}/]*\}",
    "@ transformations": r"\$\{[^}]*@[QEPAaUuLKk]\}",
    "negative index": r"\[-\d+\]\}?",
    "negative length": r"\$\{\w+:[^}:]*:\s*-\d+\}",
    "mapfile": r"\b(mapfile|readarray|coproc)\b",
    "associative arrays, references": r"\b(declare|local|typeset|readonly)\s+-\w*[Anglu]",
    "|&, &>>": r"\|&|&>>",
    "case fall-through": r";;?&",
    "read -i, -N": r"\bread\b[^|;]*\s-\w*[iN]\b",
    "read -t, which in Bash 3 leaves its variables unset when the time is over": r"\bread\b[^|;]*\s-\w*t\b",
    "printf to an array, or the time": r"printf\s+-v\s*\w+\[|%\([^)]*\)T",
    "test -v": r"\[\[?\s+(!\s+)?-[vR]\s",
    "automatic descriptors": r"\{\w+\}[<>]",
    "globstar, lastpipe and others": r"\bshopt\b.*\b(globstar|lastpipe|dirspell|autocd|inherit_errexit)\b",
    "variables of newer shells": r"\$\{?(EPOCHSECONDS|EPOCHREALTIME|BASHPID|SRANDOM|BASH_ARGV0|BASH_XTRACEFD)\b",
    "wait -n, -p": r"\bwait\s+-[npf]",
    "ranges with steps or zeros": r"\{\w+\.\.\w+\.\.\w+\}|\{0\d+\.\.",
    "characters that Bash 3 marks others with": r"\$'[^']*\\(0?01|1|177|x0?1|x7[fF])(?!\d)",
    "unicode escapes": r"\$'[^']*\\[uU][0-9a-fA-F]",
    "arrays that may be empty, under set -u": r'(?<!\+)"\$\{(?!#)\w+\[[@*]\]\}"',
    "a here-document within $( ), whose quotes Bash 3 counts": r"\$\([^)]*(?<!<)<<(?!<)",
    "GNU's stat": r"\bstat\s+(-c|--)", "GNU's sed": r"\bsed\s+(-r|-i\s|--|-z)|\bsed\b.*\\[+?|]",
    "GNU's date": r"\bdate\s+(-d|--|-I)", "GNU's readlink": r"\breadlink\s+-[em]|\brealpath\b",
    "GNU's find": r"\bfind\b.*-(printf|regextype|quit)", "GNU's grep": r"\bgrep\s+(-\w*P|--)",
    "GNU's xargs, sort, ps": r"\bxargs\s+(-r|-d|--)|\bsort\s+(-\w*[VzR]|--)|\bps\s+--",
    "GNU's base64, cp, mktemp": r"\bbase64\s+-w|\bcp\s+(-\w*[tu]\b|--)|\bmktemp\s+(--|-p)",
    "what is not there": r"(?:^|[|;&(]\s*|\$\()\s*(timeout|python3?|jq|gawk|tac|nproc|setsid|flock|seq -w|"
                         r"sha256sum|md5sum|ss|ip|getent|numfmt|shuf)\s",
}
# Arrays that never are empty where they are expanded: set with content, or asked for it before.
FILLED = {"architectures", "copy", "files", "held", "notary", "parts", "profile", "sign"}
SAMPLES = """
${x,,} ${x^} ${x[0]^^}|${x@Q}|${x[-1]}|${x:0:-1}|mapfile -t x|declare -A x|local -n x|a \\|& b|a &>>b|;;&
read -N 1 x|read -t 5 x|read -rt 0.5 x|printf -v x[1] %s 1|printf '%(%s)T'|[[ -v x ]]|exec {fd}>x|shopt -s globstar
$EPOCHSECONDS|x=$'\\001'|x=$'a\\x7f'|wait -n|{1..9..2}|$'\\u00e9'|for y in "${list[@]}"; do|stat -c %u x|sed -r s/a/b/|sed 's/a\\+/b/'
x=$(cat <<END|date -d now|readlink -e x|find . -printf x|grep -P x|xargs -r y|base64 -w0|timeout 5 x|x=$(jq .a)
"""


def findings(text):
    for number, line in enumerate(text.splitlines(), 1):
        code = re.sub(r"(^|\s)#.*", "", line)
        for name, pattern in NEWER.items():
            found = re.search(pattern, code)
            if found and not is_filled(found[0], line):
                yield f"{number}: {name}: {line.strip()}"


def is_filled(expansion, line):
    array = re.fullmatch(r'"\$\{(\w+)\[[@*]\]\}"', expansion)
    return array and (array[1] in FILLED or f"${{#{array[1]}[@]}} -gt 0" in line)


def scripts():
    """Those for managed Macs, and those that a Mac builds and checks with."""
    found = [path for path in sorted((ROOT / "packaging/macos").rglob("*"))
             if path.is_file() and re.match(rb"#!/bin/(ba)?sh\n", path.read_bytes())]
    return found + [ROOT / "script" / name for name in ("build", "check-macos", "check-package", "package")]


@pytest.mark.parametrize("script", scripts(), ids=lambda path: path.name)
def test_a_script_keeps_to_bash_3(script):
    assert list(findings(script.read_text())) == []


def test_the_scripts_are_found():
    assert {"uninstall", "postinstall"} <= {path.name for path in scripts()}


@pytest.mark.parametrize("sample", [
    each for line in SAMPLES.strip().splitlines() for each in re.split(r"(?<!\\)\|", line)])
def test_what_is_newer_is_found(sample):
    assert list(findings(sample.replace("\\|", "|")))


def test_arrays_that_are_named_as_filled_are():
    for name in FILLED:
        assert any(re.search(rf"\b{name}\+?=\(\s*[^\s)]", each.read_text()) for each in scripts())
