#!/usr/bin/env bash
# Serves the example gateway over HTTPS with a throwaway certificate made by openssl and drives
# it with curl --cacert: a read, a write, a refused login and an event stream; plain HTTP sent
# to the TLS port fails and the server keeps serving. Usage: https_test.sh SERVER_BINARY
set -uo pipefail
server=$1
work=$(mktemp -d)
pid=""
cleanup() { [ -n "$pid" ] && kill "$pid" 2>/dev/null; wait 2>/dev/null; rm -rf "$work"; }
trap cleanup EXIT
failures=0
passes=0

if ! openssl req -x509 -newkey rsa:2048 -nodes -keyout "$work/key.pem" -out "$work/cert.pem" \
    -days 2 -subj "/CN=127.0.0.1" -addext "subjectAltName=IP:127.0.0.1" 2>"$work/openssl"; then
    echo "cannot make a certificate:"; cat "$work/openssl"; exit 1
fi

"$server" --port 0 --tls-cert "$work/cert.pem" --tls-key "$work/key.pem" >"$work/out" 2>"$work/err" &
pid=$!
for _ in $(seq 100); do
    port=$(sed -n 's|.*serving the example gateway on https://127.0.0.1:\([0-9]*\)/api.*|\1|p' "$work/out")
    [ -n "$port" ] && break
    sleep 0.1
done
[ -n "${port:-}" ] || { echo "server did not start"; cat "$work/out" "$work/err"; exit 1; }
base="https://127.0.0.1:$port/api"
tls=(--cacert "$work/cert.pem")

# check NAME EXPECTED_STATUS EXPECTED_BODY_REGEX CURL_ARGS...
check() {
    local name=$1 status=$2 body=$3
    shift 3
    local code
    code=$(curl -s -m 10 -o "$work/body" -w '%{http_code}' "${tls[@]}" "$@")
    if [ "$code" = "$status" ] && grep -Eq -- "$body" "$work/body"; then
        passes=$((passes + 1))
    else
        failures=$((failures + 1))
        echo "FAIL $name: status $code (expected $status), body: $(head -c 400 "$work/body")"
    fi
}

check read 200 '^"gateway"$' -u guest:guest "$base/system/hostname"
check write 200 '' -u admin:admin -X PUT --json '"secure"' "$base/system/hostname"
check read-back 200 '^"secure"$' -u guest:guest "$base/system/hostname"
check refused-login 401 '"error"' -u guest:wrong "$base/system/hostname"

# Plain HTTP to the TLS port gets no HTTP answer, and the server goes on serving HTTPS.
plain=$(curl -s -m 5 -o /dev/null -w '%{http_code}' "http://127.0.0.1:$port/api/system/hostname")
if [ "$plain" = "000" ]; then passes=$((passes + 1)); else
    failures=$((failures + 1)); echo "FAIL plain-http: answered $plain"; fi
check still-serving 200 '^"secure"$' -u guest:guest "$base/system/hostname"

# A query of 2,000 arguments, on which the HTTP library stalls, is closed without an answer
# (no plain bytes are written into the TLS connection) well before the request deadline.
query=$(seq -s '&' -f 'a%g=1' 0 1999)
start=$(date +%s%N)
many=$(curl -s -m 4 -o /dev/null -w '%{http_code}' "${tls[@]}" -u guest:guest "$base/system/hostname?$query")
took=$((($(date +%s%N) - start) / 1000000))
if [ "$many" = "000" ] && [ "$took" -lt 3000 ]; then passes=$((passes + 1)); else
    failures=$((failures + 1)); echo "FAIL many-arguments-over-tls: answered $many after $took ms"; fi
check still-serving-after-many-arguments 200 '^"secure"$' -u guest:guest "$base/system/hostname"

# An event stream over TLS: the first state at once, then a change.
curl -s -N -m 8 "${tls[@]}" -u guest:guest -H 'Accept: text/event-stream' \
    "$base/events/system/hostname?interval=100" >"$work/events" &
stream=$!
for _ in $(seq 50); do grep -q '^data: "secure"' "$work/events" && break; sleep 0.1; done
curl -s -m 5 "${tls[@]}" -u admin:admin -X PUT --json '"streamed"' "$base/system/hostname" >/dev/null
for _ in $(seq 50); do grep -q '^data: "streamed"' "$work/events" && break; sleep 0.1; done
kill "$stream" 2>/dev/null; wait "$stream" 2>/dev/null
if grep -q '^data: "secure"' "$work/events" && grep -q '^data: "streamed"' "$work/events"; then
    passes=$((passes + 1))
else
    failures=$((failures + 1)); echo "FAIL event-stream: $(cat "$work/events")"
fi

echo "$passes passed, $failures failed"
[ "$failures" -eq 0 ]
