"""safe-upgrade and resume-upgrade on a board of files: each case is a fault, and the board's state afterwards,
without anyone's help."""

import os
import random
import shutil
import struct
import subprocess
from pathlib import Path

import pytest
from file_board import CARD, PARTITION, SETTINGS, WORLD, Board, own_namespace, run, unmount

STORE = CARD / "upgrade-store"
PARTS = "none", "first", "half", "last"  # of a write: nothing, one byte, half of it, all but one byte
WHOLE = ("installed", "new", [])


@pytest.fixture(scope="module", autouse=True)
def namespace():
    own_namespace()
    yield
    unmount("/etc")  # the next tests need this machine's


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


def two_headers(_):
    damage(65536 + 30)
    damage(131072 + 30)


def given_up(board):
    cut_in_etc(board)
    two_headers(board)
    board.start()
    assert board.result()["settings"] == "store" and not board.lost()


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
    ends = []
    for step in range(1, writes + 1):
        board = make()
        board.power((step, part))
        board.upgrade()
        board.start()
        ends_whole(board)
        ends.append(board.is_old)
    assert ends == sorted(ends, reverse=True)


# 200 pairs and 50 triples with ALL_CUTS=yes.
@pytest.mark.parametrize("cuts, tries", [(2, 200), (3, 50)] if os.environ.get("ALL_CUTS") else [(2, 20), (3, 10)])
def test_more_cuts(make, cuts, tries):
    chosen = random.Random(cuts)
    for _ in range(tries):
        board = make()
        # A whole upgrade writes 40 times, and one that is resumed 29 times.
        board.power(*((chosen.randint(1, 29 if n else 40), chosen.choice(PARTS)) for n in range(cuts)))
        board.upgrade()
        ends_whole(board)


def test_cuts_in_the_clean_up_lose_no_later_change(make):
    for step in range(4, 7):
        board = make()
        board.call("safe-upgrade", board.package)
        board.power((step, "half"))
        board.start(boots=2)
        assert board.result()["outcome"] == "installed"
        (WORLD / "slot").rename(WORLD / "away")
        run("mount", "--move", CARD, WORLD / "away")
        board.start()
        change("later")
        run("mount", "--move", WORLD / "away", CARD)
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


def test_file_that_was_being_written(board):
    """The power failed before it got its name."""
    board.call("safe-upgrade", board.package)
    (WORLD / "etc/temp.conf").touch()
    board.start()
    assert board.state() == WHOLE and board.result()["tries"] == "2"


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


def test_card_loses_a_write(board):
    """It then still has the settings that were saved before."""
    board.call("safe-upgrade", "--at-boot", board.package)
    change("later")
    board.hook("upgrade-store@524288", "set -- $1 $2 /dev/null")
    assert "the card cannot be written" in board.start()
    board.start()
    assert hostname() == "later" and board.result()["outcome"] == "installed"


def test_card_loses_the_door(board):
    """Start-up would not look further, and the store would refuse all packages."""
    board.hook("upgrade-store@0", "set -- $1 $2 /dev/null")
    assert "refused" in board.call("safe-upgrade", board.package)[1]


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


def test_copies_cannot_be_read_once(board):
    cut_in_etc(board)
    dd = (WORLD / "bin/dd").read_text()
    broken_dd(board, 4 * 65536 + 512, 8 * 65536 + 512)
    board.start(boots=1)
    board.program("dd", dd)
    board.start()
    assert board.state() == WHOLE


def test_settings_cannot_be_compared(board):
    cut_in_etc(board)
    board.program("tar", "#!/bin/sh\nexit 2\n")
    assert "cannot be compared" in board.start()
    assert board.result()["outcome"] == "under-way"
    (WORLD / "bin/tar").unlink()
    board.start()
    assert board.state() == WHOLE


def broken_dd(board, *skips):
    cases = "|".join(f'"bs=1 skip={skip} "*' for skip in skips)
    dd = (WORLD / "bin/dd").read_text()
    board.program("dd", dd.replace("\n", f'\ncase "$*" in {cases}) exit 1 ;; esac\n', 1))


def test_package_in_memory_cannot_be_read(board):
    board.hook("1@20000", "kill -9 0")
    board.call("safe-upgrade", board.package)
    broken_dd(board, 20, 40020, 80020)
    assert "cannot be compared" in board.start()


