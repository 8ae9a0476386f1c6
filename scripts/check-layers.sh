#!/usr/bin/env bash
# Fails when a source or public header includes a header of a layer above its own.
#
# Usage: scripts/check-layers.sh [ROOT]   (ROOT: the repository, by default this one)
#
# The layers, bottom to top, are the folders below; a file belongs to the deepest folder that
# holds it. A public header include/dme/NAME.h belongs to the layer of the folder that holds
# src/.../NAME.cpp, or to the layer given in HEADER_LAYERS for headers without a source; the
# binding folders include/dme/BINDING/ belong to their binding's layer. A header that none of
# these place is an error too, so that every new header is given its layer.
set -euo pipefail
root=$(cd "${1:-$(dirname "$0")/..}" && pwd)

LAYERS=(
    src/tree/names
    src/access/sessions
    src/request
    src/access
    src/notification
    src/tree
    src/values
    src/collections
    src/request/engine
    src/http
    src/mqtt
)
# Public headers that have no source file of their own name.
declare -A HEADER_LAYERS=(
    [result.h]=src/request
    [smart_pointer.h]=src/tree/names
    [dme.h]=src/request/engine
)

rank_of_folder() {  # the rank of the deepest layer folder holding path $1, or nothing
    local path=$1 best="" best_length=0 i
    for i in "${!LAYERS[@]}"; do
        local folder=${LAYERS[$i]}
        if [[ $path == "$folder"/* && ${#folder} -gt $best_length ]]; then
            best=$i
            best_length=${#folder}
        fi
    done
    echo "$best"
}

rank_of_header() {  # the rank of public header dme/$1
    local header=$1
    if [[ $header == */* ]]; then
        rank_of_folder "src/${header%%/*}/"
        return
    fi
    if [ -n "${HEADER_LAYERS[$header]:-}" ]; then
        rank_of_folder "${HEADER_LAYERS[$header]}/"
        return
    fi
    local source
    source=$(cd "$root" && find src -name "${header%.h}.cpp" -not -path 'src/http/*' \
        -not -path 'src/mqtt/*' | head -n 1)
    [ -n "$source" ] && rank_of_folder "$source"
}

rank_of_file() {  # the rank of repository file $1
    case $1 in
        include/dme/*) rank_of_header "${1#include/dme/}" ;;
        *) rank_of_folder "$1" ;;
    esac
}

failures=0
fail() {
    echo "$1" >&2
    failures=$((failures + 1))
}

cd "$root"
for file in $(find src include/dme -name '*.cpp' -o -name '*.h' | LC_ALL=C sort); do
    rank=$(rank_of_file "$file")
    if [ -z "$rank" ]; then
        fail "$file: belongs to no layer (add it to scripts/check-layers.sh)"
        continue
    fi
    while read -r included; do
        case $included in
            dme/*) target="include/$included" ;;
            *) target=$(realpath -m --relative-to=. "$(dirname "$file")/$included") ;;
        esac
        [ -e "$target" ] || continue  # a header of another project
        target_rank=$(rank_of_file "$target")
        if [ -z "$target_rank" ]; then
            fail "$file: includes $included, which belongs to no layer"
        elif [ "$target_rank" -gt "$rank" ]; then
            fail "$file (layer ${LAYERS[$rank]}) includes $included of the higher layer ${LAYERS[$target_rank]}"
        fi
    done < <(sed -n 's/^#include "\([^"]*\)".*/\1/p' "$file")
done

if [ "$failures" -gt 0 ]; then
    echo "$failures upward or unplaced include(s)" >&2
    exit 1
fi
echo "every include points to the same layer or one below"
