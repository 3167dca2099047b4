"""fwpack on packages that are made by hand from real images. It must make the same bytes, find every
damage, lose no file and leave nothing half-written."""

import contextlib
import hashlib
import json
import os
import re
import signal
import socket
import struct
import subprocess
from pathlib import Path

import pytest

HEADERS = {1: "<4si3i", 3: "<4si4x3i40x"}
NAMES = ["kernel", "second", "etc"]
TABLE = "boot 0 0x80000\nkernel 0x80000 0x20000\n# a comment\napp 0xa0000 64K\netc 0xc0000 1M\n"
MAKE = "create -m AB -k kernel -s second -e etc"


def run(words, stdin=subprocess.DEVNULL, **options):
    """Runs fwpack. Gives its exit status and what it prints, the messages last."""
    words = words.split() if isinstance(words, str) else words
    options = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, "timeout": 300, "encoding": "latin1"} | options
    done = subprocess.run([run.fwpack, *words], **options, **{} if "input" in options else {"stdin": stdin})
    messages = done.stderr or ""
    assert all(line.startswith("fwpack: ") for line in messages.splitlines()), messages
    return done.returncode, (done.stdout or "") + messages


def expect(words, status, pattern, **options):
    """The pattern must match the whole first line."""
    found, said = run(words, **options)
    assert (found, bool(re.fullmatch(pattern, said.split("\n")[0]))) == (status, True), said


def package(layout, *names, sizes=(0, 0, 0)):
    parts = [Path(name).read_bytes() for name in names or NAMES]
    return struct.pack(HEADERS[layout], b"AB", layout, *(s or len(p) for s, p in zip(sizes, parts))) + b"".join(parts)


def flash(**parts):
    data = bytearray(b"\xff" * 0x1C0000)
    for name, start in {"boot": 0, "kernel": 0x80000, "second": 0xA0000, "etc": 0xC0000}.items():
        part = Path(parts[name]).read_bytes() if name in parts else b""
        data[start:start + len(part)] = part
    return data


def make_images():
    Path("data").write_text("\n".join(map(str, range(20000)))[:70001])
    Path("second").write_text("\n".join(f"second {i}" for i in range(9999))[:30003])
    Path("tree").mkdir()
    Path("tree/numbers").write_text("\n".join(map(str, range(50000))))
    tool = {"check": True, "stdout": subprocess.DEVNULL,
            "env": os.environ | {"SOURCE_DATE_EPOCH": "1700000000", "PATH": os.environ["PATH"] + ":/usr/sbin"}}
    mkimage = "mkimage -A arm -O linux -T kernel -C none -a 0x80008000 -e 0x80008040 -d data -n".split()
    for option in "-Cnone kernel", "-Ax86 x86", "-Cbzip2 bzip2":
        subprocess.run([*mkimage, b'bell\a"\\\xff', *option.split()], **tool)
    mkfs = "mkfs.jffs2 -r tree -e 0x10000 -l --pad=0x80000 -o".split()
    subprocess.run([*mkfs, "etc"], **tool)
    subprocess.run([*mkfs, "etc-n", "-n"], **tool)
    Path("tree/fill").write_bytes(os.urandom(250000))  # 6 of the 8 blocks are then used
    subprocess.run([*mkfs, "etc-full"], **tool)
    for name, size in ("huge", 2 << 30), ("boot", 9), ("nothing", 0):
        Path(name).touch()
        os.truncate(name, size)


def make_packages():
    good = package(1)
    for name, offset, piece in [
        ("marker", 0, b"X"), ("layout2", 4, b"\2"), ("wrap", 11, b"\xff"), ("magic", 20, b"X"), ("header", 60, b"X"),
        ("kdata", 9999, b"\xff"), ("odd", 0, b'\0"\xff\t'), ("block", 20 + 70065 + 30003 + 0x10000, b"\xff\xff"),
    ]:
        Path(name).write_bytes(good[:offset] + piece + good[offset + len(piece):])
    for name, data in {
        "good1": good, "good3": package(3), "short": good[:19], "shorter": good[:-1], "longer": good + b"\n",
        "x86-1": package(1, "x86", "second", "etc"),
        "bzip2-1": package(1, "bzip2", "second", "etc"), "full": package(1, "kernel", "second", "etc-full"),
        "negative": package(3, "kernel", "nothing", "nothing", sizes=(0, 524288, -524288)),
        "part": Path("kernel").read_bytes()[:70060],
    }.items():
        Path(name).write_bytes(data)
    with open("big", "wb") as stream:
        stream.write(package(1, sizes=(0, 1500 << 20, 0))[: 20 + 70065])
        stream.seek(1500 << 20, os.SEEK_CUR)
        stream.write(Path("etc").read_bytes())
    mtd = "".join(f'mtd{i}: {s:08x} 00010000 "name"\n' for i, s in enumerate([0x80000, 0x11200, 0x800000, 0x80000] + 7 * [1]))
    for name, text in {
        "mtd": "dev:    size   erasesize  name\n" + mtd, "mtd-cut": mtd.replace("mtd1", "mtd4"), "table": TABLE,
        "mtd-256k": mtd.replace("00080000 00010000", "00100000 00040000"),
        "overlap": TABLE.replace("0xa0000", "0x9f000"), "tight": TABLE.replace("0x20000\n", "70064\n"),
    }.items():
        Path(name).write_text(text)


