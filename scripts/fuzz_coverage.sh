#!/bin/bash
# Prints how many lines of the folders the committed corpus of a fuzz target runs through, by file. Fails when it is
# less than LEAST percent of a folder.
# usage: fuzz_coverage.sh BUILD TARGET LEAST FOLDER...
set -euo pipefail
build=$1 target=$2 least=$3
shift 3
rm -f "$build/$target".profraw
LLVM_PROFILE_FILE=$build/$target.profraw tests/isolated.sh "$build/bin/velmora-replay-$target" \
    "fuzz/corpus/$target" 2> "$build/$target.log"
llvm-profdata-14 merge -o "$build/$target.profdata" "$build/$target.profraw"
llvm-cov-14 report "$build/bin/velmora-replay-$target" -instr-profile="$build/$target.profdata" \
    -show-functions=false -show-region-summary=false -show-branch-summary=false > "$build/$target.txt"
for folder in "$@"; do
    awk -v folder="$folder/" -v least="$least" '
        index($1, folder) == 1 { lines += $(NF - 2); missed += $(NF - 1); print $1, $(NF - 2), $(NF - 1), $NF }
        END {
            percent = 100 * (1 - missed / lines)
            printf "%s: %d of %d lines, %.1f %%\n", folder, lines - missed, lines, percent
            exit percent < least
        }
    ' "$build/$target.txt"
done | column -t -l 4 -R 2,3,4
