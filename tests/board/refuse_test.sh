#!/bin/bash
# Packages that are damaged or meant for another board leave the flash as it was. Most are tried
# with xupgrade, which comes back; a refusal by upgrade reboots the board all the same.
. "${BASH_SOURCE%/*}/common.sh"

make_package new 1 "$work/good"
size=$(stat -c %s "$work/good")

# damage NAME OFFSET BYTE: a copy with one byte changed.
damage() {
    cp "$work/good" "$work/$1"
    printf '%b' "$3" | dd of="$work/$1" bs=1 seek="$2" conv=notrunc status=none
}
damage marker 0 X
damage kernel-data 3000000 '\0'
damage etc-block $((size - 65536)) '\0'
head -c $((size - 1)) "$work/good" >"$work/truncated"
packages=(marker kernel-data etc-block truncated)

# The host's tool and the board must agree.
for name in "${packages[@]}"; do
    ! "$top/build/host/fwpack" check --marker 3510 "$work/$name" >/dev/null 2>&1 ||
        fail "fwpack accepts $name"
done

# Under a name of its own the shell that tries them outlives xupgrade, which kills every /bin/sh.
cat >"$work/try" <<'END'
for name in marker kernel-data etc-block truncated; do
    echo "== $name"
    mountpoint -q /etc || mount -t jffs2 /dev/mtdblock/3 /etc
    cp /packages/$name /tmp/flash3
    xupgrade -i
done
END
cat >"$work/reboot" <<'END'
upgrade /packages/truncated -v
END
cp "$work/flash" "$work/before"
options=()
for name in "${packages[@]}"; do
    options+=(--put "$work/$name:/packages/$name")
done
status=0
board "${options[@]}" --timeout 120 --job "$work/try" --job "$work/reboot" || status=$?
[ $status -eq 75 ] || fail "status $status in place of a reset by the last job"

# What it prints and what it logs, each in its order; the two are not in step.
error="[ERROR] CFlash_TEVWrite :"
sizes="Firmware image size : $size vs"
has "== marker" "Upgrade fail." "== kernel-data" "$error chech Image" "Upgrade fail." \
    "== etc-block" "$error check JFFS2" "Upgrade fail." \
    "== truncated" "$error $sizes $((size - 1))" "Upgrade fail." \
    "boot loader: kernel 'old' from flash" "$error $sizes $((size - 1))" "Upgrade fail."
log="log: xupgrade:"
has "$log MAGIC_NUMBER is not match 1 : 30313558 vs 30313533" \
    "$log [CFlash_CheckImage] filencrc32 error" "$log flash1 is not correct" \
    "$log flash2 is not correct" "$log $sizes $((size - 1))" "log: upgrade: Upgrade fail."
has_not "CFlash_Erase"
for name in boot kernel app; do
    cmp <(region $name) <(region $name "$work/before") || fail "region $name changed"
done