# The same damage twice.


@pytest.mark.parametrize("worn, name", [(1, "block 6 of /mnt/mtd/1"), (2, "block 6 of /mnt/mtd/2"),
                                        (3, "block 6 of /mnt/mtd/3")])
def test_worn_partition(board, worn, name):
    (WORLD / "worn").write_text(str(worn))
    assert f"twice: {name} does not hold the package" in board.upgrade()
    assert board.result()["tries"] == "2" and not board.lost()


@pytest.mark.parametrize("times, outcome, tries", [(1, "installed", "2"), (9, "given-up", "2")])
def test_weak_cell_after_a_restart(board, times, outcome, tries):
    board.program("reboot", f"""#!/bin/sh
echo >>/mnt/weak && [ "$(wc -l </mnt/weak)" -gt {times} ] || printf x | /bin/dd of=/mnt/mtd/2 bs=1 seek=9000 conv=notrunc
kill -9 0
""")
    board.upgrade()
    assert "block 2 of /mnt/mtd/2 does not hold the package" in board.calls.read_text()
    assert (board.result()["outcome"], board.result()["tries"], board.lost()) == (outcome, tries, [])


@pytest.mark.parametrize("before", [lambda _: None, given_up], ids=["", "given up"])
@pytest.mark.parametrize("worn", [False, True])
def test_settings_change_between_the_comparisons(board, worn, before):
    """The board could not restart, and services run."""
    before(board)
    reboot = (WORLD / "bin/reboot").read_text()
    for name in "reboot", "sleep":
        board.program(name, "#!/bin/sh\n")
    board.upgrade()
    change("later")
    board.program("reboot", reboot)
    if worn:
        (WORLD / "mtd/1").write_bytes(bytes(PARTITION))
    board.start()
    assert (board.result()["outcome"], board.firmware(), hostname()) == ("installed", "new", "later")


def test_package_is_damaged_between_the_comparisons(board):
    board.call("safe-upgrade", board.package)
    board.start(boots=1)
    damage((16 << 16) + 90000)
    assert "was not compared once more" in board.start()
    assert board.state() == WHOLE


def test_nothing_is_compared_after_the_last_state(board):
    """The user's own changes, of firmware and settings, are no damage."""
    board.upgrade()
    change("later")
    (WORLD / "mtd/2").write_bytes(b"another firmware".ljust(PARTITION))
    board.package.write_bytes(board.package.read_bytes().replace(b"new 1", b"next1"))
    board.hook("upgrade-store@1048576", "kill -9 0")
    assert board.call("safe-upgrade", board.package)[0] == -9
    assert "nothing is left to do; the last package: installed" in board.start()
    assert hostname() == "later" and (WORLD / "mtd/2").read_bytes().startswith(b"another")


def test_refused_by_upgrade(board):
    (WORLD / "refuses").touch()
    assert "refused: upgrade refuses the package: CFlash_TEVWrite : chech Image" in board.upgrade()
    assert board.state() == ("refused", "old", []) and board.result()["tries"] == "1"
    (WORLD / "refuses").unlink()
    board.upgrade()
    assert board.state() == WHOLE


def test_refused_after_a_cut(board):
    """Flash is not unchanged then."""
    board.hook("1@20000", "kill -9 0")
    board.call("safe-upgrade", board.package)
    (WORLD / "refuses").touch()
    assert "twice: upgrade refuses" in board.start()
    assert board.state()[:2] == ("given-up", "mixed") and board.result()["tries"] == "3"


# In the new firmware, this file gives the lookup another line than the one that upgrade writes.
HIDDEN = {"tcp_server.conf": ("server_port_max=10\nserver_port=1\n", "server_port of tcp_server.conf"),
          "lighttpd/lighttpd.conf": ("server.port\t= 80\n", "server.port of lighttpd/lighttpd.conf")}


