#!/usr/bin/env bash
# Starts dme-device-server on a free loopback port and drives it with curl: methods, expand and
# select, schema, the error statuses, malformed input leaving the data unchanged, an event
# stream, and concurrent clients. Usage: device_server_test.sh SERVER_BINARY
set -uo pipefail
server=$1
work=$(mktemp -d)
failures=0
passes=0

"$server" --port 0 --cors https://portal.example --access-log "$work/access.log" \
    >"$work/out" 2>"$work/err" &
pid=$!
cleanup() { kill "$pid" 2>/dev/null; wait "$pid" 2>/dev/null; rm -rf "$work"; }
trap cleanup EXIT

for _ in $(seq 100); do
    port=$(sed -n 's|.*serving the example gateway on http://127.0.0.1:\([0-9]*\)/api.*|\1|p' "$work/out")
    [ -n "$port" ] && break
    sleep 0.1
done
if [ -z "$port" ]; then
    echo "server did not start"; cat "$work/out" "$work/err"; exit 1
fi
base="http://127.0.0.1:$port/api"

# header NAME CURL_ARGS...: the value of the answer's header NAME (case-insensitive).
header() {
    local name=$1
    shift
    curl -s -m 10 -D - -o /dev/null "$@" | tr -d '\r' | sed -n "s/^$name: //Ip"
}

# expect NAME ACTUAL EXPECTED
expect() {
    if [ "$2" = "$3" ]; then passes=$((passes + 1)); else
        failures=$((failures + 1)); echo "FAIL $1: '$2' (expected '$3')"; fi
}

# check NAME EXPECTED_STATUS EXPECTED_BODY_REGEX CURL_ARGS...
check() {
    local name=$1 status=$2 body=$3
    shift 3
    local answer code
    answer=$(curl -s -m 10 -o "$work/body" -w '%{http_code}' "$@")
    code=$answer
    if [ "$code" = "$status" ] && { [ -z "$body" ] || grep -Eq -- "$body" "$work/body"; }; then
        passes=$((passes + 1))
    else
        failures=$((failures + 1))
        echo "FAIL $name: status $code (expected $status), body: $(head -c 400 "$work/body")"
    fi
}

guest=(-u guest:guest)
admin=(-u admin:admin)
operator=(-u operator:operator)

check read-leaf 200 '^"gateway"$' "${guest[@]}" "$base/system/hostname"
check read-with-expand 200 '"href":"/users/1","id":"1","name":"alice"' "${guest[@]}" "$base/users?expand=2"
check read-network-expanded 200 '"members":\[\{"href":"/network/interfaces/wan","id":"wan","device":"eth1"' \
    "${guest[@]}" "$base/network?expand=3"
check read-with-select 200 '^\{"href":"/system","hostname":"gateway","logLevel":"warning"\}$' \
    "${guest[@]}" "$base/system?select=hostname,logLevel"
check schema 200 '^\{"type":"string","default":"","minSize":1,"maxSize":63\}$' "${admin[@]}" "$base/schema/system/hostname"
check update 200 '' "${admin[@]}" -X PUT --json '"vara"' "$base/system/hostname"
check read-back 200 '^"vara"$' "${guest[@]}" "$base/system/hostname"
check patch 200 '' "${operator[@]}" -X PATCH --json '1400' "$base/network/interfaces/lan/mtu"
check create 201 '"name":"carol"' "${admin[@]}" -X POST --json '{"name":"carol","role":"operator"}' "$base/users"
# A created item is named in Location.
location=$(curl -s -m 10 -D - -o /dev/null "${admin[@]}" -X POST --json '{"name":"dave","role":"guest"}' \
    "$base/users" | tr -d '\r' | sed -n 's/^[Ll]ocation: //p')
if [ "$location" = "/api/users/4" ]; then passes=$((passes + 1)); else
    failures=$((failures + 1)); echo "FAIL created-location: '$location'"; fi
