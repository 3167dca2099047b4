"""The emulated board's boot loader: U-Boot with the files of integration/u-boot."""

import shutil
import subprocess
import time
from pathlib import Path

import pexpect
import pytest
from emulated_board import shell

pytestmark = [pytest.mark.board, pytest.mark.timeout(1200)]
ENVIRONMENTS = 0x40000, 0x50000
U_BOOT, STARTS, KERNEL = 0x60000, 0xF0000, 0x100000
PROMPT = "=> "


@pytest.fixture(scope="session")
def new_board(tmp_path_factory):
    """A folder with the flash of a new board, and one with a kernel that hangs."""
    folder = tmp_path_factory.mktemp("new")
    shell("make_release old; make_flash flash old.kernel old.app old.etc", folder)
    (folder / "code").write_bytes(bytes.fromhex("03f020e3 fdffffea"))  # wait for an interrupt, again and again
    shell("mkimage -A arm -O linux -T kernel -C none -a 0x80008000 -e 0x80008000 -n hangs -d code hangs;"
          "make_flash hanging hangs old.app old.etc", folder)
    return folder


@pytest.fixture(scope="session")
def program(tmp_path_factory):
    """The program as it is installed on the board."""
    folder = tmp_path_factory.mktemp("program")
    shell("install_program .", folder)
    return folder


@pytest.fixture
def flash(new_board, tmp_path):
    return Path(shutil.copy(new_board / "flash", tmp_path))


def flip(file, *offsets):
    """Flips one bit at each offset."""
    with open(file, "r+b") as content:
        for offset in offsets:
            content.seek(offset)
            byte = content.read(1)[0]
            content.seek(offset)
            content.write(bytes([byte ^ 1]))


def contents(file, offset=0, size=-1):
    with open(file, "rb") as content:
        content.seek(offset)
        return content.read(size)


class Console:
    """The console of a board. The power goes at the end."""

    def __init__(self, top, *words):
        self.child = pexpect.spawn(str(top / "board/run"), list(map(str, words)), timeout=300)

    def __enter__(self):
        return self

    def __exit__(self, *error):
        self.child.terminate()
        self.child.wait()

    def expect(self, *texts):
        for text in texts:
            self.child.expect_exact(text)

    def type(self, command, answer=PROMPT):
        """Returns what the command prints until the answer."""
        self.child.sendline(command)
        self.child.expect_exact(command[-20:])
        self.child.expect_exact(answer)
        return self.child.before.decode()


def wait_at_prompt(top, flash):
    """Gives the board an environment in which U-Boot does not start a kernel by itself."""
    folder = flash.parent
    lines = "serial_no=QV00000001\n" + (top / "integration/u-boot/environment.txt").read_text()
    (folder / "lines").write_text(lines.replace("bootdelay=1", "bootdelay=-1"))
    shell("mkenvimage -r -s 0x10000 -o both lines; cat both both |"
          f"dd of='{flash}' bs=64K seek=4 conv=notrunc status=none", folder)


