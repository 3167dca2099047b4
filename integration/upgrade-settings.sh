# Sourced: the settings that upgrade carries over into the new /etc, and how the program reads a value.
# shellcheck shell=sh disable=SC2034

# Whole files, and single numbers as FILE:KEY.
carried_files="network/network.conf network/wireless.conf system.conf serverinfo.conf cam_model.conf"
carried_values="tcp_server.conf:server_port stream.conf:stream_1_port stream.conf:stream_2_port
    stream.conf:stream_3_port videodecoder.conf:video_type"
if [ -r /bin/webs ]; then
    carried_values="$carried_values web.conf:port"
else
    carried_values="$carried_values lighttpd/lighttpd.conf:server.port"
fi

# conf_value FILE KEY: prints the text that the program finds there. It is in the first line whose key
# begins with KEY, else in the last line. Fails if the file cannot be read.
conf_value() {
    [ -r "$1" ] && LC_ALL=C awk -v wanted="$2" '
        function trim(text) {
            sub(/[ \t]$/, "", text)
            return text ~ /^"/ ? substr(text, 2, length(text) - 2) : text
        }
        function token(text) { # up to the next equals sign
            return trim(index(text, "=") ? substr(text, 1, index(text, "=") - 1) : text)
        }
        function take(line, rest) {
            sub(/\r.*/, "", line)
            sub(/^[ \t]+/, "", line)
            rest = index(line, "=") ? substr(line, index(line, "=") + 1) : ""
            if (line ~ /^([#[]|$)/ || rest ~ /^[#[]/) return
            sub(/^[ \t]+/, "", rest)
            if (rest !~ /^[#[]/) value = token(rest) # else it keeps the value of the line before
            if (index(substr(token(line), 1, 63), wanted) == 1) exit
        }
        {
            # The program reads long lines in pieces.
            for (; length($0) > 2047; $0 = substr($0, 2048)) take(substr($0, 1, 2047))
            take($0)
        }
        END { print substr(value, 1, 255) }' "$1"
}

# conf_number FILE KEY: prints the number at the beginning of the value, 0 without one.
conf_number() {
    conf_value "$1" "$2" | LC_ALL=C awk '
        match($0, /^[ \t\v\f]*[-+]?[0-9]+/) { number = substr($0, 1, RLENGTH) + 0 }
        END {
            if (number > 2147483647) number = 2147483647
            if (number < -2147483648) number = -2147483648
            printf "%.0f\n", number
        }'
}
