"""A board of files, on which the scripts of integration/ run. Each write to card or flash is a step, at which
the power can fail and leave a part of it."""

import ctypes
import os
import shutil
import struct
import subprocess
from pathlib import Path

WORLD = Path("/mnt")
CARD = WORLD / "card"
PARTITION = 13 * 4096
SETTINGS = {
    "network/network.conf": "DHCP=0\nIPADDR=10.1.2.3\n",
    "network/wireless.conf": "ESSID=roof\n",
    "system.conf": "hostname=gate-7\n",
    "serverinfo.conf": "server=10.1.2.4\n",
    "cam_model.conf": "cam_model=VM42\n",
    "tcp_server.conf": "server_port=9000\n",
    "stream.conf": "stream_1_port=9001\nstream_2_port=9002\nstream_3_port=9003\n",
    "videodecoder.conf": "video_type=1\n",
    "lighttpd/lighttpd.conf": "server.port=8080\n",
}
DEFAULTS = {name: "a=0\n" if n < 5 else text.replace("=", "=1") for n, (name, text) in enumerate(SETTINGS.items())}
# What the scripts use.
TOOLS = ("awk cat cmp cp head mkdir mv od rm sed sha256sum sleep tail tar tr umount wc").split()

# write NAME OFFSET FROM: a step. At the step where the power fails, only a part of FROM arrives.
STEPS = r"""#!/bin/bash
world=/mnt
write() {
    local n part size
    local hook=$world/hook.${1##*/}@$2 # what happens at the first write to this place
    [ ! -e "$hook" ] || { mv "$hook" $world/hook && . $world/hook; }
    read -r n part <$world/power
    sed -i "1s/.*/$((n - 1)) $part/" $world/power
    [ ! -d $world/log ] || { cp "$3" "$world/log/$((-n))" && echo "$((-n)) $1 $2" >>$world/log/index; }
    if [ "$n" = 1 ]; then
        size=$(stat -c %s "$3")
        case $part in none) size=0 ;; first) size=1 ;; half) size=$((size / 2)) ;; last) size=$((size - 1)) ;; esac
        truncate -s $size "$3"
    fi
    case $1 in
    etc/*) cp "$3" "$world/$1" ;;
    *) /bin/dd if="$3" of="$world/$1" bs=64K oflag=seek_bytes seek="$2" conv=notrunc status=none ;;
    esac
    local status=$?
    [ "$n" != 1 ] || { sed -i 1d $world/power && kill -9 0; }
    return $status
}
"""
PROGRAMS = {
    # Only writes to the card are steps, and what waits for them.
    "dd": STEPS + r"""
case "$*" in *of=*) ;; *) exec /bin/dd "$@" ;; esac
bs=512 seek=0 from=()
for word in "$@"; do
    case $word in
    of=*) to=${word#*=} ;;
    bs=*) bs=${word#*=} ;;
    seek=*) seek=${word#*=} ;;
    conv=*) conv=$word ;;
    *) from+=("$word") ;;
    esac
done
# Without these words, a write may never arrive, or shortens the file.
case $conv in *fsync*) ;; *) exit 1 ;; esac
case $conv in *notrunc*) ;; *) : >"$to" ;; esac
data=$(mktemp $world/data.XXXXXX)
/bin/dd bs="$bs" "${from[@]}" of="$data" status=none && write "${to#"$world"/}" $((bs * seek)) "$data"
status=$?
rm -f "$data"
exit $status
""",
    "sync": STEPS + "data=$(mktemp $world/data.XXXXXX) && write data.sync 0 $data && rm $data\n",
    # A mount of flash shows the files of /etc; the card is a folder.
    "mount": r"""#!/bin/bash
case "$*" in
*jffs2*) [ -d /mnt/etc ] && [ ! -e /mnt/no-mount ] && exec /bin/mount --bind /mnt/etc "${@: -1}" ;;
*/mnt/slot*) [ ! -e /mnt/bad-card ] && sleep 0.05 && # as long as a card takes
     ! mountpoint -q /mnt/card && /bin/mount --bind /mnt/slot /mnt/card && exec /bin/mount -o "remount,bind,${2%%,*}" /mnt/card ;;
*) [ ! -e /mnt/no-mount ] && exec /bin/mount "$@" ;;
esac
exit 1
""",
    # Writes flash in pieces and restores the settings. A worn partition loses a byte.
    "upgrade": STEPS + r"""
echo "start $*" >>$world/calls
mountpoint -q /etc || echo "WITHOUT /etc" >>$world/calls
data=$world/data.upgrade
put() { cat >$data && write "$1" "$2" $data || kill -9 0; }
# Like the program's, its output ends two seconds before the restart, which is time for the reader.
finish() {
    echo "$1"
    exec >&- 2>&-
    read -r -a children </proc/$PPID/task/$PPID/children
    while [ ${#children[@]} -gt 1 ]; do read -r -a children </proc/$PPID/task/$PPID/children; done
    kill -9 0
}
rm -rf $world/saved && cp -a /etc $world/saved && umount /etc
[ ! -e $world/refuses ] || { echo "[ERROR] CFlash_TEVWrite : chech Image" && finish "Upgrade fail."; }
[ ! -e $world/hangs ] || kill -9 0
read -r -a header < <(od -A n -v -w20 -t u4 -N 20 "$1")
at=20
for n in 1 2 3; do
    size=${header[n + 1]} half=$((size / 2))
    [ $n != 3 ] || { rm -rf $world/etc && mkdir $world/etc; } # jffs2 mounts what is blank
    head -c "$(stat -c %s $world/mtd/$n)" /dev/zero | tr '\0' '\377' | put mtd/$n 0
    tail -c +$((at + 1)) "$1" | head -c $half | put mtd/$n 0
    tail -c +$((at + half + 1)) "$1" | head -c $((size - half)) | put mtd/$n $half
    at=$((at + size))
    [ "$(cat $world/worn 2>/dev/null)" != $n ] || printf x | /bin/dd of=$world/mtd/$n bs=1 seek=25000 conv=notrunc status=none
done
cp -a $world/new/etc/. $world/etc
[ "$size" != 40000 ] || printf '\300' | put mtd/3 30000 # jffs2 marks a node
[ ! -e $world/full ] || finish "Upgrade complete."
cd $world/saved
for file in network/network.conf network/wireless.conf system.conf serverinfo.conf cam_model.conf; do
    [ ! -e $file ] || put etc/$file 0 <$file
done
for file in tcp_server.conf stream.conf videodecoder.conf lighttpd/lighttpd.conf; do
    [ ! -e $file ] || [ ! -e $world/etc/$file ] || { put etc/temp.conf 0 <$file && mv $world/etc/temp.conf $world/etc/$file; }
done
[ ! -e $world/hidden ] || cp -a $world/hidden/. $world/etc
finish "Upgrade complete."
""",
    "reboot": "#!/bin/sh\necho reboot >>/mnt/calls\nkill -9 0\n",
    "get_boot_param": '#!/bin/sh\ncp /mnt/board "$1"\n',
    "jffs2reader": '#!/bin/sh\nexec cat "/mnt/new/etc$3"\n',
    "fsck": "#!/bin/sh\necho fsck >>/mnt/calls\nrm -f /mnt/bad-card\n",
}