def test_serial_number_in_the_first_512_bytes(top, program, flash):
    wait_at_prompt(top, flash)

    def wait_until(number, copy, is_seen=True):
        """The emulator writes the file a little later than the board believes."""
        while (b"serial_no=" + number + b"\0" in contents(flash, ENVIRONMENTS[copy], 512)) != is_seen:
            time.sleep(0.1)

    with Console(top, "--install", program, flash) as console:
        console.expect(PROMPT)
        console.type("setenv serial_no QV00000042")
        assert "OK" in console.type("saveenv")
        wait_until(b"QV00000042", 1)
        wait_until(b"QV00000001", 0)  # what the board reads
        console.type("saveenv")
        wait_until(b"QV00000042", 0)
        console.type("setenv more " + 180 * "m")
        console.type('setenv bootcmd "run start_flash; echo ${more} ${more} ${more}"; setenv more')
        console.type("saveenv; saveenv")
        wait_until(b"QV00000042", 0, False)

        console.type("run start_flash", "leave with 'reboot'")
        console.expect("# ")
        assert "SERIAL_NO []" in console.type("get_boot_param /tmp/values", "# ")
        set_variable = "fw_setenv -c /usr/share/board/fw_env.config"
        console.type(f"{set_variable} bootcmd 'run start_flash; run start_recovery'", "# ")
        assert "SERIAL_NO []" in console.type("get_boot_param /tmp/values", "# ")  # still the older copy
        console.type(f"{set_variable} twice 1", "# ")
        assert "SERIAL_NO [QV00000042]" in console.type("get_boot_param /tmp/values", "# ")
        assert "denied" in console.type("echo >/dev/mtd/0", "# ")
    with Console(top, flash) as console:
        console.expect(PROMPT)
        assert console.type("printenv bootcmd").strip() == "bootcmd=run start_flash; run start_recovery"


@pytest.mark.parametrize("places, answers", [
    ([KERNEL + 12], ["Bad Header Checksum", "no valid kernel in flash, recovery kernel"]),
    ([KERNEL + 3_000_000], ["Bad Data CRC", "no valid kernel in flash, recovery kernel", "TFTP from server"]),
    (ENVIRONMENTS[:1], ["boot loader: kernel from flash"]),
    (ENVIRONMENTS, ["bad CRC, using default environment", "boot loader: kernel from flash"]),
])
def test_flipped_bit(top, flash, places, answers):
    flip(flash, *(place + 20 for place in places))
    with Console(top, flash) as console:
        console.expect(*answers, "Starting kernel")


def test_flipped_bit_in_u_boot(top, flash):
    flip(flash, U_BOOT + 0x20000)
    with Console(top, flash) as console:
        console.expect("Bad hash value", "U-Boot SPL", "Bad hash value")


def test_recovery_kernel_on_the_card(top, flash, tmp_path):
    flip(flash, KERNEL)
    shell('make_card card; cp "$board_cache/tftp/recovery.img" .; mcopy -i card@@1M recovery.img ::', tmp_path)
    with Console(top, "--sd", tmp_path / "card", flash) as console:
        console.expect("recovery kernel", " bytes read", "Image Name:   recovery", "Starting kernel")
    flip(tmp_path / "recovery.img", 3_000_000)
    shell("mcopy -o -i card@@1M recovery.img ::", tmp_path)
    with Console(top, "--sd", tmp_path / "card", flash) as console:
        console.expect("recovery kernel", " bytes read", "Bad Data CRC", "TFTP from server", "Starting kernel")


def test_power_cuts_in_the_boot_loader(top, flash):
    before = contents(flash)
    for moment in "U-Boot SPL", "Loading Environment", "Verifying Checksum", "@ 0xf0000 Written", "Starting kernel":
        board = subprocess.run([top / "board/run", "--cut", f"{moment}:0", flash, "--", "true"],
                               capture_output=True, text=True)
        assert board.stdout.endswith("board: power cut\nboard: reset\n"), moment
        after = contents(flash)
        assert after[:STARTS] + after[KERNEL:] == before[:STARTS] + before[KERNEL:], moment
    assert after[STARTS] == 0  # a start that did not reach Linux


def test_kernel_that_hangs(top, new_board, tmp_path):
    flash = shutil.copy(new_board / "hanging", tmp_path)
    with open(flash, "r+b") as content:
        content.seek(STARTS)
        content.write(b"\0\0\0\xff")
    board = subprocess.run([top / "board/run", flash, "--", "echo", "up"], capture_output=True, text=True)
    assert board.stdout.splitlines() == [
        "boot loader: kernel 'hangs' from flash", "boot loader: three failed starts, recovery kernel", "up"]
    assert contents(flash, STARTS, 4) == b"\xff\xff\xff\xff"