@pytest.fixture(scope="module", autouse=True)
def work(build, tmp_path_factory):
    """A folder with images and packages, good and bad; the current folder of all tests."""
    run.fwpack = build.resolve() / "fwpack"
    before = os.getcwd()
    os.chdir(tmp_path_factory.mktemp("fwpack"))
    make_images()
    make_packages()
    os.mkfifo("pipe")
    yield
    os.chdir(before)


@pytest.mark.parametrize("layout", HEADERS)
def test_same_bytes(layout):
    """The same package as by hand; extract gives the images back."""
    made = f"made{layout}"
    assert run(f"{MAKE} -l {layout} -o {made} -p 0x11200,30003,512K", umask=0o027) == (0, "")
    assert (Path(made).read_bytes(), os.stat(made).st_mode & 0o777) == (package(layout), 0o640)
    expect(f"extract --output-dir new{layout}/ {made}", 0, f"new{layout}//?kernel: 70065 bytes")
    assert all(Path(f"new{layout}", name).read_bytes() == Path(name).read_bytes() for name in NAMES)


def test_info():
    hashes = [hashlib.sha256(data).hexdigest() for data in (package(3), *(Path(n).read_bytes() for n in NAMES))]
    crcs = struct.unpack(">4xI16xI", Path("kernel").read_bytes()[:28])
    status, said = run("info good3")
    assert (status, re.findall(r"SHA-256 +(\w+)", said)) == (0, hashes)
    assert re.sub(" +", " ", re.sub(".*SHA-256.*\n", "", said)) == (
        'layout 3, header of 64 bytes\nmarker "AB" (00004241)\nfile size 624420 bytes, header and regions\n'
        "verdict a board with this marker and layout would accept it\n\nregion offset size contents\n"
        " 1 64 70065 kernel image\n 2 70129 30003 not examined\n 3 100132 524288 JFFS2 at every 64 KiB\n\n"
        'kernel image\n name bell."\\.\n created 2023-11-14 22:13:20 UTC\n data size 70001 bytes\n'
        " load, entry 0x80008000, 0x80008040\n operating system Linux\n architecture ARM\n type kernel\n"
        f" compression not compressed\n header CRC {crcs[0]:08x}, ok\n data CRC {crcs[1]:08x}, ok\n")
    assert "data CRC          " + f"{crcs[1]:08x}, WRONG: computed " in run("info kdata")[1]
    assert "KiB; cut short, 524287 bytes" in run("info shorter")[1]


def test_json():
    """Any bytes in marker and name give valid JSON, and one field tells whether all is well."""
    odd = json.loads(run("info --json odd")[1])
    assert (odd["verdict"], odd["layout"], odd["marker"], odd["marker_word"]) == ("accepted", 1, "", "09ff2200")
    assert (odd["kernel"]["name"], odd["kernel"]["created"]) == ('bell\a"\\\xff', "2023-11-14T22:13:20Z")
    assert [(r["offset"], r["verdict"]) for r in odd["regions"]] == [(20, "ok"), (70085, "not examined"), (100088, "ok")]
    assert odd["regions"][1]["sha256"] == hashlib.sha256(Path("second").read_bytes()).hexdigest()
    assert json.loads(run("info -j big")[1])["sha256"] is None
    for words, reason in {
        "-p 70064,1M,512K good1": "region 1 is too large for its partition: 70065 bytes, mtd1 has 70064",
        "-p 1M,1M,512K negative": "region 2 is outside the file", "-p 1M,1M,512K good1": None,
        "x86-1": "bad kernel image: architecture x86, expected ARM",
    }.items():
        found = json.loads(run("info -j " + words)[1].split("fwpack")[0])
        assert (found["verdict"], found["reason"]) == ("refused" if reason else "accepted", reason)


