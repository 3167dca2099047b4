"""The commands that build the project, test it and boot its board, in a folder with an awkward
name: wrong usage, other distributions, interruptions."""

import fcntl
import os
import signal
import subprocess
import time
from pathlib import Path

import pytest

ISOLATED = ". scripts/isolate.sh && isolated"


@pytest.fixture(autouse=True)
def checkout(tmp_path, top, monkeypatch):
    """Makes the current folder. Its commands are the checkout's, except those in 'bin'."""
    folder = tmp_path / "my work" / "it's, a:b"
    for new in folder / "build", tmp_path / "bin", tmp_path / "tmp":
        new.mkdir(parents=True)
    for name in "demo", "check", "scripts", "board", "integration":
        (folder / name).symlink_to(top / name)
    monkeypatch.chdir(folder)
    monkeypatch.setenv("PATH", f"{tmp_path}/bin:{os.environ['PATH']}")
    monkeypatch.setenv("TMPDIR", f"{tmp_path}/tmp")


@pytest.fixture
def stand_in(tmp_path):
    """Replaces a command with a script."""
    def write(command, script):
        path = tmp_path / "bin" / command
        path.write_text(f"#!/bin/sh\n{script}\n")
        path.chmod(0o755)
    return write


def say(*command):
    """Runs a command to its end. Returns its exit status and its output."""
    ended = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                           stderr=subprocess.STDOUT, text=True)
    return ended.returncode, ended.stdout


class Running:
    """A command that runs. It and everything that it starts hold a lock."""

    def __init__(self, tmp_path, *command):
        self.lock = tmp_path / "held"
        with self.lock.open("w") as held:
            fcntl.flock(held, fcntl.LOCK_EX)
            self.process = subprocess.Popen(
                command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                stderr=subprocess.STDOUT, text=True, pass_fds=[held.fileno()])

    def await_text(self, text):
        said = ""
        while text not in said:
            line = self.process.stdout.readline()
            assert line, f"it ended before it said '{text}': {said}"
            said += line

    def await_file(self, path, text):
        while text not in Path(path).read_text():
            assert self.process.poll() is None, "it ended early"
            time.sleep(0.02)

    def has_ended(self, wait=False):
        """Says whether everything that the command started has ended, or waits for it."""
        flock = ["flock"] if wait else ["flock", "--nonblock"]
        return subprocess.run([*flock, self.lock, "true"]).returncode == 0


@pytest.fixture
def ends_at(tmp_path):
    """Stops a command when it prints a text. It must leave no process and no scratch folder."""
    def stop(text, *command):
        running = Running(tmp_path, *command)
        running.await_text(text)
        # A shell that does not wait for its child yet would first see the child end.
        running.await_file(f"/proc/{running.process.pid}/status", "State:\tS")
        running.process.terminate()
        assert running.process.wait() in (-signal.SIGTERM, 128 + signal.SIGTERM)
        assert running.has_ended(), "something still runs"
        assert os.listdir(tmp_path / "tmp") == []
    return stop


@pytest.mark.parametrize("command, usage", [
    ("board/run --log-times --put", "usage: board/run"),
    ("./demo downgrade", "usage: ./demo"),
    ("./check --no-install everything", "usage: ./check"),
    ("scripts/clean-room.sh --release", "clean-room.sh [--release"),
])
def test_wrong_usage(command, usage):
    status, said = say(*command.split())
    assert status == 2
    assert usage in said


def test_mirror(tmp_path, monkeypatch):
    """It is found without package lists, for any release, and is not another project's."""
    sources = tmp_path / "sources"
    sources.write_text("deb http://a.invalid/tools nodistro main\n"
                       "deb http://b.invalid/debian trixie main\n")
    config = tmp_path / "apt"
    config.write_text(f'Dir::Etc {{ sourcelist "{sources}"; sourceparts "-"; }};'
                      f'Dir::State::lists "{tmp_path}/lists";')
    monkeypatch.setenv("APT_CONFIG", str(config))
    assert say("bash", "-c", ". scripts/private-apt.sh && debian_mirror") == (
        0, "http://b.invalid/debian\n")


