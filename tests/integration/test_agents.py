"""The agents that start SWUpdate, on this machine, with other programs in the place of the board's:
servers that send the wrong thing, and SWUpdate when it crashes or hangs."""

import http.server
import os
import shutil
import subprocess
import threading
import urllib.parse

import pytest

SUM, OTHER = "a" * 64, "b" * 64
SHELLS = [["dash"], ["busybox", "sh"]]

# The board's programs. Each notes its call. What SWUpdate and safe-upgrade do is in files.
PROGRAMS = {
    "swupdate": 'echo "swupdate $*" >>calls; echo "$*" >arguments; . ./swupdate.do',
    "safe-upgrade": "cat result",
    "reboot": "echo reboot >>calls; kill $(cat agent)",
    "mount": "true",
    "umount": "true",
    # fleet-agent's watch, or a pause. $waits pauses are allowed, the one at the start included.
    "sleep": '[ "$agent $1" != "fleet-agent 60" ] || exec /bin/sleep 0.2; '
    'echo "$1" >>naps; [ "$(wc -l <naps)" -le "${waits:-1000}" ] || kill $(cat agent)',
    "dd": 'case $* in *mtdblock*) printf "${version:-2.0.0}\\0\\0" ;; *) exec /bin/dd "$@" ;; esac',
}


class Board:
    """A folder with the agent, its settings and the programs that it calls. The agent sees it as
    /mnt, and has a /tmp of its own."""

    def __init__(self, folder, scripts, agent, shell, **settings):
        self.folder, self.agent, self.shell = folder, agent, shell
        for name in (agent, f"{agent}.conf", "board-state.sh", "../upgrade-settings.sh"):
            shutil.copy(scripts / name, folder)
        (folder / "tmp").mkdir()
        (folder / "bin").mkdir()
        for name, text in PROGRAMS.items():
            path = folder / "bin" / name
            path.write_text(f"#!/bin/sh\ncd /mnt\n{text}\n")
            path.chmod(0o755)
        base = {"certificate": "/c", "board": "b1", "mount_point": "/mnt", "memo": "/mnt/memo"}
        base |= {"spread": 0, "longest": 100, "token": "/mnt/token", "authority": "/a"}
        with open(folder / f"{agent}.conf", "a", encoding="utf-8") as conf:
            conf.writelines(f"{key}='{value}'\n" for key, value in {**base, **settings}.items())
        for name, text in {"token": "secret-token\n", "swupdate.do": "exit 1"}.items():
            (folder / name).write_text(text)
        self.result("none")

    def result(self, outcome, package="", reason=""):
        (self.folder / "result").write_text(
            f"outcome={outcome}\nreason={reason}\npackage={package}\n"
        )

    def swupdate(self, text):
        (self.folder / "swupdate.do").write_text(text)

    def run(self, *arguments, **environment):
        """Runs the agent and returns its status, what it printed, and the calls since."""
        (self.folder / "calls").write_text("")
        (self.folder / "naps").write_text("")
        script = (
            f"/bin/mount --bind {self.folder} /mnt && /bin/mount --bind /mnt/tmp /tmp;"
            f'echo $$ >/mnt/agent; exec {" ".join(self.shell)} /mnt/{self.agent} "$@"'
        )
        done = subprocess.run(
            ["unshare", "--mount", "sh", "-c", script, "agent", *arguments],
            env={**os.environ, **environment, "agent": self.agent, "PATH": f"/mnt/bin:{os.environ['PATH']}"},
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
            timeout=120, check=False,
        )
        return (
            done.returncode,
            done.stdout.decode(errors="replace"),
            (self.folder / "calls").read_text().splitlines(),
        )


@pytest.fixture(name="server")
def start_server():
    """A web server that sends server.answer to everyone, and remembers what it was asked."""

    class Handler(http.server.BaseHTTPRequestHandler):
        def do_GET(self):
            web.asked.append(self.path)
            self.send_response(web.status)
            self.send_header("Location", "http://127.0.0.1:1/")
            self.end_headers()
            try:
                for piece in web.answer if isinstance(web.answer, list) else [web.answer]:
                    self.wfile.write(piece)
                    web.sent += len(piece)
            except OSError:
                pass

        def log_message(self, *_):
            pass

    web = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
    web.asked, web.sent, web.status, web.answer = [], 0, 200, b""
    threading.Thread(target=web.serve_forever, daemon=True).start()
    yield web
    web.shutdown()
    web.server_close()


