"""fleet.py [--web | --hawkbit JAR]: the fleet's part of ./demo. Three emulated boards fetch signed
updates from a server and install them by themselves. The server runs on this machine's loopback
address and is gone afterwards. ./demo then removes its data, and all keys and tokens.

Without an option the server is gooseBit, with --hawkbit it is Eclipse hawkBit from its executable
jar, and with --web a plain web server.
"""

import argparse
import http.client
import http.server
import re
import signal
import subprocess
import sys
import threading
import time
import urllib.parse
from pathlib import Path

from fleet_server import BOARDS_NAME, ENDS_WITH_US, GooseBit, HawkBit, free_port

TOP = Path(__file__).parent.parent
SCRIPTS = TOP / "integration/swupdate"
WORK = TOP / "build/demo"
BEGAN = time.monotonic()
OLD, NEW, WRONG = "1.0.0", "2.0.0", "3.0.0"

# Each board's settings, as lines 'FILE KEY=VALUE'.
SETTINGS = {
    "north": ["tcp_server.conf server_port=9001", "network/network.conf IPADDR=10.1.0.1"],
    "south": ["stream.conf stream_2_port=9202", "cam_model.conf cam_model=VM42"],
    "west": ["videodecoder.conf video_type=1", "network/network.conf IPADDR=10.1.0.3"],
}

SHOW = """ip addr add 10.0.2.15/24 dev eth0 && ip link set eth0 up
show() {
    echo "kernel=$(head -c 64 /dev/mtd/1 | tail -c 32 | tr -d '\\0')"
    while read -r file setting; do
        ! grep -qx "$setting" "/etc/$file" || echo "setting=$setting"
    done </settings
}
"""
CHANGE = """while read -r file setting; do
    sed -i "s/^${setting%%=*}=.*/$setting/" "/etc/$file"
done </settings
"""
CUTS = {"south": ["--cut", "write [/dev/mtd/3]:1"]}

# What the boards' lines mean: pattern, and the text after the board's name.
LINES = [
    (r"boot loader: (.*)", r"starts with \1"),
    (r"update-agent: installing (.*)", r"fetches \1 and checks it"),
    (r"(?:update|fleet)-agent: (?:refused: )?(.*)", r"says: \1"),
    (r"resume-upgrade: (.*)", r"at start-up: \1"),
    (r".*write (\[/dev/mtd/.*)", r"writes \1"),
    (r"board: (.*)", r": \1"),
]


def say(text: str):
    print(f"[{time.monotonic() - BEGAN:3.0f} s] {text}", flush=True)


def shell(script: str):
    """Runs bash with the functions of firmware.sh, in the demo's folder. Only a failure shows the
    output."""
    done = subprocess.run(
        [
            "bash",
            "-euc",
            f". {TOP}/board/firmware.sh; PATH={TOP}/build/host:{SCRIPTS}:$PATH; {script}",
        ],
        cwd=WORK,
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        check=False,
    )
    if done.returncode:
        sys.exit(f"{done.stdout.decode(errors='replace')}failed: {script}")


def make_firmware(versions: list[str], wrong: str = ""):
    """Makes firmware 1.0.0 for the boards, and signed update files. What is wrong with 3.0.0: it is
    for boards with another 'marker', or its 'signer' is not the maker."""
    shell("make-key signing 'demo firmware'; make-key stranger 'stranger'")
    for version in [OLD, *versions]:
        shell(f"make_release {version}")
    shell(f"make_flash flash {OLD}.kernel {OLD}.app {OLD}.etc")
    for version in versions:
        flaw = wrong if version == WRONG else ""
        marker, signer = "3520" if flaw == "marker" else "3510", (
            "stranger" if flaw == "signer" else "signing"
        )
        shell(
            f"make_package {version} 1 {version}.package --partitions 0x580000,8M,0x180000;"
            f"printf {marker} | dd of={version}.package conv=notrunc status=none;"
            f"mkdir {version};"
            f"make-swu --sign {signer}.key {signer}.crt {version}.package {version}"
        )


def in_flash(board: "Board") -> str:
    """The firmware whose kernel and second partition are in the board's flash."""
    places = {}
    for line in (TOP / ".cache/board/partitions").read_text().splitlines():
        name, start, _ = line.split()
        places[name] = int(start, 0)
    flash = (board.folder / "flash").read_bytes()
    for version in (OLD, NEW, WRONG):
        parts = {name: WORK / f"{version}.{name}" for name in ("kernel", "app")}
        if all(
            p.exists() and flash.startswith(p.read_bytes(), places[n]) for n, p in parts.items()
        ):
            return version
    return "neither"


