#!/usr/bin/env bash
# Runs the console's browser tests against a dme-device-server of its own on a free port.
#   run_console_test.sh DME_DEVICE_SERVER OUTPUT_DIR
set -euo pipefail
server_binary=$1
output_dir=$2
here=$(cd "$(dirname "$0")" && pwd)
mkdir -p "$output_dir"
log=$(mktemp)
"$server_binary" --port 0 >"$log" 2>&1 &
server=$!
trap 'kill "$server" 2>/dev/null; wait "$server" 2>/dev/null; rm -f "$log"' EXIT
for _ in $(seq 100); do
    port=$(sed -n 's|.*serving the example gateway on http://127.0.0.1:\([0-9]*\)/api|\1|p' "$log")
    [ -n "$port" ] && break
    sleep 0.1
done
if [ -z "$port" ]; then
    echo "the server did not start:" >&2
    cat "$log" >&2
    exit 1
fi
DME_CONSOLE_URL="http://127.0.0.1:$port/" DME_API_URL="http://127.0.0.1:$port/api" \
    DME_SCREENSHOT="$output_dir/console.png" /usr/bin/python3 "$here/console_test.py"