@pytest.mark.parametrize("file", HIDDEN)
def test_hidden_setting(make, file):
    text, name = HIDDEN[file]
    board = make()
    (WORLD / "new/etc" / file).write_text(text)
    assert f"would read {name}" in board.call("safe-upgrade", board.package)[1]
    assert board.state() == ("none", "old", [])
    # Without a tool that reads the image, it is found after two starts.
    board = make()
    board.program("jffs2reader", "#!/bin/sh\nexit 1\n")
    board.tree("hidden", {file: text + SETTINGS[file]})
    assert f"twice: {name}" in board.upgrade()
    assert board.result()["settings"] == "store" and not board.lost()
    # Another firmware has all settings, but its kernel is worn: then they are not only in the store.
    shutil.rmtree(WORLD / "hidden")
    (WORLD / "worn").write_text("1")
    board.tree("new/etc", SETTINGS)
    board.upgrade()
    assert (board.result()["outcome"], board.result()["settings"]) == ("given-up", "etc")


# The upgrade cannot go on.


def away(board):
    run("umount", CARD)
    (WORLD / "slot").rmdir()


def read_only(board):
    run("mount", "-o", "remount,ro", CARD)


def no_room(board):
    board.program("get_boot_param", "#!/bin/sh\nmount -t tmpfs -o size=132K tmpfs /mnt/tmp; cp /mnt/board $1\n")


FAULTS = {  # what is wrong at the next boot, what the console says, the outcome, whether the settings are there
    "card away": (away, "no card", "none", False),
    "card read-only": (read_only, "cannot be written", "under-way", True),
    "other board": (lambda _: (WORLD / "board").write_text("MAC=2\n"), "of another board", "none", False),
    "no identity": (lambda _: (WORLD / "board").write_text(""), "identity", "none", False),
    "both headers": (two_headers, "both headers in the store are damaged", "given-up", True),
    "package": (lambda _: damage((16 << 16) + 90000), "package on the card is damaged", "given-up", True),
    "no room": (no_room, "no room for the package and the settings", "under-way", True),
    "package unreadable": (lambda board: broken_dd(board, 16 << 16), "package on the card", "given-up", True),
    "no checksums": (lambda board: board.program("cksum", "#!/bin/sh\n"), "identity", "none", False),
    "no mounts": (lambda _: (WORLD / "no-mount").touch(), "cannot", "under-way", False),
    "no upgrade": (lambda _: (WORLD / "bin/upgrade").write_text("#!/bin/false\n"), "did not run", "under-way", True),
}


@pytest.mark.parametrize("fault", FAULTS)
def test_upgrade_cannot_go_on(board, fault):
    damage_it, text, outcome, has_settings = FAULTS[fault]
    cut_in_etc(board)
    damage_it(board)
    assert text in board.start()
    assert board.result()["outcome"] == outcome
    assert has_settings == (not board.lost())
    if has_settings:
        assert "/etc is in memory" in board.calls.read_text()


def test_upgrade_again_after_damaged_headers(board):
    cut_in_etc(board)
    two_headers(board)
    read_only(board)
    board.start()
    run("mount", "-o", "remount,rw", CARD)
    package = board.package.read_bytes()
    board.package.write_bytes(package.replace(b"new 1", b"next1"))
    board.hook("upgrade-store@1048576", "set -- $1 $2 /dev/null")  # the card loses the package
    assert "refused" in board.call("safe-upgrade", board.package)[1]
    board.package.write_bytes(package)
    board.upgrade()
    assert board.state() == WHOLE


def test_etc_is_mounted_over_the_saved_settings(board):
    given_up(board)
    run("mount", "--bind", WORLD / "etc", "/etc")
    assert "only settings" in board.call("safe-upgrade", "--at-boot", board.package)[1]
    board.start()
    assert not board.lost() and board.call("safe-upgrade", "--at-boot", board.package)[0] == 0


def test_refused_with_the_only_settings_on_the_card(board):
    given_up(board)
    (WORLD / "refuses").touch()
    board.upgrade()
    assert board.result()["outcome"] == "given-up" and not board.lost()


def test_settings_on_the_card_are_another_boards(board):
    cut_in_etc(board)
    two_headers(board)
    (WORLD / "board").write_text("MAC=2\n")
    board.start()
    assert "in memory" not in board.calls.read_text()


def test_settings_are_in_flash_again(board):
    given_up(board)
    board.call("bash", "-c", "upgrade /mnt/package -v; :")
    board.start()
    assert (board.firmware(), board.lost(), board.result()["settings"]) == ("new", [], "etc")
    assert board.call("safe-upgrade", "--at-boot", board.package)[0] == 0


