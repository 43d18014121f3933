"""Runs the program as the application and launchd do, in a home of its own."""

import contextlib
import os
import pathlib
import pwd
import random
import shutil
import socket
import sys
import tempfile
import time

from kit import contract, exchange, listening
from kit.outcome import NotSo, Untold
from kit.processes import Process, adopt_orphans, kill_all_for, started_for

# Seconds within which things have to happen.
ID_SECONDS = 5
LISTEN_SECONDS = 10
ANSWER_SECONDS = 4  # as long as the application waits
STOP_SECONDS = 3  # launchd kills after 5
TAKEN_SECONDS = 5
GRACE_SECONDS = 0.5
KNOWN_SECONDS = 2
WHOLE_SECONDS = 120

SUPPORT = pathlib.PurePath("Library", "Application Support", "VelmorPellix")
NAME = "velmor-guard"
CLAIM = 10000  # added to a port's number
SITES = ("https://one.site.example", "https://another.site.example")


class Session:
    """Everything that one check starts and makes. Use it in a `with` statement: at its end nothing
    of this is left."""

    def __init__(self, program, patience=1.0):
        self.program = program
        self.patience = patience
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="check-service-")).resolve()
        self.home = self.folder / "home"
        self.support = self.home / SUPPORT
        self.installed = self.support / NAME
        self.managed = self.support / "managed.json"
        self.started = []
        self.running = None  # the process that serves, with its port
        self.port = None
        self.claim = None  # what keeps other checks off the port
        self.broken = None  # the rule without which the service cannot be asked
        self.has_listened = False
        self.deaths = []  # ends of the service that nobody wanted
        self.left_open = []  # connections that outlive the service
        self.identity_run = None
        self.unstartable = None  # why there is none
        self.first_answer = None
        self.known_status = None
        self.ignores_managed = False

    def __enter__(self):
        adopt_orphans()
        return self

    def __exit__(self, *_):
        self.close_connections()
        try:
            kill_all_for(self.home)
        except NotSo as problem:
            print(f"Something may be left running: {problem}", file=sys.stderr)
        for process in self.started:
            process.kill()
        try:
            remove(self.folder)
        except OSError as problem:
            print(f"Something is left: {problem}", file=sys.stderr)
        self.release_port()

    # The installation ------------------------------------------------------------

    def install(self):
        """What the application leaves in the home folder before it starts the service."""
        for folder in (self.support / "logs", self.home / "Library" / "LaunchAgents",
                       self.folder / "tmp"):
            folder.mkdir(parents=True)
        shutil.copyfile(self.program, self.installed)
        self.installed.chmod(0o755)
        self.write_site(SITES[0])

    def write_site(self, site):
        """As the application does it: whole, in one rename."""
        new = self.managed.with_suffix(".new")
        new.write_text(managed_text(site), encoding="utf-8")
        os.replace(new, self.managed)

    def environment(self, **more):
        try:
            user = pwd.getpwuid(os.getuid()).pw_name
        except KeyError:
            user = str(os.getuid())
        environment = {
            "HOME": str(self.home), "USER": user, "LOGNAME": user, "SHELL": "/bin/sh",
            "PATH": "/usr/bin:/bin:/usr/sbin:/sbin", "TMPDIR": f"{self.folder / 'tmp'}/"}
        if sys.platform == "darwin":  # asked before HOME by the system's frameworks
            environment["CFFIXED_USER_HOME"] = str(self.home)
        return {**environment, **more}

    def limit(self, seconds):
        return seconds * self.patience

    # The two commands ------------------------------------------------------------

    def process(self, *arguments, **variables):
        process = Process([str(self.installed), *arguments], self.environment(**variables))
        self.started.append(process)
        return process

    def identify(self):
        """One run of `id --json` and of its output, ended if it does not end."""
        process = self.process("id", "--json")
        limit = self.limit(ID_SECONDS)
        process.ended_with = process.wait(limit)
        process.is_closed = process.out.ends_before(process.started + limit)
        process.seconds = time.monotonic() - process.started
        process.kill()
        return process

    def identity(self):
        """The first such run."""
        if self.unstartable:
            raise Untold.because("id-ends")
        if self.identity_run is None:
            try:
                self.identity_run = self.identify()
            except NotSo as problem:
                self.unstartable = str(problem)
                raise Untold.because("id-ends") from None
        return self.identity_run

    def identifier(self):
        """The device ID that it printed."""
        try:
            return contract.identifier(self.identity().out.data)
        except NotSo:
            raise Untold.because("id-json") from None

    def run(self, port):
        return self.process("run", "--port", str(port), VLX_QUIET="1",
                            XPC_SERVICE_NAME="com.velmor.pellix")

    def start(self, port=None):
        """Starts the service and waits until it listens. Returns it once it does."""
        if port is None:
            self.release_port()
            port, self.claim = free_port()
        self.port = port
        self.running = process = self.run(self.port)
        deadline = process.started + self.limit(LISTEN_SECONDS)
        ended = None
        while not listening.accepts(self.port):
            if time.monotonic() > deadline:
                raise NotSo(f"it does not listen{process.last_words()}")
            if process.status() is not None:
                ended = ended or time.monotonic()
                # It may have gone into the background, and is not seen on the way there.
                if time.monotonic() > ended + GRACE_SECONDS and not started_for(self.home):
                    process.wait(1)
                    self.running = None
                    raise NotSo(process.end())
            time.sleep(0.01)
        self.has_listened = True
        process.startup = time.monotonic() - process.started
        return process

    def service(self):
        """The service, started again if it has ended."""
        if self.broken:
            raise Untold.because(self.broken)
        self.note_death()
        if not self.running:
            try:
                self.start()
            except NotSo as problem:
                self.broken = "keeps-running" if self.has_listened else "listens"
                self.deaths.append(f"it does not start again: {problem}")
                raise Untold.because(self.broken) from None
        return self.running

    def note_death(self, patience=0.0):
        """Notices an end of the service that no rule has asked for."""
        if self.running and self.running.wait(patience) is not None:
            self.deaths.append(self.running.end())
            self.forget()

    def pids(self):
        """The service's processes."""
        return sorted({self.running.popen.pid, *started_for(self.home)})

    def forget(self):
        """Ends the service; the next rule gets a new one."""
        self.close_connections()
        if self.running:
            self.running.kill()
            with contextlib.suppress(NotSo):  # what is left is told in the end
                kill_all_for(self.home)
        self.running = None

    def release_port(self):
        if self.claim:
            self.claim.close()
        self.claim = None

    def close_connections(self):
        while self.left_open:
            self.left_open.pop().close()

    # Asking ------------------------------------------------------------------------

    def open(self, data=b""):
        """A connection that stays open, on which this has been sent."""
        try:
            connection = exchange.connect(self.port, self.limit(ANSWER_SECONDS))
            self.left_open.append(connection)
            connection.sendall(data)
        except OSError as error:
            raise NotSo(f"it takes no connection: {error.strerror or error}") from None
        return connection

    def ask(self, path, connection=None, **options):
        """The answer of the service that runs now; Late or Broken if there is none."""
        return exchange.exchange(self.port, exchange.request(self.port, path, **options),
                                 self.limit(ANSWER_SECONDS), connection)

    def get(self, path):
        """The same of a service that is started if need be."""
        self.service()
        return self.ask(path)

    def answer(self, fault=()):
        """The first answer to /status.json. That there is none is news from the rule about that fault
        alone."""
        if self.first_answer is None:
            try:
                self.first_answer = self.get("/status.json")
            except (exchange.Late, exchange.Broken) as problem:
                self.first_answer = problem
        if isinstance(self.first_answer, fault):
            raise NotSo(str(self.first_answer))
        if isinstance(self.first_answer, exchange.Late):
            raise Untold.because("status-time")
        if isinstance(self.first_answer, exchange.Broken):
            raise Untold.because("status-http")
        return self.first_answer

    def status(self):
        """The object in it, or in a later one while nothing is known yet."""
        answer = self.answer()
        if 300 <= answer.code < 400:
            raise Untold.because("status-direct")
        if self.known_status is None:
            try:
                status = contract.json_object(answer.body)
            except NotSo:
                raise Untold.because("status-json") from None
            self.known_status = self.known(status)
        return self.known_status

    def known(self, status):
        """This object, or that of a later answer while nothing is known yet."""
        deadline = time.monotonic() + self.limit(KNOWN_SECONDS)
        while status.get("state") == "unknown" and time.monotonic() < deadline:
            time.sleep(0.1)
            self.service()
            status = contract.json_object(self.answer_now().body)
        return status

    def answering_service(self):
        """The service, if it has ever answered."""
        self.answer()
        return self.service()

    def answer_now(self, connection=None):
        """A new answer of the service that runs now: it must be like the first, or have a state."""
        try:
            answer = self.ask("/status.json", connection)
        except (exchange.Late, exchange.Broken) as problem:
            raise NotSo(str(problem)) from None
        if answer.code not in (200, self.answer().code):
            try:
                contract.check_state(contract.json_object(answer.body))
            except NotSo:
                raise NotSo(f"status {answer.code}") from None
        return answer

    def status_now(self):
        """The object in it."""
        self.status()
        return contract.json_object(self.answer_now().body)

    def must_still_answer(self, after):
        problem = None
        try:
            self.answer_now()
        except NotSo as seen:
            problem = seen
        if self.running.wait(0.2 if problem else 0) is not None:
            problem = self.running.end()
        if problem:
            self.forget()  # its end, if it has ended, is no riddle
            raise NotSo(f"after {after}: {problem}")


