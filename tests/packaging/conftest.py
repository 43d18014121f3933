import pytest

from packaging_harness import Mac


@pytest.fixture
def mac(tmp_path):
    return Mac(tmp_path / "mac")
