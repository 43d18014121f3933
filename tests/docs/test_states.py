"""Every place that must know each trust state does: this is what leads whoever adds one."""

import re

import pytest

from desktop import product, run
from sources import ROOT, found, read

# File: what it says of a state, which may name the columns of its row.
PLACES = {
    "model/TrustState.h": "TrustState::{case}",
    "tests/model/TrustStateTest.cpp": '"{wire}"',
    "tests/app/StatusMenuTest.cpp": 'button("{symbol}", "{summary}"',
    "tests/cocoa_on_linux/ApplicationTest.mm": '"{wire}", "{symbol} ',
    "tests/cocoa_on_linux/doubles/AppKit/Desktop.mm": '"{symbol}"',
    "tests/fuzz/status_decoding.dict": '"{wire}"',
    "standin/velmor-guard": '"{wire}": (',
    "standin/README.md": "`{wire}`",
    "docs/service-contract.md": '"state": "{wire}"',
    "docs/status.schema.json": '"{wire}"',
    "docs/deployment.md": "| {summary} |",
    "README.md": "![{summary}](docs/images/menu-{wire}.png)",
}


def case(wire):
    first, *others = wire.split("_")
    return first + "".join(word.capitalize() for word in others)


def test_the_table_is_that_of_the_program():
    rows = re.findall(r'^ *\{"(\w+)", +"([^"]+)", +"([^"]+)", +(?:\{\}|Color::system(\w+)), +"(.)"\},$',
                      read("model/TrustState.cpp"), re.MULTILINE)
    assert [product.State(wire, symbol, summary, tint.lower() or None, glyph)
            for wire, symbol, summary, tint, glyph in rows] == list(product.STATES.values())


@pytest.mark.parametrize("state", product.STATES.values(), ids=lambda state: state.wire)
@pytest.mark.parametrize("path", PLACES)
def test_a_place_knows_the_state(path, state):
    assert PLACES[path].format(case=case(state.wire), **state._asdict()) in read(path)


@pytest.mark.parametrize("state", product.STATES.values(), ids=lambda state: state.wire)
def test_a_state_can_be_seen(state):
    assert (ROOT / f"resources/symbols/{state.symbol}.svg").is_file()
    assert (ROOT / f"docs/images/menu-{state.wire}.png").is_file(), "script/run --pictures makes it"
    assert state.wire in dict(run.TOUR)
    assert state.wire in found("standin/velmor-guard", r"^    \"(\w+)\": '<path ")


def test_no_place_knows_another_state():
    wires = set(product.STATES)
    assert set(found("docs/service-contract.md", r"^state: (\w+)$")) == wires
    [choice] = found("docs/service-contract.md", r"^\| `state` \| string \| (.*), spelt exactly so \|$")
    assert set(re.findall(r"`(\w+)`", choice)) == wires
    [choice] = found("standin/README.md", r"^\| `state` \| (.*) \|$")
    assert set(re.findall(r"`(\w+)`", choice)) == wires
    assert {path.name for path in (ROOT / "resources/symbols").iterdir()} == {
        f"{state.symbol}.svg" for state in product.STATES.values()}
    assert {path.name for path in (ROOT / "docs/images").glob("menu-*")} == {
        f"menu-{wire}.png" for wire in wires}
