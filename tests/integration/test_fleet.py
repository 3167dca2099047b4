"""Which files a board of a fleet refuses, and its reports to the server. Flash must not change."""

import os
import re
import subprocess

import emulated_board as board
import pytest

pytestmark = [pytest.mark.board, pytest.mark.timeout(2400)]

# Kernel's name, marker, signer and expected reason. The board runs 1.5 and trusts 'ours'.
CASES = {
    "unsigned": ("2.0.0", "3510", None, "not signed"),
    "key": ("2.0.0", "3510", "theirs", "Authentication of all signatures failed"),
    "description": ("2.0.0", "3510", "ours", "Signature verification failed"),
    "package": ("2.0.0", "3510", "ours", "HASH mismatch"),
    "hardware": ("2.0.0", "3520", "ours", "SW not compatible with hardware"),
    "running": ("1.5", "3510", "ours", "No reinstalling allowed"),
    "older": ("1.4", "3510", "ours", "No downgrading allowed"),
    "half": ("2.0.0", "3510", "ours", "Channel get operation aborted"),
    "down": ("2.0.0", "3510", "ours", None),
    "full": ("2.0.0", "3510", "ours", "safe-upgrade"),
}
SERVE = r"""#!/bin/sh
request=$(sed -u '/^\r*$/q')
printf '%s\n' "$request" | sed -n 's/^GET //p' >>"{work}/asked"
case $request in *"GET /down"*) exit ;; *"GET /half/f"*) limit=60000 ;; *) limit=1000000 ;; esac
printf '%s\r\n\r\n' "$request" | busybox httpd -i -h "{work}/www" | head -c $limit
"""
JOB = r"""
ip addr add 10.0.2.15/24 dev eth0 && ip link set eth0 up
for case in {cases}; do
    [ $case != full ] || {{ mount /dev/mmcblk0p1 /mnt/sd && head -c 100M /dev/zero >/mnt/sd/fill; }} 2>/dev/null
    url=http://10.0.2.100/$case
    {{ cat /conf
       echo "question=$url/latest update_file=$url/firmware.swu certificate=/crt board=1 spread=0 memo=/tmp/$case"
    }} >/sbin/update-agent.conf
    echo "$case:" $(update-agent once || echo "status $?")
done
"""


def change(file, old, new):
    data = file.read_bytes()
    assert old in data
    file.write_bytes(data.replace(old, new))


@pytest.fixture(scope="module")
def fleet(tmp_path_factory):
    """Runs a board that asks for each file. Returns its output and the server's log."""
    work = tmp_path_factory.mktemp("fleet")
    board.make(work, board.PARTS + "make_kernel_image 1.5 old.kernel; make_flash flash old.kernel old.app old.etc\n"
               "make_app_image new 100000 new.app; truncate -s 64K new.etc")  # small, because they are sent often
    tools = board.TOP / "integration/swupdate"
    environment = dict(os.environ, PATH=f"{os.environ['PATH']}:{board.TOP}/build/host:{tools}")
    for key in "ours", "theirs":
        subprocess.run(["make-key", key, key], cwd=work, env=environment, check=True)
    for name, (kernel, marker, signer, _) in CASES.items():
        board.shell(f"mkimage -A arm -O linux -T kernel -C none -n {kernel} -d new.app new.kernel\n"
                    f"make_package new 1 package\nprintf {marker} | dd of=package conv=notrunc", work)
        (work / "www" / name).mkdir(parents=True)
        sign = ["--sign", f"{signer}.key", f"{signer}.crt"] if signer else []
        subprocess.run(["make-swu", *sign, "package", f"www/{name}"], cwd=work, env=environment, check=True)
    change(work / "www/description/firmware.swu", b'"3510.1"', b'"5310.1"')  # keeps the archive's checksum
    change(work / "www/package/firmware.swu", b"\nnew 9999\n", b"\nnew 9998\n")
    change(work / "www/running/latest", b" 1.5", b" 2.0")  # announced as another
    (work / "serve").write_text(SERVE.format(work=work))
    (work / "serve").chmod(0o755)
    before = (work / "flash").read_bytes()
    status, output = board.run(
        work, "--web", work / "serve", "--install", board.TOP / ".cache/engine/root", "--timeout", "600", "--put",
        f"{tools}/update-agent:/sbin/update-agent", "--put", f"{tools}/board-state.sh:/sbin/board-state.sh",
        "--put", f"{tools}/update-agent.conf:/conf", "--put", "ours.crt:/crt", jobs=[JOB.format(cases=" ".join(CASES))])
    assert status == 0, output
    assert (work / "flash").read_bytes()[:14 << 20] == before[:14 << 20], output  # /etc was mounted
    assert (work / "asked").exists(), output
    return output, (work / "asked").read_text()


@pytest.mark.parametrize("name", CASES)
def test_refused(fleet, name):
    output, asked = fleet
    reason = CASES[name][3]
    assert re.search(f"^{name}:.*{reason or ''}.*status 1", output, re.M), output
    if reason:
        sent = reason.replace(" ", "[+]")
        assert re.search(rf"^/{name}/latest\?.*running=1.5&outcome=refused&reason={sent}", asked, re.M), asked
