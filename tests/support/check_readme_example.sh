#!/bin/sh
# Checks that the ```cpp block under the heading "## Embedding example" of a README is, byte for
# byte, the given example source.
# Usage: check_readme_example.sh README.md examples/embed/embed.cpp
set -eu

readme=$1
example=$2

shown=$(mktemp)
trap 'rm -f "$shown"' EXIT

# Print the lines of the first ```cpp block after the heading, up to its closing fence.
awk '
    /^## / { inSection = ($0 == "## Embedding example"); next }
    inSection && !inBlock && $0 == "```cpp" { inBlock = 1; found = 1; next }
    inBlock && $0 == "```" { exit }
    inBlock { print }
    END { if (!found) exit 1 }
' "$readme" >"$shown" || {
    echo "no \`\`\`cpp block under \"## Embedding example\" in $readme" >&2
    exit 1
}

if ! cmp -s "$shown" "$example"; then
    echo "the README's embedding example differs from $example:" >&2
    diff -u "$example" "$shown" >&2 || true
    exit 1
fi
echo "README embedding example matches $example"
