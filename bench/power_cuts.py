#!/usr/bin/python3
"""power_cuts.py [--card KIND] [--boards N]: records every write of one safe-upgrade to flash and card, from its call
to the second start after it, on the emulated board. Then it takes the states that power cuts leave: after each
write, and with only its first byte, its first half or all but its last byte written. From each state the
scripts run on a board of files until nothing is left to do. With --boards, N of the states, half of them from the
writes to the card and half from those to flash, boot on the emulated board instead."""

import argparse
import hashlib
import os
import shutil
import struct
import subprocess
import sys
from concurrent.futures import ProcessPoolExecutor
from pathlib import Path

TOP = Path(__file__).resolve().parent.parent
sys.path[:0] = [str(TOP / "board"), str(Path(__file__).parent)]
import emulated_board  # noqa: E402
import file_board  # noqa: E402
import jffs2  # noqa: E402
from emulated_board import LOOK, NEXT  # noqa: E402
from file_board import WORLD, Board  # noqa: E402

CARDS = {
    "vfat-512": "mkfs.vfat -F 16 -s 1 --offset 2048 card 31744",
    "vfat-4k": "mkfs.vfat -s 8 --offset 2048 card 31744",
    "vfat-32k": "mkfs.vfat -s 64 --offset 2048 card 31744",
    "ext4": "mkfs.ext4 -q -E offset=1048576 card 31M",
    "ext4-no-journal": "mkfs.ext4 -q -O ^has_journal -E offset=1048576 card 31M",
}
PARTITION = 1 << 20  # where the card's begins
BLOCK = 1 << 16  # of the flash
STORES = "upgrade-store", "upgrade-store.new"  # the second one while it is made
# A small firmware, so that there are few writes, and a second release of it.
MAKE = """
for release in old new; do
    make_app_image "data $release" 16000 data
    mkimage -A arm -O linux -T kernel -C none -n $release -d data $release.kernel
    make_app_image $release 16000 $release.app
    make_etc_image $release $release.etc
done
truncate -s 64K new.etc # a short image; the rest of the partition stays blank
make_package new 1 package
make_flash flash old.kernel old.app old.etc
truncate -s 32M card
echo 'start=2048, type=c' | sfdisk -q card
{mkfs}
sed s/store_size=.*/store_size=2/ {top}/integration/upgrade-store.conf >conf
"""
OPTIONS = "--recovery", "--put", "conf:/sbin/upgrade-store.conf", "--modules", "ext4"


def record(work, card):
    shutil.rmtree(work, ignore_errors=True)
    work.mkdir(parents=True)
    emulated_board.make(work, MAKE.format(top=TOP, mkfs=CARDS[card]))
    emulated_board.run(work, *OPTIONS, jobs=["cp -r /mine/. /etc/ && sync\n"])
    for name in "flash", "card":
        shutil.copy(work / name, work / f"{name}.before")
    status, output = emulated_board.run(work, *OPTIONS, "--record", "log", jobs=["safe-upgrade /tmp/flash3\n", LOOK, LOOK])
    if status or "lost:\n" not in output or "outcome=installed" not in output:
        sys.exit(f"the upgrade failed:\n{output}")
    if not files_on((work / "card").read_bytes(), card, work)[0]:
        sys.exit("the store on the card cannot be read here")
    (work / "output").write_text(output)


def entries(path):
    """The writes in a log: (offset, data)."""
    log = path.read_bytes()
    if not log:
        return
    _, _, count, size = struct.unpack_from("<QQQI", log)
    at = size
    for _ in range(count):
        sector, number, flags, _ = struct.unpack_from("<4Q", log, at)
        at += size
        if number and not flags & 4:  # neither a flush nor a discard
            yield sector * size, log[at:at + number * size]
            at += number * size