check head-has-no-body 200 '' "${guest[@]}" -I "$base/system/hostname"
check delete 204 '' "${admin[@]}" -X DELETE "$base/users/3"
check deleted-is-gone 404 '"error"' "${admin[@]}" "$base/users/3"
check no-credentials 401 '' "$base/system"
check wrong-password 401 '' -u guest:nope "$base/system"
check refused-update 403 '"error"' "${guest[@]}" -X PUT --json '"x"' "$base/system/hostname"
check not-found 404 '"error"' "${guest[@]}" "$base/nosuch"
check not-allowed 405 '"error"' "${admin[@]}" -X DELETE "$base/system/hostname"
check invalid-value 400 '"message":"Value above maximum"' "${operator[@]}" -X PUT --json '9001' "$base/network/interfaces/lan/mtu"
check not-supported 501 '"error"' "${admin[@]}" -X PUT --json '"X"' "$base/factory/model"
check malformed-json 400 '"error"' "${admin[@]}" -X PUT --json '{"hostname":' "$base/system"
check malformed-query 400 '"message":"Malformed query"' "${guest[@]}" "$base/system?a=%zz"
check too-large 413 '' "${admin[@]}" -X PUT -H 'Content-Type: application/json' \
    --data-binary @<(head -c 1100000 /dev/zero | tr '\0' ' ') "$base/system/hostname"
# Writes are all-or-nothing: a body with one good and one bad member changes nothing, and a body
# that cannot be an object's is refused as a whole.
check half-bad-update 400 '"message":"Value not in list"' "${admin[@]}" -X PUT \
    --json '{"hostname":"half","logLevel":"bogus"}' "$base/system"
check array-to-structure 400 '"message":"Invalid type"' "${admin[@]}" -X PUT --json '["asd"]' \
    "$base/system"
check unchanged-after-bad-input 200 '^"vara"$' "${guest[@]}" "$base/system/hostname"
check mtu-unchanged 200 '^1400$' "${guest[@]}" "$base/network/interfaces/lan/mtu"

# OPTIONS and Allow follow the node and the session.
check options 204 '' "${admin[@]}" -X OPTIONS "$base/system/hostname"
expect options-admin "$(header allow "${admin[@]}" -X OPTIONS "$base/system/hostname")" \
    'OPTIONS, GET, HEAD, PUT, PATCH'
expect options-guest "$(header allow "${guest[@]}" -X OPTIONS "$base/system/hostname")" 'OPTIONS, GET, HEAD'
expect options-collection "$(header allow "${admin[@]}" -X OPTIONS "$base/users")" \
    'OPTIONS, GET, HEAD, PUT, PATCH, POST'
expect allow-on-engine-405 "$(header allow "${admin[@]}" -X DELETE "$base/system/hostname")" \
    'OPTIONS, GET, HEAD, PUT, PATCH'

# Entity tags: 304 for a current copy, 412 for a write based on a stale one.
tag=$(header etag "${admin[@]}" "$base/system/hostname")
check if-none-match 304 '' "${admin[@]}" -H "If-None-Match: $tag" "$base/system/hostname"
check if-match 200 '' "${admin[@]}" -X PUT -H "If-Match: $tag" --json '"tagged"' "$base/system/hostname"
check if-match-stale 412 '"Precondition Failed"' "${admin[@]}" -X PUT -H "If-Match: $tag" \
    --json '"lost"' "$base/system/hostname"
check stale-write-changed-nothing 200 '^"tagged"$' "${guest[@]}" "$base/system/hostname"

# Media types.
check form-body 415 '"Unsupported Media Type"' "${admin[@]}" -X PUT --data '"x"' "$base/system/hostname"
check xml-only 406 '"Not Acceptable"' "${guest[@]}" -H 'Accept: application/xml' "$base/system/hostname"

# CORS: a preflight without credentials, then the answer exposed to the allowed origin only.
check preflight 204 '' -X OPTIONS -H 'Origin: https://portal.example' \
    -H 'Access-Control-Request-Method: PUT' "$base/system/hostname"
expect cors-origin "$(header access-control-allow-origin "${guest[@]}" -H 'Origin: https://portal.example' \
    "$base/system/hostname")" 'https://portal.example'
expect cors-other-origin "$(header access-control-allow-origin "${guest[@]}" \
    -H 'Origin: https://elsewhere.example' "$base/system/hostname")" ''

# Errors: the parser's reason and offset, long echoes cut, secrets never echoed.
check malformed-json-offset 400 '"Malformed JSON","details":\["invalid JSON at byte 12: .*","12"\]' \
    "${admin[@]}" -X PUT --json '{"hostname":' "$base/system"