def test_erased_etc_has_lost_all_settings(board):
    for name in "system.conf", "serverinfo.conf", "cam_model.conf":
        (WORLD / "etc" / name).unlink()
    board.hook("3@20000", "kill -9 0")
    board.call("safe-upgrade", board.package)
    two_headers(board)
    board.start()
    assert Path("/etc/network/network.conf").exists()


def test_settings_cannot_be_read_again(board):
    board.call("safe-upgrade", "--at-boot", board.package)
    board.program("tar", '#!/bin/sh\n[ "$1" != -cf ] && exec /bin/tar "$@"\n')
    board.start()
    assert "as they were saved before" in board.calls.read_text()
    assert board.state() == WHOLE


@pytest.mark.parametrize("header", [1, 2])
def test_one_header_is_damaged(board, header):
    cut_in_etc(board)
    damage(header * 65536 + 30)
    board.start()
    assert board.state() == WHOLE


def test_settings_cannot_be_unpacked(board):
    """The kernel is not whole, so the settings are not compared first."""
    board.hook("1@20000", "kill -9 0")
    board.call("safe-upgrade", board.package)
    assert board.firmware() == "mixed"
    board.program("tar", "#!/bin/sh\nexit 2\n")
    assert "cannot be unpacked" in board.start()
    (WORLD / "bin/tar").unlink()
    board.start()
    assert board.state() == WHOLE


def test_etc_stays_busy(board):
    cut_in_etc(board)
    board.program("umount", '#!/bin/sh\n[ "$1" != /etc ] && exec /bin/umount "$@"\n')
    read_only(board)
    assert "so upgrade is not started" in board.start()


def test_card_comes_back(board):
    cut_in_etc(board)
    (WORLD / "slot").rename(WORLD / "away")
    run("mount", "--move", CARD, WORLD / "away")
    board.start()
    run("mount", "--move", WORLD / "away", CARD)
    board.start()
    assert board.state() == WHOLE


def test_resume_comes_too_late(board):
    board.hook("upgrade-store@524288", "resume-upgrade")
    assert board.call("safe-upgrade", "--at-boot", board.package)[0] == 0
    assert "mounted already" in board.call("resume-upgrade")[1]
    assert "under way" in board.call("safe-upgrade", board.package)[1]
    board.start()
    assert board.state() == WHOLE


# Calls that are refused: nothing may change.


def fill(place, size, left=0):
    run("mount", "-t", "tmpfs", "-o", f"size={size}", "tmpfs", place)
    (place / "full").write_bytes(bytes(size - left))


def short(board):
    board.package.write_bytes(board.package.read_bytes()[:50000])


def with_etc(board, image):
    data = board.package.read_bytes()
    board.package.write_bytes(data[:16] + struct.pack("<I", len(image)) + data[20:80020] + image)


REFUSED = {
    "no file": (lambda board: board.package.unlink(), "there is no file"),
    "half a package": (short, "not a whole package"),
    "partition too small": (lambda board: os.truncate(WORLD / "mtd/2", 30000), "mtd/2 has no room"),
    "few free blocks": (lambda board: with_etc(board, b"x" * 45100), "leaves 1 blocks free, and jffs2 needs 3"),
    "no card": (away, "no card"),
    "card read-only": (read_only, "read-only"),
    "card full": (lambda _: fill(CARD, 1 << 20, 65536), "cannot be made"),
    "no room in /tmp": (lambda _: fill(WORLD / "tmp", 1 << 16), "identity"),
    "no room for the copies": (lambda _: fill(WORLD / "tmp", 1 << 18, 90000), "room in /mnt/tmp for the settings"),
    "no identity": (lambda _: (WORLD / "board").write_text(""), "identity"),
    "no SHA-256": (lambda board: board.program("sha256sum", "#!/bin/sh\n"), "identity"),
    "no checksums": (lambda board: board.program("cksum", "#!/bin/sh\n"), "identity"),
    "no upgrade": (lambda _: (WORLD / "bin/upgrade").unlink(), "upgrade is missing"),
}


@pytest.mark.parametrize("case", REFUSED)
def test_refused(board, case):
    spoil, text = REFUSED[case]
    spoil(board)
    status, output = board.call("safe-upgrade", board.package)
    assert status == 1 and "refused, nothing changed" in output and text in output
    assert board.result()["outcome"] == "none" and not board.lost() and not list(CARD.glob("upgrade*"))
    assert board.firmware() == "old" or "mtd/2" in text