def remove(folder, attempts=10):
    """Removes a folder of any depth and whatever its modes. Somebody else may be at it, too."""
    try:
        os.chmod(folder, 0o700)
        empty(folder)
        os.rmdir(folder)
    except FileNotFoundError:
        if os.path.lexists(folder):
            if attempts == 1:
                raise
            remove(folder, attempts - 1)


def empty(folder):
    """Each folder in it comes to its top before it is emptied: a path has a longest length."""
    aside = tempfile.mkdtemp(dir=folder)
    folders = [folder]
    for path in folders:  # it grows
        for entry in list(os.scandir(path)):
            if entry.path == aside:
                continue
            if entry.is_dir(follow_symlinks=False):
                os.chmod(entry.path, 0o700)
                new = os.path.join(aside, str(len(folders)))
                os.rename(entry.path, new)
                folders.append(new)
            else:
                os.remove(entry.path)
    for path in [*reversed(folders[1:]), aside]:
        os.rmdir(path)


def free_port():
    """One that stays free: the system gives it to nobody who asks for just any, nor do other checks
    take it. Also the claim to it: while this is open, no other check looks whether it is free."""
    for port in random.sample(range(10000, 20000), 5000):
        claim = socket.socket(type=socket.SOCK_DGRAM)
        with contextlib.suppress(OSError):
            claim.bind(("127.0.0.1", port + CLAIM))
            if listening.is_free(port):
                return port, claim
        claim.close()
    raise NotSo("no port is free")


def managed_text(site):
    """The whole of managed.json, as the application spells it."""
    return f'{{"site":"{site}"}}'
