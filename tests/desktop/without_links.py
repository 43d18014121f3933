"""without_links.py PROGRAM [ARGUMENTS]: runs it as on a file system that has neither
hard links nor files without a name, such as exFAT and some network homes."""

import errno
import os
import sys

import seccomp

UNNAMED = os.O_TMPFILE & ~os.O_DIRECTORY


def main(program):
    calls = seccomp.SyscallFilter(seccomp.ALLOW)
    for link in ("link", "linkat"):
        calls.add_rule(seccomp.ERRNO(errno.EPERM), link)
    calls.add_rule(seccomp.ERRNO(errno.EOPNOTSUPP), "openat",
                   seccomp.Arg(2, seccomp.MASKED_EQ, UNNAMED, UNNAMED))
    calls.load()
    os.execv(program[0], program)


if __name__ == "__main__":
    main(sys.argv[1:])
