#!/usr/bin/env bash
# Writes the umbrella headers, or with --check fails when a committed one is not up to date:
# include/dme/dme.h includes every header of the engine (include/dme/*.h), and each optional
# binding's folder include/dme/<binding>/ has its own <binding>.h including that folder's
# headers, so that the engine's umbrella never pulls in a binding's dependencies.
set -euo pipefail
cd "$(dirname "$0")/../include"

# generate DIR UMBRELLA DESCRIPTION: the umbrella text for the headers directly in DIR.
generate() {
    echo '#pragma once'
    echo
    echo "// Includes every public header of $3."
    echo
    for header in $(find "$1" -maxdepth 1 -name '*.h' ! -path "$2" | LC_ALL=C sort); do
        echo "#include \"$header\""
    done
}

status=0
# update DIR UMBRELLA DESCRIPTION
update() {
    if [ "$mode" = check ]; then
        if ! diff <(generate "$@") "$2"; then
            echo "include/$2 is out of date: run scripts/umbrella.sh" >&2
            status=1
        fi
    else
        generate "$@" > "$2"
    fi
}

mode=${1:-write}
[ "$mode" = --check ] && mode=check
update dme dme/dme.h "the data model engine"
for binding in $(find dme -mindepth 1 -maxdepth 1 -type d | LC_ALL=C sort); do
    name=$(basename "$binding")
    update "$binding" "$binding/$name.h" "the ${name^^} binding"
done
exit $status
