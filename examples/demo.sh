#!/usr/bin/env bash
# Shows the system at work: demo.sh [DIR] (default /usr/share/doc). A receiving agent is started on this machine, DIR is
# sent to it, what arrived is compared with DIR, and some of its files go through memory slots and a restore view.
# Needs `tarn` and the example `memory_and_view` in PATH. Exits with 0 only when nothing differs; leaves nothing behind.
set -euo pipefail

source=${1:-/usr/share/doc}
work=
server=
child=

say() {
    printf '%s\n' "$*"
}

fail() {
    printf 'demo: %s\n' "$*" >&2
    exit 1
}

stop() {
    if [ -n "$1" ] && kill -TERM "$1" 2>/dev/null; then
        wait "$1" || true
    fi
}

clean_up() {
    local status=$?
    trap - EXIT
    trap '' INT TERM HUP
    stop "$child"
    stop "$server"
    # The copy may hold directories without write permission for their owner.
    if [ -n "$work" ]; then
        chmod -R u+rwX "$work" 2>/dev/null || true
        rm -rf "$work"
    fi
    exit "$status"
}

# attended COMMAND...: runs it so that a signal to this script ends the command at once, not after it.
attended() {
    local result=0
    "$@" &
    child=$!
    wait "$child" || result=$?
    child=
    return "$result"
}

# Seconds since the epoch with microseconds, whatever the locale's decimal point.
now() {
    printf '%s' "${EPOCHREALTIME/,/.}"
}

# row STEP FILES BYTES SECONDS RESULT
row() {
    LC_ALL=C awk -v step="$1" -v files="$2" -v bytes="$3" -v seconds="$4" -v result="$5" 'BEGIN {
        rate = seconds > 0 ? sprintf("%.1f", bytes / 1e6 / seconds) : "-"
        printf "%-16s %9s %15s %9.2f %9s  %s\n", step, files, bytes, seconds, rate, result }'
}

# An ordinary tree lacks what copies get wrong; this one has it.
make_oddities() {
    mkdir -p "$1/empty directory" "$1/read-only"
    : >"$1/empty file"
    printf 'secret\n' >"$1/mode 0600"
    chmod 0600 "$1/mode 0600"
    printf '#!/bin/sh\n' >"$1/setgid"
    chmod 2755 "$1/setgid"
    printf 'old\n' >"$1/read-only/before 1970"
    touch -d '1969-07-20 20:17:40.123456789 UTC' "$1/read-only/before 1970"
    ln -s '../mode 0600' "$1/read-only/relative link"
    ln -s '/no/such/place' "$1/dangling link"
    printf 'name\n' >"$1/"$'new\nline'
    printf 'name\n' >"$1/"$'not utf-8 \xff'
    truncate -s 8M "$1/hole of 8 MiB"
    touch -h -d '2001-02-03 04:05:06.789 UTC' "$1/dangling link"
    chmod 0555 "$1/read-only"
}

start_server() {
    local line=
    mkdir "$work/root"
    tarn serve --listen 127.0.0.1:0 --root "$work/root" --plaintext >"$work/serve.out" 2>"$work/serve.log" &
    server=$!
    for _ in {1..600}; do
        line=$(head -n 1 "$work/serve.out")
        if [ -n "$line" ] || ! kill -0 "$server" 2>/dev/null; then
            break
        fi
        sleep 0.05
    done
    address=${line#listening on }
    if [ -z "$line" ] || [ "$address" = "$line" ]; then
        cat "$work/serve.log" >&2
        fail "tarn serve did not start"
    fi
}

# measured COMMAND...: runs it, keeps its output in $out, its status in $status and its time in $seconds.
measured() {
    local begin
    begin=$(now)
    status=0
    attended "$@" >"$work/out" || status=$?
    seconds=$(LC_ALL=C awk -v begin="$begin" -v end="$(now)" 'BEGIN { printf "%.3f", end - begin }')
    out=$(tail -n 1 "$work/out")
}

# count WORD: the number before WORD in the summary that tarn printed.
count() {
    grep -oE "[0-9]+ $1" <<<"$out" | head -n 1 | cut -d ' ' -f 1
}

# send STEP TREE NAME
send() {
    local result=ok
    if [ "$(id -u)" = 0 ]; then
        measured tarn cp -r --plaintext "$2" "tarn://$address/$3"
    else # two warnings for every file of another user's are counted in the summary, not shown
        measured tarn cp -r --plaintext "$2" "tarn://$address/$3" 2>"$work/notes"
    fi
    if [ "$status" != 0 ]; then
        [ ! -f "$work/notes" ] || grep -v ' warning ' "$work/notes" | head -n 20 >&2 || true
        result="FAILED (status $status)"
        failed=1
    fi
    row "$1" "$(count files)" "$(count bytes)" "$seconds" "$result"
    details+=("$3: $out")
}

# verify STEP TREE NAME
verify() {
    measured tarn verify "${owners[@]}" "$2" "$work/root/$3"
    local result=same
    if [ "$status" != 0 ]; then
        head -n 20 "$work/out" >&2
        result="DIFFERS"
        failed=1
    fi
    row "$1" "$(count files)" "$(count bytes)" "$seconds" "$result"
}

through_library() {
    local step files bytes seconds result status=0
    mkdir "$work/scratch"
    attended memory_and_view "$1" "$2" "$work/scratch" >"$work/steps" || status=$?
    while IFS=$'\t' read -r step files bytes seconds result; do
        row "$step" "$files" "$bytes" "$seconds" "$result"
    done <"$work/steps"
    if [ "$status" != 0 ]; then
        say "memory slots and restore view: FAILED (status $status)"
        failed=1
    fi
}

[ -d "$source" ] || fail "[$source] is not a directory"
for program in tarn memory_and_view; do
    command -v "$program" >/dev/null || fail "$program is not in PATH; run this as ./dev demo"
done

trap clean_up EXIT
trap 'exit 130' INT
trap 'exit 143' TERM HUP
work=$(mktemp -d "${TMPDIR:-/tmp}/tarn-demo.XXXXXX")
failed=0
details=()
owners=()
if [ "$(id -u)" = 0 ]; then
    say "owner and group are set and compared (this is root)"
else
    owners=(--ignore-owner)
    say "owner and group are left out of the comparison: only root may set them"
fi

make_oddities "$work/oddities"
start_server
say "receiving agent: $address (process $server)"
say ""
say "step                 files           bytes   seconds      MB/s  result"
send "send" "$source" copy
verify "verify" "$source" copy
send "send oddities" "$work/oddities" oddities
verify "verify oddities" "$work/oddities" oddities
through_library "$source" "$work/root/copy"
say ""
printf '%s\n' "${details[@]}"

kill -TERM "$server"
wait "$server" || { say "tarn serve ended with status $?"; failed=1; }
server=
if [ "$failed" != 0 ]; then
    say "demo: something differs or failed"
    exit 1
fi
say "demo: everything arrived"
