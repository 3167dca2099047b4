"""Console sessions on the emulated board. A file *.board has one: commands and the whole output,
including white space.

    + COMMAND         in bash on this machine, in a scratch folder, before the first boot
    boot loader: ...  begins a boot. What follows, up to the next one, is the board's output
    $ COMMAND         on the board, and shown; lines that begin with '> ' belong to it
    # COMMENT         shown too
    log: ...          the system log, behind the other lines of a boot, since they are not in step

A command can use board/firmware.sh, $top, $work (the folder) and options (of board/run).
"""

import difflib
import itertools
import re
import subprocess
from pathlib import Path

import pytest

SESSIONS = sorted(Path(__file__).parent.glob("*.board"), reverse=True)  # the longest first
BOOT = re.compile(r"^(?=boot loader:)", re.MULTILINE)
SHOWN = re.compile(r"^[$#] .*\n(?:> .*\n)*", re.MULTILINE)
STEPS = re.compile(r"^log: .*(CHECK VERSION|CFlash_Erase\] =|offset :|CUTIL_KillProcAll).*\n",
                   re.MULTILINE)

PREPARE = r"""
set -euo pipefail
top=$1 work=$PWD
exec 3>&1 >&2
. "$top/board/firmware.sh"
install_program root
make_release old
make_flash flash old.{kernel,app,etc}
options=()
eval "$2"
printf '%s\0' --timeout 600 --install root "${options[@]}" >&3
"""


def preparation(file, head):
    """The commands before the first boot."""
    for number, line in enumerate(head.splitlines(), 1):
        assert re.match("[+#] ", line), f"{file}:{number}: expected '+ ', '# ' or 'boot loader:'"
    return "\n".join(re.findall(r"^\+ (.*)", head, re.MULTILINE))


def job_of(boot):
    """A shell script that runs the commands of a boot and shows each before it."""
    script = ""
    for shown in SHOWN.findall(boot):
        commands = re.sub("^(# .*\n|[$>] )", "", shown, flags=re.MULTILINE)
        script += f"cat <<\"##\"\n{shown}##\n{commands}"
    return script + "exit 0\n"


def in_order(boot):
    """The lines of a boot, the log last and without the details of each step."""
    lines = STEPS.sub("", boot).splitlines(keepends=True)
    return "".join(sorted(lines, key=lambda line: line.startswith("log: ")))


def run_board(top, head, boots):
    """Returns the exit status, what the board printed, and the messages of the emulator."""
    prepared = subprocess.run(["bash", "-c", PREPARE, "bash", top, head], check=True,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True)
    options = prepared.stdout.split("\0")[:-1]
    for number, boot in enumerate(boots, 1):
        job = Path(f"job{number}")
        job.write_text(job_of(boot))
        options += ["--job", job]
    ended = subprocess.run([top / "board/run", *options, "flash"], stdin=subprocess.DEVNULL,
                           capture_output=True, encoding="utf-8", errors="backslashreplace")
    return ended.returncode, ended.stdout, ended.stderr


def differences(name, expected, found):
    pairs = itertools.zip_longest(expected, found, fillvalue="")
    for number, (ours, theirs) in enumerate(pairs, 1):
        yield from difflib.unified_diff(ours.splitlines(), theirs.splitlines(), lineterm="",
                                        fromfile=f"{name}, boot {number}", tofile="the board")


@pytest.mark.board
@pytest.mark.timeout(2400)
@pytest.mark.parametrize("file", SESSIONS, ids=lambda file: file.stem)
def test_session(file, top, tmp_path, monkeypatch, request):
    monkeypatch.chdir(tmp_path)
    head, *boots = BOOT.split(file.read_text())
    status, output, errors = run_board(top, preparation(file, head), boots)
    found = [in_order(boot) for boot in BOOT.split(output) if boot]
    if request.config.getoption("--update"):
        file.write_text(head + "".join(found))
    else:
        different = "\n".join(differences(file.name, boots, found))
        if different or status != 0:
            pytest.fail(f"{different}\n{errors}the board ended with status {status}", pytrace=False)
