"""safe-upgrade and resume-upgrade on a board of files: each case is a fault, and the board's state afterwards,
without anyone's help."""

import os
import random
import shutil
import subprocess

import pytest
from file_board import CARD, SETTINGS, WORLD, Board, own_namespace, run

STORE = CARD / "upgrade-store"
PARTS = "none", "first", "half", "last"  # of a write: nothing, one byte, half of it, all but one byte
WHOLE = ("installed", "new", [])


@pytest.fixture(scope="module", autouse=True)
def namespace():
    own_namespace()


@pytest.fixture(params=["dash", "busybox"])
def shell(request):
    return request.param


@pytest.fixture
def make(top):
    return lambda shell="dash": Board(top / "integration", shell)


@pytest.fixture
def board(make):
    return make()


def ends_whole(board):
    """Starts the board, and starts it again, until nothing is left to do. The old firmware is right only if
    nobody was told that the upgrade is on its way."""
    board.start()
    board.power()
    board.start()
    outcome, firmware, lost = board.state()
    assert (outcome, firmware) in (("none", "old"), ("installed", "new")) and not lost, board.calls.read_text()
    board.start()
    assert board.state() == (outcome, firmware, [])
    assert not STORE.exists() or STORE.read_bytes().startswith(b"upgrade-store: nothing to do\n")
    assert board.call("safe-upgrade", "--at-boot", board.package)[0] == 0, "the next update is refused"


# Cuts of the power.


def test_whole_upgrade(make, shell):
    board = make(shell)
    assert "all settings are there" in board.upgrade()
    assert board.state() == WHOLE
    ends_whole(board)


@pytest.mark.parametrize("part", PARTS)
def test_cut_at_every_write(make, part):
    board = make()
    board.upgrade()
    board.start()
    writes = -int((WORLD / "power").read_text().split()[0])
    assert writes > 30
    for step in range(1, writes + 1):
        board = make()
        board.power((step, part))
        board.upgrade()
        board.start()
        ends_whole(board)


@pytest.mark.parametrize("cuts, tries", [(2, 200), (3, 50)])
def test_more_cuts(make, cuts, tries):
    chosen = random.Random(cuts)
    for _ in range(tries):
        board = make()
        board.power(*((chosen.randint(1, 35), chosen.choice(PARTS)) for _ in range(cuts)))
        board.upgrade()
        ends_whole(board)
