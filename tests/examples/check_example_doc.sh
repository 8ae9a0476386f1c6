#!/usr/bin/env bash
# Checks that the dme-cli examples of a document show what dme-cli prints. In every ```text block,
# each line that starts with "$ " is a command, run with bash in the directory of dme-cli; its
# standard output must equal the lines that follow it, up to the next command or the end of the
# block. Usage: check_example_doc.sh DOCUMENT DIRECTORY_OF_DME_CLI
set -euo pipefail
document=$1
directory=$2

failures=0
checked=0
command=""
expected=""

check_command() {
    [ -n "$command" ] || return 0
    checked=$((checked + 1))
    local actual
    actual=$(cd "$directory" && bash -c "$command" 2>/dev/null) || true
    if [ "$actual" != "$expected" ]; then
        echo "Output differs for: \$ $command"
        diff <(printf '%s\n' "$expected") <(printf '%s\n' "$actual") || true
        failures=$((failures + 1))
    fi
}

in_block=false
while IFS= read -r line; do
    if ! $in_block; then
        [ "$line" = '```text' ] && in_block=true && command="" && expected=""
        continue
    fi
    if [ "$line" = '```' ]; then
        check_command
        in_block=false
    elif [[ "$line" == '$ '* ]]; then
        check_command
        command=${line#\$ }
        expected=""
    else
        expected+="${expected:+$'\n'}$line"
    fi
done <"$document"

echo "$checked commands checked, $failures differ"
[ "$checked" -gt 0 ] && [ "$failures" -eq 0 ]
