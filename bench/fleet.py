#!/usr/bin/python3 -B
"""fleet.py [--hawkbit JAR] [--boards N] [--seconds S]: puts the load of N boards (10,000) on the
demo's fleet server, on this machine's loopback address only, and prints a table in Markdown. S is
the length of each load (20). Needs wrk, and .cache/goosebit or hawkBit's executable jar.

The boards are requests, not emulated boards: wrk asks as they do, each time as another one.
"""

import argparse
import os
import re
import signal
import subprocess
import sys
import tempfile
import time
from pathlib import Path

TOP = Path(__file__).parent.parent
sys.path.insert(0, str(TOP / "board"))
from fleet_server import GooseBit, HawkBit, free_port  # noqa: E402

# Each thread of wrk reads all tokens and asks as a random board.
ASK = """
local boards, tokens = {}, {}
function init(args)
    for line in io.lines(args[1]) do
        local board, token = line:match("(%%S+) (%%S+)")
        boards[#boards + 1], tokens[#tokens + 1] = board, token
    end
    math.randomseed(os.time())
end
function request()
    local n = math.random(#boards)
    return wrk.format("GET", "/%s/controller/v1/" .. boards[n],
        {Authorization = "TargetToken " .. tokens[n], Connection = "%s"})
end
"""
DESCRIPTION = """software = {
    version = "2.0.0";
    hardware-compatibility = [ "3510.1" ];
    images: ({ filename = "x"; type = "raw"; });
}
"""


def resident(process: int) -> int:
    """The process's resident memory in MB."""
    text = Path(f"/proc/{process}/status").read_text()
    return int(re.search(r"VmRSS:\s+(\d+)", text).group(1)) // 1024


def cpu_seconds(process: int) -> float:
    fields = Path(f"/proc/{process}/stat").read_text().rpartition(")")[2].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def load(server, folder: Path, seconds: int, connections: int, keep: str) -> str:
    """Lets wrk ask for some seconds and returns what it measured."""
    (folder / "ask.lua").write_text(ASK % (server.tenant, keep))
    with open(folder / "boards", "w", encoding="utf-8") as boards:
        boards.writelines(f"{board} {token}\n" for board, token in server.tokens.items())
    began = cpu_seconds(server.process.pid)
    done = subprocess.run(
        ["wrk", "-t1", f"-c{connections}", f"-d{seconds}s", "--timeout", "30s", "--latency"]
        + ["-s", folder / "ask.lua", f"https://127.0.0.1:{server.port}", "--", folder / "boards"],
        stdout=subprocess.PIPE, text=True, check=True,
    )
    used = cpu_seconds(server.process.pid) - began
    times = dict(re.findall(r"(50|99)%\s+(\S+)", done.stdout))
    rate = float(re.search(r"Requests/sec:\s+(\S+)", done.stdout).group(1))
    failures = re.findall(r"(?:Non-2xx or 3xx responses: |timeout )(\d+)", done.stdout)
    failed = sum(map(int, failures))
    return (
        f"{rate:.0f} a second; half within {times['50']}, 99 % within {times['99']}; "
        f"{1000 * used / max(rate * seconds, 1):.2f} ms of the server's CPU time each; "
        f"{failed} failed"
    )


def answer_as(server, board: str, offers: list[str]):
    """Does what a board does with an offer: fetches it and reports success."""
    token = "TargetToken " + server.tokens[board]
    path = f"/{server.tenant}/controller/v1/{board}"
    offer = server.request("GET", path, authorization=token).get("_links", {}).get("deploymentBase")
    if not offer:
        return False
    link = "/" + offer["href"].split("/", 3)[3]
    action = server.request("GET", link, authorization=token)["id"]
    server.request(
        "POST",
        f"{path}/deploymentBase/{action}/feedback",
        {"id": action, "status": {"execution": "closed", "result": {"finished": "success"}}},
        authorization=token,
    )
    offers.append(board)
    return True


