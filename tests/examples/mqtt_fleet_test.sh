#!/usr/bin/env bash
# Two example gateways, devices gw1 and gw2 of a real Mosquitto broker beside their HTTP
# servers, driven by dme-fleet: list, read from one and from all, a refused and an accepted
# update on all, a watched change made over HTTP, and the exit statuses of errors.
# Usage: mqtt_fleet_test.sh SERVER_BINARY FLEET_BINARY
set -uo pipefail
server=$1
fleet=$2
work=$(mktemp -d)
pids=()
cleanup() { for p in "${pids[@]}"; do kill "$p" 2>/dev/null; done; wait 2>/dev/null; rm -rf "$work"; }
trap cleanup EXIT
failures=0
passes=0

port=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1",0)); print(s.getsockname()[1])')
printf 'listener %s 127.0.0.1\nallow_anonymous true\nuser %s\n' "$port" "$(id -un)" >"$work/broker.conf"
mosquitto -c "$work/broker.conf" >"$work/broker.log" 2>&1 &
pids+=($!)

for device in gw1 gw2; do
    "$server" --port 0 --mqtt "127.0.0.1:$port" --device-id "$device" --mqtt-event /system/location \
        >"$work/$device.out" 2>"$work/$device.err" &
    pids+=($!)
done
run() { "$fleet" --broker "127.0.0.1:$port" --timeout 10000 "$@"; }
for _ in $(seq 100); do
    [ "$(run list 2>/dev/null | paste -sd,)" = "gw1,gw2" ] && break
    sleep 0.1
done

# check NAME EXPECTED_EXIT EXPECTED_OUTPUT_REGEX COMMAND...
check() {
    local name=$1 status=$2 output=$3
    shift 3
    "$@" >"$work/output" 2>&1
    local code=$?
    if [ "$code" = "$status" ] && grep -Eq -- "$output" "$work/output"; then
        passes=$((passes + 1))
    else
        failures=$((failures + 1))
        echo "FAIL $name: exit $code (expected $status), output: $(head -c 400 "$work/output")"
    fi
}

check list 0 '^gw1$' run list
check read-one 0 '^"gateway"$' run --user guest read system/hostname --device gw1
check read-all 0 '^gw2 200 \{"href":"/network".*"interfaces":\{"href"' \
    run --user guest read 'network?expand=1' --all
check refused-update 1 '^gw1 403 \{"error"' run --user guest update system/location '"roof"' --all
check update-all 0 '^gw2 200' run --user admin update system/location '"roof"' --all
check read-back 0 '^gw1 200 "roof"$' run --user guest read system/location --all
check bad-body 1 '"Malformed JSON"' run --user admin update system '{"location":' --device gw1
check not-found 1 '"code":404' run --user guest read nowhere --device gw2
check no-device 1 '^no answer$' run --user guest --timeout 500 read system --device gw9
check unknown-user 1 '^gw1 403' run --user root read system --all
check usage 2 'needs either --device ID or --all' run read system
check no-broker 3 'Cannot connect' "$fleet" --broker 127.0.0.1:1 list
check help 0 '^usage: dme-fleet' "$fleet" --help
check create 0 '"name":"carol"' \
    run --user admin create users '{"name":"carol","role":"guest","enabled":true,"password":"long enough"}' --device gw1
check delete 0 '' run --user admin delete users/3 --device gw1
check deleted 1 '"code":404' run --user admin read users/3 --device gw1
check schema 0 '"type"' run --user guest schema system/timezoneOffset --device gw2

# A third device under another prefix runs every request as the operator, whoever is named.
"$server" --port 0 --mqtt "127.0.0.1:$port" --device-id gw3 --mqtt-prefix site2 \
    --mqtt-user operator >"$work/gw3.out" 2>"$work/gw3.err" &
pids+=($!)
for _ in $(seq 100); do
    [ "$(run --prefix site2 list 2>/dev/null)" = "gw3" ] && break
    sleep 0.1
done
check fixed-user-read 0 '^"gateway"$' run --prefix site2 read system/hostname --device gw3
check fixed-user-network 0 '' run --prefix site2 --user guest update network/interfaces/wan/mtu 1400 --device gw3
check fixed-user-system 1 '"code":403' run --prefix site2 --user admin update system/location '"x"' --device gw3
check other-prefix 0 '^gw1$' run list

# A change made over HTTP reaches a watcher through the broker.
http=$(sed -n 's|.*serving the example gateway on http://127.0.0.1:\([0-9]*\)/api.*|\1|p' "$work/gw1.out")
run watch system/location --device gw1 --count 2 >"$work/events" &
watcher=$!
for _ in $(seq 50); do grep -q '"roof"' "$work/events" && break; sleep 0.1; done
curl -s -m 5 -u admin:admin -X PUT --json '"cellar"' "http://127.0.0.1:$http/api/system/location" >/dev/null
for _ in $(seq 100); do kill -0 "$watcher" 2>/dev/null || break; sleep 0.1; done
kill "$watcher" 2>/dev/null
if grep -q '^gw1 /system/location "cellar"$' "$work/events"; then passes=$((passes + 1)); else
    failures=$((failures + 1)); echo "FAIL watch: $(cat "$work/events")"; fi

# A stopped device's presence turns false through its last will.
kill "${pids[1]}"
wait "${pids[1]}" 2>/dev/null
check presence-after-stop 0 '^gw2$' run list
if run list | grep -q '^gw1$'; then
    failures=$((failures + 1)); echo "FAIL presence: gw1 still listed"; else passes=$((passes + 1)); fi

echo "$passes passed, $failures failed"
[ "$failures" -eq 0 ]