check long-echo-cut 400 '"details":\["a{125}\\u2026","63"\]' "${admin[@]}" -X PUT \
    --json "\"$(head -c 1000 /dev/zero | tr '\0' a)\"" "$base/system/hostname"
check secret-not-echoed 400 '"details":\["\(secret\)","8"\]' "${admin[@]}" -X POST \
    --json '{"name":"eve","password":"short"}' "$base/users"

# Percent-encoding: ids with a space and a non-ASCII letter, encoded in hrefs and Location.
check encoded-path 200 '^"tagged"$' "${guest[@]}" "$base/system/host%6Eame"
check encoded-slash 200 '^"tagged"$' "${guest[@]}" "$base/system%2Fhostname"
location=$(header location "${admin[@]}" --json '{"id":"zo\u00e9 x","name":"zoe"}' "$base/users")
expect encoded-location "$location" '/api/users/zo%C3%A9%20x'
check encoded-href 200 '^\{"href":"/users/zo%C3%A9%20x","id":"zo\\u00e9 x"' "${admin[@]}" \
    "$base/users/zo%C3%A9%20x?select=id"

# Paging: the count stays the total, Link names the next page.
check paged 200 '"count":4,"members":\[\{"href":"/users/1"\},\{"href":"/users/2"\}\]' \
    "${admin[@]}" "$base/users?limit=2"
expect paged-link "$(header link "${admin[@]}" "$base/users?limit=2")" \
    '</api/users?limit=2&offset=2>; rel="next"'
expect last-page-link "$(header link "${admin[@]}" "$base/users?limit=2&offset=2")" ''

# An event stream: the first state at once, then a change after an update.
curl -s -N -m 8 "${guest[@]}" -H 'Accept: text/event-stream' \
    "$base/events/system/hostname?interval=100" >"$work/events" &
stream=$!
for _ in $(seq 50); do grep -q '^data: "tagged"' "$work/events" && break; sleep 0.1; done
curl -s -m 5 "${admin[@]}" -X PUT --json '"streamed"' "$base/system/hostname" >/dev/null
for _ in $(seq 50); do grep -q '^data: "streamed"' "$work/events" && break; sleep 0.1; done
kill "$stream" 2>/dev/null; wait "$stream" 2>/dev/null
if grep -q '^event: change' "$work/events" && grep -q '^data: "tagged"' "$work/events" &&
   grep -q '^data: "streamed"' "$work/events"; then
    passes=$((passes + 1))
else
    failures=$((failures + 1)); echo "FAIL event-stream: $(cat "$work/events")"
fi

# Eight concurrent clients making 200 requests each.
for client in $(seq 8); do
    (
        bad=0
        for _ in $(seq 200); do
            code=$(curl -s -m 10 -o /dev/null -w '%{http_code}' "${guest[@]}" "$base/system?expand=2")
            [ "$code" = 200 ] || bad=$((bad + 1))
        done
        echo "$bad" >"$work/client-$client"
    ) &
done
wait $(jobs -p | grep -v "^$pid$") 2>/dev/null
bad=$(cat "$work"/client-* | awk '{ s += $1 } END { print s + 0 }')
if [ "$bad" = 0 ]; then passes=$((passes + 1)); else failures=$((failures + 1)); echo "FAIL concurrent: $bad failed requests"; fi

# SIGTERM stops the server cleanly, ending an open event stream with a complete answer.
curl -s -N -m 20 "${guest[@]}" -H 'Accept: text/event-stream' "$base/events/system/hostname" \
    >"$work/last-stream" &
stream=$!
for _ in $(seq 50); do grep -q '^data:' "$work/last-stream" && break; sleep 0.1; done
kill -TERM "$pid"
if wait "$pid" && grep -q 'stopped' "$work/out"; then
    passes=$((passes + 1))
else
    failures=$((failures + 1)); echo "FAIL clean stop"
fi
wait "$stream"
expect stream-ends-cleanly "$?" 0
expect stream-farewell "$(grep -c '^: server stopping' "$work/last-stream")" 1

# The access log has a line per request.
expect access-log "$(grep -c '^[0-9T:Z-]* admin "PUT /api/system/hostname" 200 ' "$work/access.log")" 3
echo "$passes passed, $failures failed"
[ "$failures" = 0 ]
