#!/usr/bin/env bash
# A fuzzing campaign: every target of BUILD_DIR for SECONDS, as many at once as there are cores
# (scripts/fuzz.sh runs each), then each target's committed corpus fuzz/corpus/<target>/ is
# replaced by the minimised union of itself and what the run found, so that CI's short runs
# start from it. Prints one summary line per target and fails when any target found a failure
# (its input is then in BUILD_DIR/fuzz-artifacts/, and no corpus is replaced). A README in a
# corpus folder (where its seeds came from, their licence) stays.
#
#     scripts/fuzz-campaign.sh BUILD_DIR SECONDS TARGET...
set -euo pipefail
[ $# -ge 3 ] || { echo "usage: $0 BUILD_DIR SECONDS TARGET..." >&2; exit 2; }
build=$1
seconds=$2
shift 2
summaries=$build/fuzz-campaign
rm -rf "$summaries"
mkdir -p "$summaries"

status=0
printf '%s\n' "$@" | xargs -P "$(nproc)" -I{} sh -c \
    "./scripts/fuzz.sh '$build' '$seconds' {} > '$summaries/{}.txt' 2>&1" || status=1
for target in "$@"; do tail -n 1 "$summaries/$target.txt"; done
if [ $status -ne 0 ]; then
    echo "the campaign found failures: see $build/fuzz-artifacts/ and $build/fuzz-logs/" >&2
    exit 1
fi

for target in "$@"; do
    merged=$(mktemp -d)
    "$build/fuzz/dme-fuzz-$target" -merge=1 "$merged" "fuzz/corpus/$target" \
        "$build/fuzz-corpus/$target" >"$build/fuzz-logs/$target-merge.log" 2>&1
    find "fuzz/corpus/$target" -type f ! -name 'README*' -delete
    cp "$merged"/* "fuzz/corpus/$target"/
    rm -rf "$merged"
    echo "corpus $target: $(ls "fuzz/corpus/$target" | wc -l) inputs," \
        "$(du -sk "fuzz/corpus/$target" | cut -f1) KiB"
done
