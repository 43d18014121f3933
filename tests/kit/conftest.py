import pytest

import kit_harness
from desktop.processes import wait_for


@pytest.fixture
def scratch(tmp_path, monkeypatch):
    """The folder in which a check makes its own; nothing may be left there, nor running."""
    folder = tmp_path / "scratch"
    folder.mkdir()
    monkeypatch.setenv("TMPDIR", str(folder))
    yield folder
    assert not list(folder.iterdir())
    wait_for("the end of all that was started", lambda: not kit_harness.running_below(folder))


@pytest.fixture
def make(tmp_path, scratch):
    """make(change): a service that differs from a right one in that change."""
    return lambda change="": kit_harness.service(tmp_path / "made", change)
