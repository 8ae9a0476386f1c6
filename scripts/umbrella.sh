#!/usr/bin/env bash
# Writes include/dme/dme.h, the umbrella header that includes every public header, or with
# --check fails when the committed one is not up to date.
set -euo pipefail
cd "$(dirname "$0")/.."
generate() {
    echo '#pragma once'
    echo
    echo '// Includes every public header of the data model engine.'
    echo
    for header in $(cd include && find dme -name '*.h' ! -name dme.h | LC_ALL=C sort); do
        echo "#include \"$header\""
    done
}
if [ "${1:-}" = "--check" ]; then
    if ! diff <(generate) include/dme/dme.h; then
        echo "include/dme/dme.h is out of date: run scripts/umbrella.sh" >&2
        exit 1
    fi
else
    generate > include/dme/dme.h
fi