class Board:
    """One emulated board. Its name decides its settings and what happens to it."""

    def __init__(self, name: str, port: int, agent: str, conf: str, prepare: str = ""):
        self.name, self.folder, self.lines = name, WORK / name, []
        self.settings = [*SETTINGS[name], f"system.conf hostname={name}"]
        self.folder.mkdir()
        shell(f"cp flash {name}/flash; make_card {name}/card")
        self.put("settings", "".join(f"{line}\n" for line in self.settings))
        self.put("conf", (SCRIPTS / f"{agent}.conf").read_text() + conf)
        first = self.put("first", f"{SHOW}{CHANGE}{prepare}\nshow\n{agent}\n")
        later = self.put("later", f"{SHOW}show\n{agent}\n")
        self.arguments = [
            TOP / "board/run",
            "--timeout",
            "1800",
            "--install",
            WORK / "root",
            "--install",
            TOP / ".cache/engine/root",
            "--kept-sd",
            self.folder / "card",
            "--put",
            f"{self.folder}/settings:/settings",
            "--put",
            f"{WORK}/signing.crt:/signing.crt",
            "--put",
            f"{SCRIPTS}/board-state.sh:/sbin/board-state.sh",
            "--put",
            f"{SCRIPTS}/{agent}:/sbin/{agent}",
            "--put",
            f"{self.folder}/conf:/sbin/{agent}.conf",
            "--web",
            f"busybox nc 127.0.0.1 {port}",
            *CUTS.get(name, []),
            "--job",
            first,
            "--job",
            later,
            "--job",
            later,
            self.folder / "flash",
        ]

    def put(self, name: str, text: str) -> Path:
        """Makes a file in the board's folder on this machine."""
        path = self.folder / name
        path.touch(0o600)  # the token is among them
        path.write_text(text)
        return path

    def start(self):
        self.process = subprocess.Popen(
            [*ENDS_WITH_US, *map(str, self.arguments)],
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            text=True,
            errors="replace",
        )
        self.reader = threading.Thread(target=self.read)
        self.reader.start()

    def read(self):
        with open(self.folder / "output", "w", encoding="utf-8") as kept:
            for line in self.process.stdout:
                kept.write(line)
                kept.flush()
                self.lines.append(line.rstrip("\n"))
                for pattern, text in LINES:
                    if match := re.fullmatch(pattern, self.lines[-1]):
                        say(f"{self.name} {match.expand(text)}".replace(" :", ":"))
                        break

    def switch_off(self):
        """Ends the board if it still runs."""
        self.process.terminate()
        self.wait()

    def wait(self):
        self.process.wait()
        self.reader.join()

    def kept(self) -> int:
        """How many settings were there when it started last."""
        last = max(number for number, line in enumerate(self.lines) if line.startswith("kernel="))
        return sum(line.startswith("setting=") for line in self.lines[last:])

    def kernels(self) -> list[str]:
        return [line[7:] for line in self.lines if line.startswith("kernel=")]


def run_boards(boards: list[Board], act):
    """Switches the boards on, acts, and switches them off."""
    for board in boards:
        board.start()
    try:
        act()
    finally:
        for board in boards:
            board.switch_off()


def show_board(board: Board, text: str) -> bool:
    """Prints the board's row. Fails if its user's settings are lost."""
    cuts = sum(line.startswith("board: power cut") for line in board.lines)
    of = len(board.settings)
    print(
        f"{board.name:8}{board.kernels()[0]:9}{board.kernels()[-1]:9}"
        f"{f'{board.kept()} of {of}':16}{cuts:<6}{text}"
    )
    return board.kept() == of


# --- the plain web server


class Asked(http.server.SimpleHTTPRequestHandler):
    """Serves the folder with the update, and notes each board's reports."""

    reports: dict[str, tuple[str, str]] = {}

    def do_GET(self):
        query = dict(urllib.parse.parse_qsl(urllib.parse.urlsplit(self.path).query))
        if "board" in query:
            self.reports[query["board"]] = (query.get("outcome", ""), query.get("reason", ""))
        super().do_GET()

    def log_message(self, *_):
        pass


def run_web() -> bool:
    """All boards at once: one installs, one loses its power meanwhile, and one accepts only another
    marker."""
    make_firmware([NEW])
    folder = str(WORK / NEW)
    server = http.server.ThreadingHTTPServer(
        ("127.0.0.1", 0), lambda *words: Asked(*words, directory=folder)
    )
    threading.Thread(target=server.serve_forever, daemon=True).start()
    say("a web server offers 2.0.0; three boards start and ask by themselves")
    boards = []
    for name in SETTINGS:
        settings = (
            f"question=http://{BOARDS_NAME}/latest update_file=http://{BOARDS_NAME}/firmware.swu\n"
            f"certificate=/signing.crt board={name} interval=5 spread=1\n"
        )
        prepare = "echo MARKER=3520 >/etc/oem_marker.conf" if name == "west" else ""
        boards.append(Board(name, server.server_port, "update-agent", settings, prepare))

    def act():
        while not all(finished(board) for board in boards):
            time.sleep(1)

    run_boards(boards, act)
    print(
        f"\n{'board':8}{'before':9}{'after':9}{'settings kept':16}{'cuts':6}reported to the server"
    )
    expected = {"north": (NEW, "installed"), "south": (NEW, "installed"), "west": (OLD, "refused")}
    good = [
        show_board(board, f"{': '.join(Asked.reports[board.name])}")
        and (in_flash(board), Asked.reports[board.name][0]) == expected[board.name]
        for board in boards
    ]
    return all(good)