# Exit status, arguments, and the pattern of the first line. The board of 'check' has marker AB.
ROWS = r"""
2|check -m AB nowhere|fwpack: nowhere: No such file or directory
2|check -m AB pipe|fwpack: pipe: not a plain file
1|check -m AB short|short: a board would refuse it: unreadable: it ends within its header
1|check -m AB marker|marker: .*: wrong marker: found "XB" \(00004258\), the board's is "AB" \(00004241\)
1|check -m AB good3|good3: .*: wrong layout version: found 3, the board expects 1
1|check -m AB --layout 2 layout2|layout2: .*: unknown layout: found 2, there are 1 and 3
0|check -m AB -l 3 good3|good3: a board would accept it
1|check -m AB shorter|shorter: .*: wrong file size: found 624375 bytes, header and regions are 624376
1|check -m AB wrap|wrap: .*: wrong file size: found 624376 bytes, header and regions are -16152840
1|check -m AB magic|magic: .*: bad kernel image: magic 58051956, expected 27051956
1|check -m AB header|header: .*: bad kernel image: header CRC .*, its bytes give .*
1|check -m AB kdata|kdata: .*: bad kernel image: data CRC .*, the 70001 bytes behind the header give .*
1|check -m AB x86-1|x86-1: .*: bad kernel image: architecture x86, expected ARM
1|check -m AB bzip2-1|bzip2-1: .*: bad kernel image: compression bzip2, .*
1|check -m AB block|block: .*: bad /etc file system: the 64 KiB block at 65536 of region 3 begins with ff ff, not 85 19
1|check -m AB good1 marker --quiet|
0|check -l 3 negative|negative: a board would accept it
1|check -l 3 negative -p 1M,1M,1M|negative: region 2 is outside the file
0|check good1 --mtd mtd|good1: a board would accept it
1|check good1 -p 70064,1M,0x80000|good1: region 1 is too large for its partition: 70065 bytes, mtd1 has 70064
1|check full -p 1M,1M,512K|full: region 3 is too full to take the settings back: .* 3 free blocks, 6 of 8 are used
0|check full -p 1M,1M,0x90000|full: a board would accept it
1|check full --mtd mtd-256k|full: region 3 is too full to take the settings back: .* 3 free blocks, 2 of 4 are used
1|check good1 --mtd mtd-cut|fwpack: mtd-cut: .*: it has no size of mtd1
1|check good1 --mtd nowhere|fwpack: nowhere: No such file or directory
2|check -p 1M,1M,1M --mtd mtd good1|fwpack: --partitions and --mtd exclude each other
2|check -p 1M,2M good1|fwpack: 1M,2M: the partitions are three sizes, .*
2|check -V 1 good1|fwpack: invalid option .*
2|check --marker= good1|fwpack: the marker is empty
2|check|fwpack: check needs at least one package
1|info kernel|fwpack: kernel: not a firmware package \(it looks like a bare kernel image\)
1|extract shorter -d none|fwpack: shorter: region 3: cut short, 524287 bytes are there
2|extract good1 -o none|fwpack: extract needs --output-dir, or --region and --output
2|extract good1 -r 4 -d none|fwpack: 4: the region is 1, 2 or 3
2|create -l 1 -m A=B -k kernel -s second -e etc -o none|fwpack: the marker has a '=' .*
2|create -l 1 -m ABCDE -k kernel -s second -e etc -o none|fwpack: ABCDE: a marker has at most four characters
2|create -l 1 -k kernel -e etc|fwpack: create needs --marker, --second, --output
2|flash-image -T table -o none|fwpack: flash-image needs either --package or images
1|flash-image -T overlap -k kernel -o none|fwpack: overlap: app begins before the end of the one above
1|flash-image -T tight -k kernel -o none|fwpack: kernel: too large for kernel: 70065 bytes of 70064
1|flash-image -T tight -P good1 -o none|fwpack: good1: region 1 is too large for its partition: .*
1|flash-image -T mtd -P good1 -o none|fwpack: mtd: does not say where the partitions start
1|flash-image -T table -P kdata -o none|fwpack: kdata: bad kernel image: .*
2|help nothing|fwpack: unknown command 'nothing'
0|help help|usage: fwpack COMMAND .*
0|help create|usage: fwpack create .*
"""


@pytest.mark.parametrize("row", ROWS.strip().split("\n"), ids=lambda row: row.split("|")[1])
def test_answers(row):
    status, words, pattern = row.split("|")
    expect(words, int(status), pattern)
    assert not os.path.exists("none")


