#!/usr/bin/env bash
# The layer check must refuse an upward include: in a copy of the sources, the hashed-names
# layer is made to include the engine's header, and the check has to fail naming both.
set -euo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp -r "$root/src" "$root/include" "$root/scripts" "$work/"
sed -i '1i #include "dme/engine.h"' "$work/src/tree/names/path.cpp"
if output=$("$work/scripts/check-layers.sh" "$work" 2>&1); then
    echo "the check accepted an upward include:"
    echo "$output"
    exit 1
fi
echo "$output"
grep -q 'src/tree/names/path.cpp (layer src/tree/names) includes dme/engine.h of the higher layer src/request/engine' <<<"$output"