def test_other_distribution(tmp_path, stand_in):
    """Its packages may have the same names. Nothing is installed."""
    stand_in("dpkg-query", "exit 1")
    stand_in("apt-get", f"touch '{tmp_path}/touched'")
    release = tmp_path / "release"
    release.write_text('ID=other\nPRETTY_NAME="Other 1"\nVERSION_CODENAME=trixie\n')
    status, said = say("bash", "-c", f"{ISOLATED} sh -c 'mount --bind \"$0\" /etc/os-release && "
                       "exec ./demo' \"$0\"", str(release))
    assert status == 1
    assert ("Other 1. This script installs packages only on Debian, releases: bookworm trixie."
            in said)
    assert "--no-install" in said, "it does not say how to go on"
    assert not (tmp_path / "touched").exists()


def test_interrupted_download(stand_in, ends_at, monkeypatch):
    """One of the processes ignores SIGTERM, one has a session of its own."""
    stand_in("apt-get", 'trap "" TERM; setsid sleep 1000 & echo fetching; exec sleep 1000')
    monkeypatch.setenv("DEBIAN_MIRROR", "http://b.invalid")
    ends_at("fetching", "scripts/musl-sysroot.sh")
    assert os.listdir(".cache") == ["lock"]


@pytest.mark.parametrize("end", ["exit 1", "kill $PPID; exec sleep 1000"])
def test_keys_tokens_and_server_are_thrown_away(stand_in, end):
    """Whatever ends the demo of the fleet."""
    stand_in("cmake", "cd build/demo && mkdir -p north server/artifacts/1 && touch signing.key server/database "
             f"server/log server/artifacts/1/file north/token north/output && {end}")
    assert say("./demo", "--no-install", "fleet", "--web")[0] != 0
    left = {str(path) for path in Path("build/demo").rglob("*") if path.is_file()}
    assert left == {f"build/demo/{name}" for name in ("server/log", "north/output", "log")}


def test_interrupted_wait(ends_at):
    with open("build/lock", "w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        ends_at("waiting for another run that uses build", "./check")


def test_turn(tmp_path):
    """A run waits for the end of the run before it."""
    with open("build/lock", "w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        running = Running(tmp_path, "bash", "-c",
                          ". scripts/run-control.sh && wait_for_turn build && echo my turn")
        running.await_text("waiting for another run that uses build")
        running.await_file("/proc/locks", "-> FLOCK")
    running.await_text("my turn")
    assert running.process.wait() == 0


@pytest.mark.parametrize("script", [
    f"{ISOLATED} bash -c 'sleep 1000 & setsid sleep 1000 & echo ready; wait'",
    f"{ISOLATED} bash -c '{ISOLATED} bash -c \"sleep 1000 & echo ready; wait\"'",
    ". scripts/isolate.sh && isolate_me; sleep 1000 & echo ready; wait",
], ids=["isolated", "twice", "script"])
def test_killed_outside(tmp_path, script, monkeypatch):
    """A time limit kills the process that started the namespaces. Nothing goes on in them."""
    monkeypatch.delenv("is_isolated")
    path = tmp_path / "script"
    path.write_text(f"#!/bin/bash\n{script}\n")
    path.chmod(0o755)
    running = Running(tmp_path, "bash", path)
    running.await_text("ready")
    assert not running.has_ended()
    running.process.kill()
    assert running.has_ended(wait=True)


@pytest.mark.board
def test_interrupted_board(tmp_path, top, ends_at):
    Path(".cache").symlink_to(top / ".cache")
    Path("card").write_bytes(bytes(16 << 20))
    ends_at("ready", "board/run", "--sd", "card", "flash", "--",
            "sh", "-c", "echo ready; exec sleep 1000")