def register(server, board: str):
    """A board's first request and its answer to the question what it is."""
    token = "TargetToken " + server.tokens[board]
    path = f"/{server.tenant}/controller/v1/{board}"
    server.request("GET", path, authorization=token)
    data = {"mode": "merge", "data": {"sw_version": "1.0.0", "hw_revision": "3510.1"}}
    server.request("PUT", f"{path}/configData", data, authorization=token)


def make_update(folder: Path) -> Path:
    """An update file with a description and nothing else; nobody installs it."""
    (folder / "sw-description").write_text(DESCRIPTION)
    with open(folder / "firmware.swu", "wb") as file:
        subprocess.run(
            ["cpio", "--quiet", "-o", "-H", "crc"], input=b"sw-description\n", cwd=folder,
            stdout=file, check=True,
        )
    return folder / "firmware.swu"


def measure(server, folder: Path, count: int, seconds: int):
    def row(what: str, text: str):
        print(f"| {what} | {text} |", flush=True)

    print(f"\n| {server.name}, {count} boards | |\n|---|---|")
    began = time.monotonic()
    server.start()
    process = server.process.pid
    row("start", f"{time.monotonic() - began:.0f} s; {resident(process)} MB resident")

    names = [f"board-{number:05}" for number in range(count)]
    began = time.monotonic()
    server.add_boards(names)
    row("create the boards", f"{time.monotonic() - began:.0f} s; {resident(process)} MB resident")
    first = names[: max(count // 100, 1)]
    began = time.monotonic()
    for board in names:
        register(server, board)
    took = time.monotonic() - began
    row("their first reports, one after the other", f"{took:.0f} s, {count / took:.0f} a second")

    for what, *how in (
        ("boards ask, 16 connections that stay open", 16, "keep-alive"),
        ("boards ask, 16 at once, each with a new connection", 16, "close"),
        ("boards ask, 256 at once, each with a new connection", 256, "close"),
    ):
        row(what, load(server, folder, seconds, *how))

    began = time.monotonic()
    groups = {"first": first, "rest": names[len(first):]}
    server.roll_out(make_update(folder), "2.0.0", groups)
    row("create and start a roll-out", f"{time.monotonic() - began:.0f} s")
    began = time.monotonic()
    offers: list[str] = []
    for board in first:
        while not answer_as(server, board, offers):
            time.sleep(1)
    took = time.monotonic() - began
    row(f"{len(first)} boards of the first group report success", f"{took:.0f} s")
    began = time.monotonic()
    while server.state()[1]["rest"] not in ("running", "finished"):
        time.sleep(0.5)
    while not answer_as(server, names[-1], offers):
        time.sleep(0.5)
    row(f"until the last of the other {count - len(first)} has its offer",
        f"{time.monotonic() - began:.0f} s; {resident(process)} MB resident")
    row("boards ask during the roll-out", load(server, folder, seconds, 16, "close"))
    row("memory and CPU time in the end",
        f"{resident(process)} MB resident; {cpu_seconds(process):.0f} s of CPU time")


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--hawkbit", metavar="JAR")
    parser.add_argument("--boards", type=int, default=10000)
    parser.add_argument("--seconds", type=int, default=20)
    arguments = parser.parse_args()
    if not (100 <= arguments.boards <= 20000 and 1 <= arguments.seconds <= 60):
        parser.error("100 to 20,000 boards, and at most 60 seconds")
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    with tempfile.TemporaryDirectory() as folder:
        if arguments.hawkbit:
            server = HawkBit(Path(folder), free_port(), arguments.hawkbit, "00:05:00")
        else:
            python = str(TOP / ".cache/goosebit/bin/python3")
            server = GooseBit(Path(folder), free_port(), python, "00:05:00")
        print("load of this machine before:", " ".join(map(str, os.getloadavg())))
        try:
            measure(server, Path(folder), arguments.boards, arguments.seconds)
        finally:
            server.stop()
        print("\nload of this machine after:", " ".join(map(str, os.getloadavg())))
    return 0


if __name__ == "__main__":
    sys.exit(main())
