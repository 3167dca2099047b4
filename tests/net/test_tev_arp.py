"""The address check on real packets. A cable leads from the board to a station that can answer."""

import ctypes
import socket
import subprocess
import time

import pytest

# The question for 192.0.2.9, from a board without an address.
PROBE = bytes.fromhex("ffffffffffff 020000000001 0806 0001 0800 06 04 0001"
                      "020000000001 00000000 000000000000 c0000209")
ARP = 0x0806
CLONE_NEWNET = 0x40000000


def ip(*arguments):
    return subprocess.run(["ip", *arguments], check=True, stdout=subprocess.PIPE, text=True).stdout


@pytest.fixture
def station():
    """A socket that hears what reaches the station, in a network of this test alone."""
    assert ctypes.CDLL(None).unshare(CLONE_NEWNET) == 0
    ip("link", "add", "board", "address", "02:00:00:00:00:01", "type", "veth",
       "peer", "name", "station", "address", "02:00:00:00:00:02")
    ip("link", "set", "board", "up")
    ip("link", "set", "station", "up")
    while "state UP" not in ip("link", "show", "board"):  # frames sent before that are lost
        time.sleep(0.02)
    with socket.socket(socket.AF_PACKET, socket.SOCK_RAW) as wire:
        wire.bind(("station", ARP))
        wire.settimeout(60)
        yield wire


@pytest.fixture
def check(build, tmp_path, station):
    """Runs tev_arp, which must print nothing, and returns the frames that reach the station."""
    program = tmp_path / "tev_arp"
    program.symlink_to(build / "qve")

    def run(*arguments):
        ended = subprocess.run([program, *arguments], stdout=subprocess.PIPE,
                               stderr=subprocess.STDOUT, timeout=60)
        assert (ended.returncode, ended.stdout) == (0, b"")

    def run_and_listen(interface, milliseconds):
        run(interface, "192.0.2.9", milliseconds)
        run("board", "192.0.2.255", "0")
        return list(iter(lambda: station.recv(128), PROBE[:-1] + b"\xff"))

    return run_and_listen


def test_one_probe(check):
    assert check("board", "0") == [PROBE]


def test_quiet_second(check):
    """A run that starts with a second sends ten probes in it. A busy machine is late for some of
    them, but not in each try."""
    for _ in range(30):
        time.sleep(1 - time.time() % 1)
        heard = check("board", "1000")
        if len(heard) >= 10:
            break
    assert heard == [PROBE] * 10


def test_no_interface(check):
    assert check("nowhere", "10000") == []


def test_conflict(check):
    """The answer to the first probe ends the run. Without it, there would be a hundred probes."""
    ip("address", "add", "192.0.2.9/24", "dev", "station")
    heard = check("board", "10000")
    assert heard[0] == PROBE
    assert len(heard) < 10
