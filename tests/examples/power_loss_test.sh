#!/usr/bin/env bash
# Power loss: runs dme-device-server with a state directory, and in each round writes the
# hostname, waits until that write is in the saved file, sends a burst of further writes and
# kills the server with SIGKILL at a random moment of the burst. At the next start the saved
# file must have been complete (the server reports no corrupt file, nothing is moved aside) and
# the hostname must be the one saved before the kill or a later one of the burst.
#
#     power_loss_test.sh DME_DEVICE_SERVER [ROUNDS]
set -euo pipefail
server=$1
rounds=${2:-100}
work=$(mktemp -d)
pid=""
cleanup() {
    [ -n "$pid" ] && kill -9 "$pid" 2>/dev/null
    rm -rf "$work"
}
trap cleanup EXIT
admin=(-u admin:admin)
port=""

fail() {
    echo "round $round: $1"
    [ -f "$work/err" ] && cat "$work/err"
    exit 1
}

start_server() {
    : >"$work/out"
    "$server" --port 0 --state-dir "$work/state" --state-interval 50 >"$work/out" 2>"$work/err" &
    pid=$!
    for _ in $(seq 200); do
        port=$(sed -n 's|.*http://127.0.0.1:\([0-9]*\)/api$|\1|p' "$work/out")
        [ -n "$port" ] && return 0
        sleep 0.05
    done
    fail "the server did not start"
}

# The number n of the hostname "h<n>" that the server holds, or 0 for another name.
served_number() {
    local name
    name=$(curl -s -m 5 "${admin[@]}" "http://127.0.0.1:$port/api/system/hostname")
    sed -n 's/^"h\([0-9]*\)"$/\1/p' <<<"$name" | grep . || echo 0
}

saved_number() {
    sed -n 's/.*"hostname": "h\([0-9]*\)".*/\1/p' "$work/state/configuration.json" 2>/dev/null |
        head -n 1
}

put() {
    curl -s -m 5 -o /dev/null -w '%{http_code}' "${admin[@]}" -X PUT --json "\"h$1\"" \
        "http://127.0.0.1:$port/api/system/hostname" || true
}

mkdir "$work/state"
last=0   # the number of the last write sent
saved=0  # the number of the last write seen in the saved file before a kill
for round in $(seq "$rounds"); do
    start_server
    if grep -q "not a saved configuration\|not restored" "$work/err"; then
        fail "the saved file was not restored"
    fi
    [ ! -e "$work/state/configuration.json.corrupt" ] || fail "a corrupt file was moved aside"
    served=$(served_number)
    [ "$served" -ge "$saved" ] || fail "restored h$served although h$saved had been saved"
    [ "$served" -le "$last" ] || fail "restored h$served, which was never written"

    last=$((last + 1))
    [ "$(put "$last")" = 200 ] || fail "the write of h$last was refused"
    for _ in $(seq 500); do
        [ "$(saved_number)" = "$last" ] && break
        sleep 0.01
    done
    [ "$(saved_number)" = "$last" ] || fail "h$last was not saved within 5 s"
    saved=$last

    first=$((last + 1))
    last=$((last + 50))
    (for n in $(seq "$first" "$last"); do put "$n" >/dev/null; done) &
    burst=$!
    sleep "0.$(printf '%03d' $((RANDOM % 400)))"
    kill -9 "$pid"
    wait "$pid" 2>/dev/null || true
    pid=""
    wait "$burst" 2>/dev/null || true
done
echo "power loss: $rounds rounds of SIGKILL, every restart complete, no saved write lost"