def own_namespace():
    """Keeps the mounts of this process away from other workers."""
    libc = ctypes.CDLL(None, use_errno=True)
    if libc.unshare(0x20000):  # CLONE_NEWNS
        raise OSError(ctypes.get_errno(), "unshare")
    run("mount", "--make-rprivate", "/")
    run("mount", "-t", "tmpfs", "tmpfs", WORLD)
    for file in "/dev/kmsg", "/proc/sys/vm/drop_caches":
        if os.path.exists(file):
            run("mount", "--bind", "/dev/null", file)


def run(*words, **options):
    return subprocess.run([str(word) for word in words], check=True, **options)


def is_mounted(place):
    return any(line.split()[1] == str(place) for line in Path("/proc/self/mounts").read_text().splitlines())


def unmount(place):
    while is_mounted(place):
        run("umount", "-l", place)


def lines(text, size):
    return "".join(f"{text} {n}\n" for n in range(9999)).encode()[:size]


class Board:
    """A board with old firmware, changed settings, an empty card and a mounted /etc."""

    old = [lines(f"old {n}", PARTITION) for n in (1, 2, 3)]
    new = [lines("new 1", 40000), lines("new 2", 9000) + b"\377" + lines("new 2", 30999),
           lines("new 3", 30000) + b"\340" + b"\377" * 9999]

    def __init__(self, scripts, shell="dash", old=old, new=new):
        self.old, self.new = old, new
        unmount("/etc")
        run("umount", "-R", "-l", WORLD)
        run("mount", "-t", "tmpfs", "tmpfs", WORLD)
        for folder in "bin", "mtd", "mtdblock", "card", "slot", "new", "tmp":
            (WORLD / folder).mkdir()
        for script in scripts.iterdir():
            if script.is_file():
                text = script.read_text().replace("#!/bin/sh", f"#!{shutil.which(shell)}" + (" sh" if shell == "busybox" else ""))
                if script.name == "upgrade-store.conf":
                    text = text.replace("=/dev/", f"={WORLD}/").replace("mmcblk0p1", "slot").replace("=/tmp", f"={WORLD}/tmp")
                    text += f"mount_point={CARD} store={CARD}/upgrade-store store_size=2 card_wait=0\n"
                # A folder takes the place of the card's device and of /tmp.
                text = text.replace("[ -b ", "[ -e ").replace("room /tmp ", f"room {WORLD}/tmp ")
                text = text.replace("/proc/mtd", f"{WORLD}/proc-mtd")
                self.program(script.name, text)
        # /etc, which is the board's, has the link to the machine's awk.
        tools = {"awk": shutil.which("mawk")} if shell == "dash" else dict.fromkeys(TOOLS, shutil.which(shell))
        for name, program in tools.items():
            (WORLD / "bin" / name).symlink_to(program)
        for name, text in PROGRAMS.items():
            self.program(name, text)
        self.package = WORLD / "package"
        self.package.write_bytes(b"3510" + struct.pack("<4I", 1, *map(len, new)) + b"".join(new))
        self.tree("new/etc", DEFAULTS)
        self.tree("etc", SETTINGS)
        for n in 1, 2, 3:
            (WORLD / f"mtd/{n}").write_bytes(old[n - 1])
        (WORLD / "board").write_text("MAC=1\n")
        (WORLD / "proc-mtd").write_text('mtd3: 0000d000 00001000 "etc"\n')
        self.calls = WORLD / "calls"
        self.calls.write_text("")
        self.power()
        run("mount", "-t", "tmpfs", "-o", "size=4M", "tmpfs", CARD)
        run("mount", "--bind", WORLD / "etc", "/etc")

    @staticmethod
    def program(name, text):
        path = WORLD / "bin" / name
        path.unlink(missing_ok=True)  # it can be a link to a program of this machine
        path.write_text(text)
        path.chmod(0o755)

    @staticmethod
    def tree(name, files):
        shutil.rmtree(WORLD / name, ignore_errors=True)
        for file, text in files.items():
            path = WORLD / name / file
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text)

    @staticmethod
    def power(*cuts):
        """The power fails after so many writes, and of the last one only a part arrives: (N, PART). The next
        cut counts from there."""
        (WORLD / "power").write_text("".join(f"{step} {part}\n" for step, part in (*cuts, (0, "none"))))

    @staticmethod
    def environment():
        return dict(os.environ, PATH=f"{WORLD}/bin:{os.environ['PATH']}")

    def call(self, *words):
        """Runs a script; returns its status, -9 after a power cut, and its output."""
        done = subprocess.run([str(word) for word in words], env=self.environment(), start_new_session=True, text=True,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, cwd="/")
        with self.calls.open("a") as calls:
            calls.write(done.stdout)
        return done.returncode, done.stdout

    def hook(self, place, command):
        """Runs a command at the first write to this place, FILE@OFFSET."""
        (WORLD / f"hook.{place}").write_text(command + "\n")

    def start(self, boots=99):
        """Boots until the start-up script goes on, as the emulated board's does. Returns the output."""
        status = -9
        while status == -9 and boots:
            boots -= 1
            for place in "/etc", WORLD / "tmp/upgrade-look/etc", WORLD / "tmp/upgrade-look":
                unmount(place)
            shutil.rmtree(WORLD / "tmp")
            (WORLD / "tmp").mkdir()
            status, output = self.call("resume-upgrade")
        if not is_mounted("/etc") and (WORLD / "etc").exists():
            run("mount", "--bind", WORLD / "etc", "/etc")
        return output

    def upgrade(self, *options):
        status, output = self.call("safe-upgrade", *options, self.package)
        return self.start() if status == -9 or options else output

    def result(self):
        return dict(line.split("=", 1) for line in self.call("safe-upgrade", "--result")[1].splitlines())

    def firmware(self):
        """'old', 'new' or 'mixed'. jffs2 writes to /etc: where it is blank, and a bit of each obsolete node."""
        *found, etc = [(WORLD / f"mtd/{n}").read_bytes() for n in (1, 2, 3)]
        changes = {(new, now) for new, now in zip(self.new[2], etc) if new not in (now, 0xff)}
        if all(data.startswith(new) for data, new in zip(found, self.new)) and changes <= {(0xe0, 0xc0)}:
            return "new"
        return "old" if found == self.old[:2] else "mixed"

    def lost(self):
        """The settings that /etc has not."""
        return [name for name, text in SETTINGS.items()
                if not os.path.isfile(f"/etc/{name}") or Path(f"/etc/{name}").read_text() != text]

    def state(self):
        return self.result()["outcome"], self.firmware(), self.lost()

    def fault(self):
        """Starts the board until nothing is left to do. Returns what is wrong then. The old firmware is right
        only if nobody was told of an upgrade: so no cut after one that ended with the new firmware may end with it."""
        self.start()
        self.power()
        self.start()
        outcome, firmware, lost = self.state()
        self.is_old = firmware == "old"
        if (outcome, firmware) not in (("none", "old"), ("installed", "new")) or lost:
            return f"{outcome}, {firmware} firmware, lost {lost}"
        store = CARD / "upgrade-store"
        if store.exists() and not store.read_bytes().startswith(b"upgrade-store: nothing to do\n"):
            return "the store is not cleaned"
        if self.call("safe-upgrade", "--at-boot", self.package)[0]:
            return "the next update is refused"
        return None