def test_blocks_with_only_a_mark_are_free(board):
    mark = bytes.fromhex("851903200c000000b1b01ee4")
    with_etc(board, b"x" * 40960 + mark.ljust(4096, b"\377") * 3)
    assert board.call("safe-upgrade", "--at-boot", board.package)[0] == 0


def test_a_file_of_the_store_is_no_package(board):
    board.call("safe-upgrade", "--at-boot", board.package)
    board.start()
    new = CARD / "upgrade-store.new"
    new.write_bytes(board.package.read_bytes())
    for file in STORE, new:
        data = file.read_bytes()
        assert board.call("safe-upgrade", "--at-boot", file)[0] == 1 and file.read_bytes() == data


def test_signal_while_a_header_is_written(make, shell):
    """It ends the script's pipelines, but not the write. The header decides then."""
    board = make(shell)
    board.hook("upgrade-store@65536", "read -r _ _ _ _ group _ </proc/self/stat; trap '' TERM; kill -TERM -$group; sleep 0.2")
    board.call("safe-upgrade", "--at-boot", board.package)
    board.start()
    assert board.state() == WHOLE
    assert board.call("safe-upgrade", "--at-boot", board.package)[0] == 0


def test_output_is_closed(board):
    board.call("bash", "-c", "safe-upgrade /mnt/package | head -n 2; sleep 1")
    assert board.firmware() == "new"


def test_abandoned_package_may_come_again(board):
    """An update engine skips the package of the last result."""
    board.hook("upgrade-store@131072", "printf '#!/bin/sh\nexit 2\n' >/mnt/bin/tar && chmod +x /mnt/bin/tar")
    assert "refused, nothing changed" in board.call("safe-upgrade", "--at-boot", board.package)[1]
    assert (board.result()["outcome"], board.result()["package"]) == ("refused", "")


# The card.


def test_card_needs_a_check(board):
    """The power failed while the store was made, and the card cannot be mounted."""
    run("umount", CARD)
    (WORLD / "bad-card").touch()
    board.upgrade()
    assert board.calls.read_text().count("checking the card") == 2  # to mount it, and before the store is made
    assert board.call("safe-upgrade", "--result")[1].startswith("outcome=installed")


def test_card_is_not_mounted(board):
    """resume-upgrade mounts it read-only at first."""
    run("umount", CARD)
    board.upgrade("--at-boot")
    assert board.state() == WHOLE


def test_results_while_another_call_begins(board):
    """Each call mounts the card and unmounts it."""
    run("umount", CARD)
    loops = """while :; do safe-upgrade --result; done &
        for n in 1 2 3 4 5 6 7 8 9; do safe-upgrade --at-boot /mnt/package; done; kill $!"""
    output = board.call("dash", "-c", loops)[1]
    assert output.count("refused") == output.count("under way") == 8, output


def test_card_of_an_upgraded_board(board):
    board.upgrade()
    (WORLD / "board").write_text("MAC=2\n")
    result = board.result()
    assert (result["outcome"], "another board" in result["reason"]) == ("none", True)
    (WORLD / "board").write_text("")
    assert board.result() == {"outcome": "none"}
    (WORLD / "board").write_text("MAC=2\n")
    assert board.call("safe-upgrade", "--at-boot", board.package)[0] == 0


def test_another_call_is_running(board):
    with (WORLD / "tmp/safe-upgrade.lock").open("w") as lock:
        subprocess.run(["flock", str(lock.fileno())], pass_fds=[lock.fileno()], check=True)
        # The caller's variables change nothing: the card stays mounted.
        assert "another call is running" in board.call("env", "mounted_here=yes", "safe-upgrade", board.package)[1]
        assert CARD.is_mount()


def test_etc_is_not_mounted(board):
    run("umount", "/etc")
    board.upgrade()
    assert board.state() == WHOLE and "reboot" in board.calls.read_text()


def test_second_checksum(board):
    image, flash = WORLD / "image", WORLD / "flash"
    image.write_bytes(board.new[1])
    board.call("second-checksum", "add", image)
    whole = image.read_bytes()
    for size, status in (len(whole), 0), (1, 1), (39999, 1), (len(whole) - 2, 1):
        flash.write_bytes(whole[:size] + b"\377" * 9999)
        assert board.call("second-checksum", "check", flash)[0] == status
