import pytest

from desktop.processes import wait_for
from standin_harness import Guard, Sandbox


@pytest.fixture
def make_sandbox(tmp_path):
    made = []

    def make(name):
        made.append(Sandbox(tmp_path / name))
        return made[-1]

    yield make
    for sandbox in made:
        result = sandbox.launchctl("shutdown")
        assert result.returncode == 0, result.stderr
        wait_for("the supervisors' end", lambda: not sandbox.supervisors())


@pytest.fixture
def sandbox(make_sandbox):
    return make_sandbox("a home")


@pytest.fixture
def stopped_guard(tmp_path):
    guard = Guard(tmp_path / "VelmorPellix")
    yield guard
    guard.stop()


@pytest.fixture
def guard(stopped_guard):
    return stopped_guard.start()
