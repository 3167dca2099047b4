"""safe-upgrade and resume-upgrade on a board of files: each case is a fault, and the board's state afterwards,
without anyone's help."""

import os
import random
import shutil
import subprocess

import pytest
from pathlib import Path

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
    fault = board.fault()
    assert not fault, board.calls.read_text()


def change(hostname):
    """The user's change."""
    Path("/etc/system.conf").write_text(f"hostname={hostname}\n")


def hostname():
    return Path("/etc/system.conf").read_text().strip().removeprefix("hostname=")


def cut_in_etc(board):
    """The power fails when flash has the new firmware, but not all settings."""
    board.hook("system.conf@0", "kill -9 0")
    board.call("safe-upgrade", board.package)
    assert board.firmware() == "new"


def damage(place):
    with STORE.open("r+b") as store:
        store.seek(place)
        byte = store.read(1)
        store.seek(place)
        store.write(bytes([byte[0] ^ 1]))


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


# 200 pairs and 50 triples with ALL_CUTS=yes.
@pytest.mark.parametrize("cuts, tries", [(2, 200), (3, 50)] if os.environ.get("ALL_CUTS") else [(2, 20), (3, 10)])
def test_more_cuts(make, cuts, tries):
    chosen = random.Random(cuts)
    for _ in range(tries):
        board = make()
        board.power(*((chosen.randint(1, 35), chosen.choice(PARTS)) for _ in range(cuts)))
        board.upgrade()
        ends_whole(board)


def test_cuts_in_the_clean_up_lose_no_later_change(make):
    for step in range(1, 7):
        board = make()
        board.call("safe-upgrade", board.package)
        board.power((step, "half"))
        board.start()
        change(hostname="later")
        board.power()
        for _ in range(2):
            board.start()
            assert hostname() == "later" and board.result()["outcome"] == "installed"
        assert board.call("safe-upgrade", "--at-boot", board.package)[0] == 0


@pytest.mark.parametrize("starts", [3, 7])
def test_cuts_before_the_first_erase(board, starts):
    (WORLD / "hangs").touch()
    board.call("safe-upgrade", board.package)
    for _ in range(starts - 1):
        board.start(boots=1)
    (WORLD / "hangs").unlink()
    board.start()
    assert board.state() == WHOLE


def test_eight_cuts_are_the_last(board):
    (WORLD / "hangs").touch()
    assert "started 8 times" in board.upgrade()
    assert board.state() == ("given-up", "old", [])
    (WORLD / "hangs").unlink()
    assert "given up before" in board.start()
    assert "installed" in board.upgrade("--at-boot")
    assert board.state() == WHOLE


# Settings.


def test_settings_change_before_the_next_boot(board):
    board.call("safe-upgrade", "--at-boot", board.package)
    change(hostname="later")
    board.start()
    assert hostname() == "later" and board.result()["outcome"] == "installed"


def test_settings_change_while_they_are_saved(board):
    board.hook("upgrade-store@131072", "echo hostname=later >/etc/system.conf")
    board.upgrade()
    assert hostname() == "later" and board.result()["outcome"] == "installed"


@pytest.mark.parametrize("copy", [4, 8])
def test_one_copy_of_the_settings_is_damaged(board, copy):
    cut_in_etc(board)
    damage(copy * 65536 + 700)
    assert "all settings are there" in board.start()
    assert board.state() == WHOLE


def test_both_copies_of_the_settings_are_damaged(board):
    cut_in_etc(board)
    damage(4 * 65536 + 700)
    damage(8 * 65536 + 700)
    assert "settings are damaged" in board.start()
    assert board.state()[:2] == ("installed", "new")


def test_settings_cannot_be_compared(board):
    cut_in_etc(board)
    board.program("tar", "#!/bin/sh\nexit 2\n")
    assert "cannot be compared" in board.start()
    assert board.result()["outcome"] == "under-way"
    (WORLD / "bin/tar").unlink()
    board.start()
    assert board.state() == WHOLE
