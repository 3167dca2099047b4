"""A board with old firmware and the user's settings, a card, and a package, for the emulated board."""

import subprocess
from pathlib import Path

from file_board import SETTINGS

TOP = Path(__file__).resolve().parent.parent
# What a board tells: its release and the lost settings, the result, and whether it takes the next update.
LOOK = """
lost=$(cd /mine && find . -type f | while read -r file; do cmp -s "$file" "/etc/$file" || echo "$file"; done)
echo "found: $(cat /etc/release) lost:" $lost
safe-upgrade --result | sed 's/^/found: /'
"""
NEXT = LOOK + "safe-upgrade --at-boot /tmp/flash3 >/dev/null && echo 'found: takes the next update'\n"
PARTS = """
make_release old
make_release new
make_package new 1 package
make_flash flash old.kernel old.app old.etc
make_card card
"""


def shell(command, work):
    """Runs bash with the functions of board/firmware.sh."""
    subprocess.run(["bash", "-ec", f". {TOP}/board/firmware.sh\n{command}"], cwd=work, check=True,
                   stdout=subprocess.DEVNULL)


def make(work, parts=PARTS):
    """Makes the firmware, and the root that each boot gets, with the user's settings in /mine."""
    shell(f"install_program root\n{parts}", work)
    for name, text in SETTINGS.items():
        path = work / "root/mine" / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)


def run(work, *options, jobs):
    """Boots the board with one job after the other. Returns the lines 'found: ...' of each, and all output."""
    command = [TOP / "board/run", "--install", "root", "--put", "package:/tmp/flash3", "--kept-sd", "card",
               "--timeout", "400", *options]
    for n, job in enumerate(jobs):
        (work / f"job{n}").write_text(job)
        command += ["--job", f"job{n}"]
    done = subprocess.run([*map(str, command), "flash"], cwd=work, text=True, stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    return done.returncode, done.stdout


def fault(status, output):
    """What is wrong after the jobs LOOK and NEXT, or nothing."""
    found = [line[7:] for line in output.splitlines() if line.startswith("found: ")]
    state = [line for line in found if " lost:" in line or line.startswith("outcome=")]
    if status or state[:2] != state[2:] or "takes the next update" not in found or state[:2] not in (
            ["old lost:", "outcome=none"], ["new lost:", "outcome=installed"]):
        return f"status {status}, {state}\n{output}"
    return None