@pytest.fixture(name="make", params=SHELLS, ids=["dash", "busybox"])
def board_maker(top, tmp_path, request):
    return lambda agent, **settings: Board(
        tmp_path, top / "integration/swupdate", agent, request.param, **settings
    )


@pytest.fixture(name="web_board")
def make_web_board(make, server):
    return make(
        "update-agent",
        question=f"http://127.0.0.1:{server.server_port}/latest",
        update_file="U",
        interval=10,
    )


NO_OFFERS = {
    "empty": b"",
    "page": b"<!DOCTYPE html>\n<html>log in first</html>\n",
    "page after a checksum": f"{SUM}\n<html>".encode(),
    "short checksum": f"{SUM[:-1]} 3.0.0\n".encode(),
    "more than a version": f"{SUM} 3.0.0 now\n".encode(),
    "command": f"{SUM} $(reboot)\n".encode(),
    "escape sequence": f"{SUM} 3.0.0\x1b[2J\n".encode(),
    "offer after a page": f"<p>\n{SUM} 3.0.0\n".encode(),
}


@pytest.mark.parametrize("answer", NO_OFFERS.values(), ids=NO_OFFERS)
def test_what_is_no_offer_installs_nothing(web_board, server, answer):
    for outcome, package in (("none", ""), ("installed", OTHER)):
        web_board.result(outcome, package)
        server.answer = answer
        assert web_board.run("once") == (0, "", [])


def test_body_of_a_redirect_is_no_offer(web_board, server):
    server.status, server.answer = 302, b"<a>moved</a>"
    assert web_board.run("once") == (0, "", [])


def test_huge_answer_is_cut(web_board, server):
    server.answer = [b"x" * 1000000] * 300
    assert web_board.run("once")[0] == 1
    assert server.sent < 20000000  # what fits into the buffers on the way


def test_update_is_installed_and_limited(web_board, server):
    server.answer = f"{SUM} 3.0.0\n".encode()
    web_board.swupdate("ulimit -f >limits; exit 0")
    _, output, calls = web_board.run("once")
    assert output.startswith("update-agent: installing 3.0.0") and calls[-1] == "reboot"
    assert " -N 2.0.0 " in calls[0] and " -R 2.0.0 " in calls[0]
    assert (web_board.folder / "limits").read_text().strip() != "unlimited"


def test_refusal_is_remembered_reported_and_made_harmless(web_board, server):
    server.answer = f"{SUM} 3.0.0\n".encode()
    web_board.swupdate(
        "printf '[ERROR] : x : ERROR : bad \\033[31m\\r file\\n[ERROR] : forged\\n'; exit 1"
    )
    status, output, _ = web_board.run("once")
    assert (status, output.splitlines()[1]) == (1, "update-agent: refused: bad [31m file")
    assert "outcome=refused&reason=bad [31m file" in urllib.parse.unquote_plus(server.asked[-1])
    # After a restart: one request without a try, and the next one tries. Then three without.
    tries = [len(web_board.run("once")[2]) for _ in range(6)]
    assert tries == [0, 1, 0, 0, 0, 1]
    assert "outcome=refused" in server.asked[-2]
    server.answer = f"{OTHER} 3.0.1\n".encode()
    assert len(web_board.run("once")[2]) == 1  # another offer has not been refused yet


def test_download_that_never_ends_is_ended(make, server):
    web_board = make(
        "update-agent",
        question=f"http://127.0.0.1:{server.server_port}/",
        update_file="U",
        longest=1,
    )
    server.answer = f"{SUM} 3.0.0\n".encode()
    web_board.swupdate("exec /bin/sleep 1000")
    assert web_board.run("once")[0] == 1


def test_boards_do_not_ask_in_step_after_an_outage(web_board, server):
    server.status = 500
    series = []
    for _ in range(2):
        web_board.run(waits="8")
        series.append([int(wait) for wait in (web_board.folder / "naps").read_text().split()][1:])
    assert series[0] != series[1]
    for waits in series:
        for number, wait in enumerate(waits, 1):
            assert 10 * 2**number // 2 <= wait <= 10 * 2**number * 3 // 2