def test_log():
    """The lines of the board's log; and the sizes are mentioned only for what a board would install."""
    log = "fwpack: log: CHECK VERSION : 1 vs 1\nfwpack: log: "
    compared = "fwpack: the sizes were not compared"
    for name, line in {"longer": "Firmware image size : 624376 vs 624377\n", "block": "flash2 is not correct\n",
                       "magic": "[CFlash_CheckImage] Bad Magic Number : 1476729174\nfwpack: log: flash1 is not correct\n"}.items():
        said = run(f"check -v {name}")[1]
        assert said.endswith(log + line) and compared not in said
    assert compared in run("check good1 longer")[1]
    assert "good1: region 3 does not fill its partition: 524288 bytes, mtd3 has 1048576; " in run("check good1 -t table")[1]


@pytest.mark.parametrize("images", ["-P good1", "-k kernel -s second -e etc", "-b boot -e etc", "-s second"])
def test_flash_image(images):
    given = re.sub("-[bkse] ", "", images.replace("-P good1", "kernel second etc")).split()
    assert run(f"flash-image -T table {images} -o flash --force", stderr=subprocess.DEVNULL) == (0, "")
    assert Path("flash").read_bytes() == flash(**{name: name for name in given})


def tree(folder="."):
    """The files with their contents; large ones only with their size."""
    return {str(path): (path.lstat().st_size, path.read_bytes() if 0 < path.lstat().st_size < 1 << 20 else b"")
            for path in sorted(Path(folder).rglob("*")) if path.is_file()}


@pytest.fixture
def kept():
    """Nothing may change in the folder."""
    Path("former/etc").mkdir(parents=True, exist_ok=True)
    Path("former/package").write_text("former")
    Path("former/fixed").write_text("former")
    os.chmod("former/fixed", 0o444)
    for name, target in ("link", "package"), ("dangling", "nowhere"), ("to-kernel", "../kernel"):
        if not os.path.lexists(f"former/{name}"):
            os.symlink(target, f"former/{name}")
    if not os.path.exists("former/second-kernel"):
        os.link("kernel", "former/second-kernel")
    before = tree()
    yield
    assert tree() == before


@pytest.mark.parametrize("words, pattern", [
    # The same file as input and output, by its name, another name, a symbolic and a hard link; any input.
    *((f"{MAKE} -l 1 -f -o {name}", f"{name}: the same file as the input {which}") for name, which in [
        ("kernel", "kernel"), ("./former/../second", "second"), ("former/to-kernel", "kernel"),
        ("former/second-kernel", "kernel"), ("etc", "etc")]),
    (f"{MAKE} -l 1 -f -o mtd -t mtd", "mtd: the same file as the input mtd"),
    ("extract good1 -r 1 -f -o good1", "good1: the same file as the input good1"),
    ("flash-image -T table -k kernel -f -o table", "table: the same file as the input table"),
    # What exists is replaced only by request.
    *((f"{MAKE} -l 1 -o former/{name}", f"former/{name}: exists; --force replaces it") for name in
      ["package", "link", "fixed"]),
    (f"{MAKE} -l 1 -f -o former/dangling", "former/dangling: a link that leads nowhere"),
    (f"{MAKE} -l 1 -f -o pipe", "pipe: exists and is not a plain file"),
    ("extract good1 -f -d former", "former/etc: exists and is not a plain file"),
    ("extract good1 -r 1 -o former/package", "former/package: exists; --force replaces it"),
    # A failure leaves what was there, and no other file.
    *((f"create -m AB -l 3 -k {bad} -s second -e etc -f -o former/package", "not made, .*: bad kernel image.*")
      for bad in ["x86", "part", "data"]),
    ("create -m AB -l 1 -k kernel -s second -e etc-n -f -o former/package", "not made, .*: bad /etc file system.*"),
    ("create -m AB -l 1 -k kernel -s second -e etc-full -f -o former/package -p 1M,1M,512K", "not made: .*too full.*"),
    ("create -m AB -l 1 -k nowhere -s second -e etc -f -o former/package", "nowhere: No such file.*"),
    ("create -m AB -l 1 -k former -s second -e etc -f -o former/package", "former: Is a directory"),
    ("create -m AB -l 1 -k kernel -s nothing -e etc -f -o former/package", "nothing: empty"),
    ("create -m AB -l 1 -k kernel -s huge -e etc -f -o former/package", "huge: too large: .*"),
    (f"{MAKE} -l 1 -f -o former/package -p 1M,1M,511K", "etc: too large for its partition: .*"),
    (f"{MAKE} -l 1 -o -", "-: only 'extract --region' writes to standard output"),
])
def test_refused(kept, words, pattern):
    expect(words, 1, "fwpack: " + pattern)


