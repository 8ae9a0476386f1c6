#!/bin/sh
# Extracts the code samples of a Markdown guide so that the build can compile and run them.
#
# Every ```cpp block becomes OUTDIR/<name>.cpp. Its name is given by an HTML comment
# "<!-- guide-sample: <name> -->" on a line of its own before the block (letters, digits, '-' and
# '_'); a block without one is called sample-<n>, n counting the ```cpp blocks from 1. When the
# next fenced block after a ```cpp block is a ```text block, that block is the sample's expected
# standard output and becomes OUTDIR/<name>.expected.
#
# Refused, with a message and exit status 1: a name given twice, a naming comment that is not of
# that form or that no ```cpp block follows, a block that is never closed, a sample that defines
# main() but is not followed by its ```text block, and a ```text block after a sample without
# main(). A sample with main() is a program to run; one without is only compiled.
#
# OUTDIR ends up holding exactly the extracted .cpp and .expected files; a file whose content has
# not changed keeps its time stamp, so that the build recompiles only the samples that changed.
#
# Usage: extract_guide_samples.sh GUIDE.md OUTDIR
set -eu

guide=$1
outdir=$2

extracted=$(mktemp -d)
trap 'rm -rf "$extracted"' EXIT

awk -v outdir="$extracted" '
    function fail(message) {
        printf "%s:%d: %s\n", FILENAME, FNR, message > "/dev/stderr"
        failed = 1
        exit 1
    }
    function notFollowed() {
        fail("\"guide-sample: " pending "\" is not followed by a ```cpp block")
    }
    # A fence line: ``` followed by the language word, if any.
    /^```/ {
        if (block == "") {
            language = substr($0, 4)
            if (language == "cpp") {
                count++
                name = pending != "" ? pending : sprintf("sample-%d", count)
                pending = ""
                if (name in seen) fail("sample name \"" name "\" is used twice")
                seen[name] = 1
                file = outdir "/" name ".cpp"
                printf "" > file
                hasMain[name] = 0
                block = "cpp"
                blockStart = FNR
            } else {
                if (pending != "") notFollowed()
                if (language == "text" && lastSample != "") {
                    file = outdir "/" lastSample ".expected"
                    printf "" > file
                    hasExpected[lastSample] = 1
                }
                block = language == "" ? "plain" : language
                blockStart = FNR
            }
            next
        }
        # The closing fence.
        if (block == "cpp") {
            close(file)
            lastSample = name
        } else {
            if (block == "text" && lastSample != "") close(file)
            lastSample = ""
        }
        block = ""
        next
    }
    block == "cpp" {
        print > file
        if ($0 ~ /^int main\(/) hasMain[name] = 1
        next
    }
    block == "text" && lastSample != "" { print > file; next }
    block != "" { next }
    /^<!-- guide-sample:/ {
        if (pending != "") notFollowed()
        if ($0 !~ /^<!-- guide-sample: [A-Za-z0-9_-]+ -->$/) fail("malformed sample name: " $0)
        pending = $3
        next
    }
    END {
        if (failed) exit 1
        if (block != "") {
            printf "%s: the ```%s block opened on line %d is not closed\n",
                FILENAME, block, blockStart > "/dev/stderr"
            exit 1
        }
        if (pending != "") {
            printf "%s: \"guide-sample: %s\" is not followed by a ```cpp block\n",
                FILENAME, pending > "/dev/stderr"
            exit 1
        }
        for (sample in hasMain) {
            if (hasMain[sample] && !(sample in hasExpected)) {
                printf "%s: sample %s has a main() but no ```text block with its output\n",
                    FILENAME, sample > "/dev/stderr"
                exit 1
            }
        }
        for (sample in hasExpected) {
            if (!hasMain[sample]) {
                printf "%s: sample %s is followed by a ```text block but has no main()\n",
                    FILENAME, sample > "/dev/stderr"
                exit 1
            }
        }
        if (count == 0) {
            printf "%s: no ```cpp block found\n", FILENAME > "/dev/stderr"
            exit 1
        }
    }
' "$guide"

mkdir -p "$outdir"
for file in "$outdir"/*.cpp "$outdir"/*.expected; do
    [ -e "$file" ] || continue
    [ -e "$extracted/${file##*/}" ] || rm -f "$file"
done
for file in "$extracted"/*; do
    cmp -s "$file" "$outdir/${file##*/}" || cp "$file" "$outdir/"
done