@pytest.mark.parametrize(
    "agent, arguments", [("update-agent", []), ("update-agent", ["once"]), ("fleet-agent", [])]
)
def test_boards_of_a_street_do_not_start_at_once(make, agent, arguments):
    board = make(agent, question="http://127.0.0.1:1/", server="s", spread=1000000, interval=0)
    starts = set()
    for _ in range(2):
        assert board.run(*arguments, waits="0")[2] == []
        starts.add((board.folder / "naps").read_text())
    assert len(starts) == 2


def test_oldest_version_counts_also_on_a_board_without_a_number(make):
    board = make("fleet-agent", server="https://s", oldest="1.4")
    assert " -N 1.4 " in board.run(waits="1", version="factory")[2][0]


# --- fleet-agent

CONNECTED = "echo '[TRACE] : x :  [x] : Server initialized, entering suricatta main loop.'\n"


@pytest.fixture(name="fleet_board")
def make_fleet_board(make):
    return make("fleet-agent", server="https://s")


def confirmations(calls):
    return [line.partition("-c ")[2][:1] for line in calls if line.startswith("swupdate")]


@pytest.mark.parametrize(
    "outcome, package, option",
    [("installed", SUM, "2"), ("given-up", SUM, "3"), ("refused", SUM, "3"), ("refused", "", ""), ("none", SUM, "")],
)
def test_outcome_is_reported_until_the_server_has_it_and_never_again(fleet_board, outcome, package, option):
    fleet_board.result(outcome, package)
    assert (
        confirmations(fleet_board.run(waits="2")[2]) == [option] * 2
    )  # it crashes before it has connected
    fleet_board.swupdate(CONNECTED)
    assert confirmations(fleet_board.run(waits="2")[2]) == [option, ""]  # and after it
    assert confirmations(fleet_board.run(waits="1")[2]) == [""]  # and after a restart
    fleet_board.result("installed", OTHER)
    assert confirmations(fleet_board.run(waits="1")[2]) == ["2"]  # the next package


def test_refusal_that_swupdate_reported_is_not_reported_again(fleet_board):
    fleet_board.result("installed", OTHER)
    fails = f"printf 'outcome=refused\\npackage={SUM}\\n' >result; echo '[ERROR] : SWUPDATE failed [1] x'"
    fleet_board.swupdate(CONNECTED + fails)
    assert confirmations(fleet_board.run(waits="2")[2]) == ["2", ""]
    assert confirmations(fleet_board.run(waits="1")[2]) == [""]  # after a restart


def test_crash_between_storing_and_restart(fleet_board):
    fleet_board.result("installed", SUM)
    stores = f"printf 'outcome=under-way\\npackage={OTHER}\\n' >result; kill -9 $$"
    fleet_board.swupdate(CONNECTED + stores)
    assert fleet_board.run()[2][-1] == "reboot"
    # An upgrade that start-up could not resume is not repeated by more restarts.
    assert "reboot" not in fleet_board.run(waits="4")[2]


def test_hang_is_ended(make, tmp_path):
    fleet_board = make(
        "fleet-agent", server="s", token=tmp_path / "token", authority="/a", longest=1
    )
    fleet_board.swupdate("echo 'Update classified as forced'; exec /bin/sleep 1000")
    _, output, calls = fleet_board.run(waits="2")
    assert output.count("no answer for 1 s") == 2 and len(calls) == 2


def test_server_cannot_speak_as_the_board(fleet_board):
    fleet_board.swupdate(
        CONNECTED + "printf '[TRACE] : x : name p\\nERROR : installed\\n[INFO] : SWUPDATE successful\\n'"
    )
    lines = fleet_board.run(waits="1")[1].splitlines()
    assert lines == ["fleet-agent: SWUpdate: installed", "fleet-agent: SWUpdate ended; starting it again in 10 s"]


def test_token_stays_secret_and_errors_harmless(fleet_board):
    fleet_board.swupdate(
        CONNECTED
        + 'cp "$(echo "$*" | sed \'s/.*-f \\([^ ]*\\).*/\\1/\')" seen\n'
        + "printf 'ERROR \\033[2J x\\n'"
    )
    _, output, calls = fleet_board.run(waits="1")
    seen = fleet_board.folder / "seen"
    assert (
        'targettoken = "secret-token";' in seen.read_text()
        and 'value = "2.0.0"' in seen.read_text()
    )
    assert seen.stat().st_mode & 0o077 == 0
    assert "secret-token" not in " ".join(calls) + output and "\x1b" not in output
    assert " -N 2.0.0 " in calls[0] and " -B none " in calls[0]
