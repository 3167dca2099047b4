# Sourced by the demo: three boards with different settings, one web server, one signed update file. The
# boards ask the server and upgrade by themselves. One loses its power, one accepts only another marker.
# shellcheck shell=bash

: "${work:?}" # the demo's
fleet=(north south west)
boards=()
web=$((20000 + RANDOM % 20000)) # its port on this machine's loopback address

# settings_of BOARD: prints its user's settings as lines 'FILE KEY=VALUE'.
settings_of() {
    case $1 in
    north) printf '%s\n' "tcp_server.conf server_port=9001" "network/network.conf IPADDR=10.1.0.1" ;;
    south) printf '%s\n' "stream.conf stream_2_port=9202" "cam_model.conf cam_model=VM42" ;;
    west) printf '%s\n' "videodecoder.conf video_type=1" "network/network.conf IPADDR=10.1.0.3" ;;
    esac
    echo "system.conf hostname=$1"
}

offer_update() {
    say "making firmware 1.0.0 and 2.0.0, signing the update; a web server offers it"
    (cd "$work" && make_release "firmware 1.0.0" && make_release "firmware 2.0.0" &&
        make_flash flash "firmware 1.0.0".{kernel,app,etc} &&
        make_package "firmware 2.0.0" 1 package --partitions 0x580000,8M,0x180000)
    local PATH=$PATH:$PWD/build/host
    mkdir -p "$work/www/cgi-bin"
    quietly integration/swupdate/make-key "$work/signing" "demo firmware"
    quietly integration/swupdate/make-swu --sign "$work"/signing.{key,crt} "$work/package" "$work/www"
    # This server does not log queries, so a script answers and logs them.
    cat >"$work/www/cgi-bin/latest" <<'END'
#!/bin/sh
echo "$QUERY_STRING" >>../../asked
printf 'Content-Type: text/plain\r\n\r\n'
cat ../latest
END
    chmod +x "$work/www/cgi-bin/latest"
    busybox httpd -f -p "127.0.0.1:$web" -h "$work/www" &
}

write_fleet_jobs() {
    cat >"$work/show" <<'END'
ip addr add 10.0.2.15/24 dev eth0 && ip link set eth0 up
show() {
    echo "kernel=$(head -c 64 /dev/mtd/1 | tail -c 32 | tr -d '\0')"
    while read -r file setting; do
        ! grep -qx "$setting" "/etc/$file" || echo "setting=$setting"
    done </settings
}
END
    cat "$work/show" - >"$work/ask" <<'END'
while read -r file setting; do
    sed -i "s/^${setting%%=*}=.*/$setting/" "/etc/$file"
done </settings
[ "$(cat /etc/system.conf)" != hostname=west ] || echo MARKER=3520 >/etc/oem_marker.conf
show
# update-agent restarts the board. After a refusal, sed ends it.
update-agent | sed -u '/refused/q'
show
END
    cat "$work/show" - >"$work/report" <<'END'
show
update-agent once
END
}

# run_fleet_board BOARD: runs one board. Its name decides its settings and what happens to it.
run_fleet_board() {
    local dir=$work/$1 jobs=(--job "$work/ask") cut=()
    mkdir "$dir"
    cp "$work/flash" "$dir/flash"
    make_card "$dir/card"
    settings_of "$1" >"$dir/settings"
    printf '%s\n' question=http://10.0.2.100/cgi-bin/latest \
        update_file=http://10.0.2.100/firmware.swu certificate=/signing.crt "board=$1" interval=5 >"$dir/conf"
    case $1 in
    north) jobs+=(--job "$work/report") ;;
    south)
        cut=(--cut "write [/dev/mtd/3]:1")
        jobs+=(--job "$work/report" --job "$work/report")
        ;;
    esac
    board/run --timeout 600 --install "$work/root" --install .cache/engine/root --kept-sd "$dir/card" \
        --put integration/swupdate/update-agent:/sbin/update-agent --put "$dir/conf:/sbin/update-agent.conf" \
        --put "$work/signing.crt:/signing.crt" --put "$dir/settings:/settings" \
        --web "busybox nc 127.0.0.1 $web" "${cut[@]}" "${jobs[@]}" "$dir/flash" 2>&1 |
        tee "$dir/output" | while IFS= read -r line; do
        case $line in
        "boot loader: "*) say "$1 starts with ${line#boot loader: }" ;;
        "update-agent: installing "*) say "$1 fetches ${line#*installing } and checks it" ;;
        "update-agent: refused: "*) say "$1 refuses it: ${line#*refused: }" ;;
        "resume-upgrade: "*) say "$1 at start-up: ${line#*: }" ;;
        *"write [/dev/mtd/"*) say "$1 writes ${line##*write }" ;;
        "board: "*) say "$1: ${line#board: }" ;;
        esac
    done
}

# in_flash BOARD: prints the firmware whose kernel and second partition are in its flash.
in_flash() {
    local release name start
    for release in "firmware 1.0.0" "firmware 2.0.0"; do
        for name in kernel app; do
            read -r start _ < <(partition $name)
            cmp -s -i 0:"$start" -n "$(stat -c %s "$work/$release.$name")" \
                "$work/$release.$name" "$work/$1/flash" || continue 2
        done
        echo "$release"
    done
}

# report_fleet: prints the table. Fails if a board has a wrong result.
report_fleet() {
    local board kept of before after verdict expected status=0
    printf '\n%-6s  %-14s  %-14s  %-13s  %-6s  %s\n' board before after "settings kept" cuts "reported to the server"
    for board in "${fleet[@]}"; do
        before=$(sed -n 's/^kernel=//p' "$work/$board/output" | head -n 1)
        after=$(sed -n 's/^kernel=//p' "$work/$board/output" | tail -n 1)
        of=$(wc -l <"$work/$board/settings")
        kept=$(tac "$work/$board/output" | sed '/^kernel=/q' | grep -c '^setting=' || true)
        verdict=$(sed -n "s/^board=$board&.*outcome=\([^&]*\)&reason=\(.*\)/\1: \2/p" "$work/asked" |
            tail -n 1)
        verdict=${verdict//+/ }
        verdict=$(printf %b "${verdict//%/\\x}")
        printf '%-6s  %-14s  %-14s  %-13s  %-6s  %s\n' "$board" "$before" "$after" "$kept of $of" \
            "$(grep -c '^board: power cut' "$work/$board/output")" "$verdict"
        expected="firmware 2.0.0 installed"
        [ "$board" != west ] || expected="firmware 1.0.0 refused"
        [ "$(in_flash "$board") ${verdict%%:*} $kept" = "$expected $of" ] || status=1
    done
    return $status
}

run_fleet() {
    local board
    board/build-engine.sh
    offer_update
    write_fleet_jobs
    say "starting three boards; each asks the server by itself"
    for board in "${fleet[@]}"; do
        run_fleet_board "$board" &
        boards+=($!)
    done
    wait "${boards[@]}"
    say "done"
    report_fleet
}
