#!/usr/bin/env bash
# Starts the example device service on a free port of 127.0.0.1, drives it with dme-load for
# SECONDS over 30 connections (further dme-load options follow), then stops it. The service's own output goes to
# BUILD_DIR/load-server.log. Fails when dme-load reports an error or too much memory growth, or
# when the service does not start or does not stop cleanly.
#
#     scripts/load.sh BUILD_DIR SECONDS [DME_LOAD_OPTION...]
set -euo pipefail
[ $# -ge 2 ] || { echo "usage: $0 BUILD_DIR SECONDS [DME_LOAD_OPTION...]" >&2; exit 2; }
build=$1
seconds=$2
shift 2
log=$build/load-server.log

"$build/dme-device-server" --port 0 >"$log" 2>&1 &
server=$!
trap 'kill "$server" 2>/dev/null || true' EXIT

# The service prints "serving the example gateway on http://127.0.0.1:<port>/api" once it listens.
url=
for _ in $(seq 100); do
    url=$(sed -n 's|.*serving the example gateway on \(http://[^ ]*/api\).*|\1|p' "$log")
    [ -n "$url" ] && break
    kill -0 "$server" 2>/dev/null || { echo "the service did not start:" >&2; cat "$log" >&2; exit 1; }
    sleep 0.1
done
[ -n "$url" ] || { echo "the service did not report its address:" >&2; cat "$log" >&2; exit 1; }

status=0
"$build/dme-load" --url "$url" --pid "$server" --seconds "$seconds" --connections 30 \
    --streams 3 "$@" || status=$?

kill -TERM "$server"
if ! wait "$server"; then
    echo "the service did not stop cleanly:" >&2
    cat "$log" >&2
    status=1
fi
trap - EXIT
exit $status