def test_no_room(kept):
    """A full disk, a folder that cannot be written, and a limit for the size of files."""
    os.mkdir("small")
    subprocess.run("mount -t tmpfs -o size=600k none small".split(), check=True)
    try:
        expect(f"{MAKE} -l 1 -o small/package", 1, "fwpack: small/package: No space left on device")
        expect("extract good1 -d small", 1, "fwpack: small/etc: No space left on device")
        assert os.listdir("small") == []
        subprocess.run("mount -o remount,ro small".split(), check=True)
        expect(f"{MAKE} -l 1 -o small/package", 1, "fwpack: small/package: Read-only file system")
        expect("extract good1 -d small/new", 1, "fwpack: small/new/kernel: Read-only file system")
    finally:
        subprocess.run(["umount", "small"], check=True)
    os.rmdir("small")
    limit = ["sh", "-c", 'ulimit -f 200; "$0" "$@"', run.fwpack]
    for words in f"{MAKE} -l 1 -f -o former/package", "extract good1 -d never":
        assert b"File too large" in subprocess.run([*limit, *words.split()], capture_output=True).stderr
    assert not os.path.exists("never")


def test_force():
    """A link stays, and what it leads to is replaced; a file that cannot be written is replaced too."""
    for name in "target", "fixed":
        Path(name).write_text("former")
    os.symlink("target", "link")
    os.chmod("fixed", 0o444)
    for name in "link", "fixed":
        assert run(f"{MAKE} -l 1 -f -o {name}")[0] == 0
    assert os.readlink("link") == "target"
    assert Path("target").read_bytes() == Path("fixed").read_bytes() == package(1)


def opened_by(process):
    """What the descriptors of the process are, those that it closes meanwhile left out."""
    for link in Path(f"/proc/{process.pid}/fd").iterdir():
        with contextlib.suppress(FileNotFoundError):
            yield os.readlink(link)


@pytest.mark.parametrize("number", sorted(signal.valid_signals() - {
    signal.SIGCHLD, signal.SIGCONT, signal.SIGURG, signal.SIGWINCH, signal.SIGSTOP, signal.SIGTSTP, signal.SIGTTIN,
    signal.SIGTTOU, signal.SIGPIPE, signal.SIGXFSZ} - set(range(signal.SIGRTMIN, signal.SIGRTMAX))))
def test_signals(kept, number):
    """Whatever ends fwpack leaves nothing. The signal comes when an unnamed output in this folder is open."""
    unnamed = re.compile(re.escape(os.getcwd()) + r"/(.*/)?#\d+ \(deleted\)")
    sanitizers = {"ASAN_OPTIONS": "handle_segv=0:handle_sigbus=0:handle_sigfpe=0:handle_sigill=0:handle_abort=0"}
    for words in "create -l 1 -m AB -k kernel -s big -e etc -f -o former/package", "extract big -d never":
        process = subprocess.Popen([run.fwpack, *words.split()], env={**os.environ, **sanitizers})
        while not any(map(unnamed.match, opened_by(process))):
            assert process.poll() is None
        process.send_signal(number)
        assert process.wait() == -number


def test_streams():
    """A package from a pipe or a file, a region to a pipe; closed readers and closed streams."""
    assert run("check -q -", input=package(1).decode("latin1")) == (0, "")
    with open("good1") as stream:
        assert run("info -j -", stdin=stream)[0] == 0
        stream.seek(0)
        expect("extract - -r 1 -f -o good1", 1, "fwpack: good1: the same file as the input -", stdin=stream)
    here, there = socket.socketpair()  # some programs start others with it
    there.sendall(b"short")
    there.close()
    expect("check -", 1, "standard input: .*: unreadable: .*", stdin=here)
    assert run("extract -r 2 -o - -", input=package(3).decode("latin1")) == (0, Path("second").read_text())
    with open("/dev/full", "w") as full:
        assert run("info good1", stdout=full) == (1, "fwpack: standard output: No space left on device\n")
    reading, writing = os.pipe()
    os.close(reading)
    assert run("create -m AB -l 3 -k kernel -s second -e etc-n -o unread", stderr=writing)[0] == 0  # it warns
    assert Path("unread").read_bytes() == package(3, "kernel", "second", "etc-n")
    assert run("info good1", stdout=writing) == (1, "")
    assert run("check -q good1", preexec_fn=lambda: os.closerange(0, 3), stdout=None)[0] == 0
