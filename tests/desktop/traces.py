"""What a traced process did on the network."""

import re

from desktop.files import read_lines

CALLS = "connect,sendto,sendmsg,sendmmsg"
ADDRESS = re.compile(r'sin6?_port=htons\((\d+)\).*?(?:inet_addr\(|inet_pton\(AF_INET6, )"([^"]+)"')


def wrapper(trace):
    """Start a program with these words in front to have its connections noted."""
    return ["strace", "-D", "-f", "--seccomp-bpf", "-o", trace, "-e", "trace=" + CALLS]


def addresses(trace):
    """Whom it reached for over the internet protocols: (address, port)."""
    found = set()
    for line in read_lines(trace):
        if "AF_INET" in line:
            port, address = ADDRESS.search(line).groups()
            found.add((address, int(port)))
    return found