def writes(work):
    """All writes of all boots in their order: (device, offset, data)."""
    for boot in range(1, len(list((work / "log").glob("*.order"))) + 1):
        logs = {name: list(entries(work / f"log/{boot}.{name}")) for name in ("card", "flash")}
        order = [line.split() for line in (work / f"log/{boot}.order").read_text().splitlines()]
        spoken = {}  # the emulator's name of a device
        for name, log in logs.items():
            for device in {words[2] for words in order}:
                places = sorted(int(words[6]) // 512 * 512 for words in order if words[2] == device)
                if places == sorted(offset for offset, _ in log):  # some erases overtake others
                    spoken[device] = name
        if sum(map(len, logs.values())) != len(order):
            sys.exit(f"boot {boot}: {len(order)} writes in order, {[len(log) for log in logs.values()]} recorded")
        logs = {name: iter(log) for name, log in logs.items()}
        for words in order:
            name = spoken[words[2]]
            yield (name, *next(logs[name]))


def states(work):
    """Each state that a cut can leave: what it is, the device of the last write, its place, and card and flash."""
    images = {name: bytearray((work / f"{name}.before").read_bytes()) for name in ("card", "flash")}
    for number, (name, offset, data) in enumerate(writes(work), 1):
        image, end = images[name], offset + len(data)
        before = bytes(image[offset:end])
        for size in (1, len(data) // 2, len(data) - 1, len(data)):
            part = data[:size] + before[size:]
            if part != image[offset:end]:
                image[offset:end] = part
                yield f"{size} of {len(data)} bytes of write {number}, to the {name}", name, offset, images
        image[offset:end] = data


def files_on(card, kind, place):
    """Checks the card's file system, and takes out the store and one whose making was cut: size and bytes."""
    image = place / "card"
    image.write_bytes(card[PARTITION:])
    fsck = "fsck.vfat" if kind.startswith("vfat") else "fsck.ext4"
    subprocess.run([fsck, "-y", image], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=False)
    found = []
    for name in STORES:
        out = place / name
        out.unlink(missing_ok=True)
        if kind.startswith("vfat"):
            subprocess.run(["mcopy", "-n", "-i", image, f"::{name}", out], stderr=subprocess.DEVNULL, check=False)
        else:
            subprocess.run(["debugfs", "-R", f"dump /{name} {out}", image], stdout=subprocess.DEVNULL,
                           stderr=subprocess.DEVNULL, check=False)
        found.append((out.stat().st_size, out.read_bytes().rstrip(b"\0")) if out.exists() else None)
    return found


KERNEL_AT = 0x100000


def partitions(flash):
    """Kernel, second partition and /etc in flash."""
    rows = [line.split() for line in (TOP / ".cache/board/partitions").read_text().splitlines()[1:]]
    return [bytes(flash[int(start, 16):int(start, 16) + int(size, 16)]) for _, start, size in rows]


def try_state(state):
    """Runs the scripts from this state on a board of files. Returns what is wrong, or nothing, and whether the
    old firmware is left."""
    what, stores, found, old, new, defaults = state
    board = Board(TOP / "integration", "dash", old, new)
    (WORLD / "board").write_text("MAC=02:51:56:01:02:03\nSERIAL_NO=EM00000001\nPRODUCT_CODE=QV-EMULATED\n")
    board.tree("new/etc", defaults)
    for n, data in enumerate(found):
        (WORLD / f"mtd/{n + 1}").write_bytes(data.ljust(len(old[n]), b"\377"))
    board.tree("etc", {name: text.decode("latin-1") for name, text in jffs2.files(found[2]).items()})
    (WORLD / "etc").mkdir(exist_ok=True)  # jffs2 mounts what is blank
    (WORLD / "proc-mtd").write_text('mtd3: 00180000 00010000 "etc"\n')
    for name, file in zip(STORES, stores):
        if file:
            (file_board.CARD / name).write_bytes(file[1].ljust(file[0], b"\0"))
    fault = board.fault()
    return what, fault and f"{fault}\n{board.calls.read_text()}", board.is_old


def different_states(work, kind):
    """The states that differ for the scripts."""
    flash = (work / "flash.before").read_bytes()
    old = partitions(flash)
    new = [(work / f"new.{name}").read_bytes() for name in ("kernel", "app", "etc")]
    defaults = {name: text.decode() for name, text in jffs2.files(new[2]).items()}
    blocks = [hashlib.sha256(flash[at:at + BLOCK]).digest() for at in range(0, len(flash), BLOCK)]
    seen, count, on_card = set(), 0, [None, None]
    for what, device, offset, images in states(work):
        count += 1
        if device == "card":
            on_card = files_on(images["card"], kind, work)
        elif offset >= KERNEL_AT:  # else the boot loader's count of failed starts
            at = offset // BLOCK
            blocks[at] = hashlib.sha256(images["flash"][at * BLOCK:(at + 1) * BLOCK]).digest()
        key = hashlib.sha256(b"".join(blocks) + repr(on_card).encode()).digest()
        if key not in seen:
            seen.add(key)
            found = [data.rstrip(b"\377") for data in partitions(images["flash"])]
            yield what, on_card, found, old, new, defaults
    print(f"{count} states after a cut, {len(seen)} different for the scripts", flush=True)


def replay(work, kind):
    """Tries all states, two at a time."""
    ends = []
    with ProcessPoolExecutor(2, initializer=file_board.own_namespace) as pool:
        waiting = []
        for state in different_states(work, kind):
            waiting.append(pool.submit(try_state, state))
            while len(waiting) > 8:
                note(waiting.pop(0), ends, 50)
        for job in waiting:
            note(job, ends, 50)
    return count_faults(kind, "states", ends)


def count_faults(kind, what, ends):
    failed = ends.count("fault")
    print(f"{kind}: {len(ends) - failed} of {len(ends)} {what} end whole")
    return failed


def note(job, ends, step):
    """Adds how the state ended. The old firmware is wrong after a state that ended with the new one. Of the states
    that end whole, each step-th is printed."""
    what, fault, is_old = job.result()
    if is_old and "new" in ends:
        fault = fault or "the board keeps the old firmware, although an upgrade was promised"
    ends.append("fault" if fault else "old" if is_old else "new")
    if fault:
        print(f"{what}: {fault}", flush=True)
    elif (len(ends) - 1) % step == 0:
        print(f"{what}: whole, {ends[-1]} firmware", flush=True)


def boot_states(work, kind, count):
    """Boots some of the states on the emulated board."""
    sizes = {"card": 0, "flash": 0}
    for _, device, *_ in states(work):
        sizes[device] += 1
    wanted = {device: {size * n // (count // 2) for n in range(count // 2)} for device, size in sizes.items()}
    place, number = {"card": 0, "flash": 0}, 0
    with ProcessPoolExecutor(2) as pool:
        jobs = []
        for what, device, _, images in states(work):
            if place[device] in wanted[device]:
                number += 1
                folder = work / f"board{number}"
                shutil.rmtree(folder, ignore_errors=True)
                folder.mkdir()
                for name in "card", "flash":
                    (folder / name).write_bytes(images[name])
                for name in "root", "package", "conf":
                    os.symlink(work / name, folder / name)
                jobs.append(pool.submit(boot_state, folder, what))
            place[device] += 1
        ends = []
        for job in jobs:
            note(job, ends, 1)
    return count_faults(kind, "boards", ends)


def boot_state(folder, what):
    status, output = emulated_board.run(folder, *OPTIONS, jobs=[LOOK, NEXT])
    shutil.rmtree(folder)
    return what, emulated_board.fault(status, output), "found: old lost:" in output


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--card", choices=CARDS, default="vfat-4k")
    parser.add_argument("--boards", type=int, default=0)
    options = parser.parse_args()
    if os.environ.get("is_isolated") != "yes":
        isolate = f'. {TOP}/scripts/isolate.sh; export is_isolated=yes; isolated "$@"'
        os.execvp("bash", ["bash", "-c", isolate, "bash", sys.executable, "-B", *sys.argv])
    work = TOP / "build/power-cuts" / options.card
    if not (work / "output").exists():
        record(work, options.card)
    if options.boards:
        sys.exit(bool(boot_states(work, options.card, options.boards)))
    sys.exit(bool(replay(work, options.card)))


main()