def finished(board: Board) -> bool:
    return Asked.reports.get(board.name, ("", ""))[0] in ("installed", "refused", "given-up")


# --- a fleet server


def run_server(server) -> bool:
    """The first board installs 2.0.0, then the second group follows. One of its boards loses its
    power meanwhile. After that, the first board refuses 3.0.0, and the others never see it."""
    flaw, what = (
        ("signer", "signed by a stranger")
        if server.offers_by_hardware
        else ("marker", "for other hardware")
    )
    make_firmware([NEW, WRONG], flaw)
    say(f"starting {server.name} on the loopback address")
    server.start()
    groups = {"first": ["north"], "rest": ["south", "west"]}
    server.add_boards(list(SETTINGS))
    client = server.client.relative_to(TOP)
    say(f"ask it yourself: curl -K {client} https://127.0.0.1:{server.port}{server.boards_path}")
    boards = []
    for name in SETTINGS:
        settings = (
            f"server=https://{BOARDS_NAME}:80 tenant={server.tenant} board={name} token=/token\n"
            f"authority=/server.crt certificate=/signing.crt spread=3\n"
        )
        board = Board(name, server.port, "fleet-agent", settings)
        token = board.put("token", server.tokens[name])
        board.arguments[1:1] = [
            "--put",
            f"{token}:/token",
            "--put",
            f"{server.certificate}:/server.crt",
        ]
        boards.append(board)

    def act():
        wait_until(lambda: all(row["version"] == OLD for row in server.boards()), server)
        say(f"all boards have reported their version; rolling out {NEW}")
        good = roll_out(server, NEW, groups) == "finished"
        say(f"rolling out {WRONG}, which is {what}")
        good &= roll_out(server, WRONG, groups) == "stopped"
        say("waiting whether the other boards fetch it all the same")
        time.sleep(25)
        results.append(good)

    results: list[bool] = []
    run_boards(boards, act)
    rows = wait_until(server.boards, server)
    print(f"\n{server.name} says:\n{'board':8}{'group':8}{'state':11}{'version':9}message")
    for row in rows:
        errors = [text for text in row["messages"] if "ERROR" in text and row["state"] == "error"]
        told = (errors or row["messages"][-1:])[:1]
        print(
            f"{row['board']:8}{row['group']:8}{row['state']:11}{row['version']:9}"
            f"{' '.join(told)[:90]}"
        )
    print(f"\n{'board':8}{'before':9}{'after':9}{'settings kept':16}{'cuts':6}in flash")
    good = results == [True] and [row["version"] for row in rows] == [NEW] * 3
    for board in boards:
        good &= show_board(board, in_flash(board)) and in_flash(board) == NEW
        offers = sum("offers an update" in line for line in board.lines)
        good &= offers == (2 if board.name == "north" else 1)
    return good


def roll_out(server, version: str, groups: dict[str, list[str]]) -> str:
    """Starts a roll-out and says what becomes of its groups, until it is over. Returns its end."""
    server.roll_out(WORK / version / "firmware.swu", version, groups)
    shown: dict[str, str] = {}

    def over() -> bool:
        state, now = server.state()
        for group, text in now.items():
            if shown.get(group) != text:
                say(f"{server.name}: {version}, group '{group}': {text}")
        shown.update(now)
        shown["end"] = state
        return state != "running"

    wait_until(over, server)
    say(f"{server.name}: the roll-out of {version} has {shown['end']}")
    return shown["end"]


def wait_until(done, server, limit: int = 900):
    """Waits, and starts a server again that has stopped. Returns what done() returned."""
    end = time.monotonic() + limit
    while True:
        try:
            if result := done():
                return result
        except (OSError, http.client.HTTPException) as error:
            if server.process.poll() is not None:
                say(f"{server.name} has stopped ({error}); starting it again")
                server.start()
        if time.monotonic() > end:
            raise SystemExit(f"nothing happened for {limit} s; the logs are in {WORK}")
        time.sleep(2)


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--web", action="store_true")
    parser.add_argument("--hawkbit", metavar="JAR")
    parser.add_argument(
        "--began", type=float, default=0, help="seconds since the start of the demo"
    )
    arguments = parser.parse_args()
    global BEGAN
    BEGAN -= arguments.began
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    if arguments.web:
        good = run_web()
    else:
        folder = WORK / "server"
        folder.mkdir(mode=0o700)
        if arguments.hawkbit:
            server = HawkBit(folder, free_port(), arguments.hawkbit)
        else:
            server = GooseBit(folder, free_port(), str(TOP / ".cache/goosebit/bin/python3"))
        try:
            good = run_server(server)
        finally:
            server.stop()
    say("done")
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main())
