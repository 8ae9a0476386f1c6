#!/usr/bin/env bash
# Runs libFuzzer targets built in BUILD_DIR (see fuzz/), each for SECONDS, starting from its
# committed seed corpus fuzz/corpus/<target>/ and the dictionary fuzz/<target>.dict if there is
# one. New inputs go to BUILD_DIR/fuzz-corpus/<target>/ so that the committed seeds stay as they
# are; an input that fails is saved as BUILD_DIR/fuzz-artifacts/<target>-crash-... (or leak-,
# timeout-, oom-) and the target's whole log is BUILD_DIR/fuzz-logs/<target>.log.
# Any crash, sanitizer report, leak, failed check or input running over 10 s fails the run.
#
#     scripts/fuzz.sh BUILD_DIR SECONDS TARGET...
set -euo pipefail
[ $# -ge 3 ] || { echo "usage: $0 BUILD_DIR SECONDS TARGET..." >&2; exit 2; }
build=$1
seconds=$2
shift 2

# One line from the log's final statistics: runs, speed, coverage, corpus and memory.
summarize() {
    local target=$1 log=$2
    local runs speed added rss last
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    speed=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log")
    added=$(sed -n 's/^stat::new_units_added: *//p' "$log")
    rss=$(sed -n 's/^stat::peak_rss_mb: *//p' "$log")
    last=$(grep -E '^#[0-9]+' "$log" | tail -1)
    echo "fuzz $target: no failure in $runs runs over ${seconds} s ($speed/s);" \
        "$(sed -E 's/.*cov: ([0-9]+) ft: ([0-9]+) corp: ([0-9]+)\/.*/\1 edges, \2 features, corpus \3 inputs/' <<<"$last")," \
        "$added new; peak RSS $rss MB"
}

status=0
for target in "$@"; do
    corpus=$build/fuzz-corpus/$target
    artifacts=$build/fuzz-artifacts
    log=$build/fuzz-logs/$target.log
    mkdir -p "$corpus" "$artifacts" "$(dirname "$log")"
    options=(-max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1
             -artifact_prefix="$artifacts/$target-")
    [ -f "fuzz/$target.dict" ] && options+=(-dict="fuzz/$target.dict")
    echo "== fuzz $target for ${seconds} s (log: $log)"
    if "$build/fuzz/dme-fuzz-$target" "${options[@]}" "$corpus" "fuzz/corpus/$target" \
        >"$log" 2>&1; then
        summarize "$target" "$log"
    else
        echo "fuzz $target: FAILED; the end of its log:"
        tail -n 60 "$log"
        status=1
    fi
done
exit $status
