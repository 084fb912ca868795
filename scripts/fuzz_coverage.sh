#!/bin/bash
# Prints how much of the server the committed corpus of a fuzz target runs through, by folder and file.
# usage: fuzz_coverage.sh BUILD TARGET FOLDER...
set -eu
build=$1 target=$2
shift 2
rm -f "$build/$target".profraw
LLVM_PROFILE_FILE=$build/$target.profraw tests/isolated.sh "$build/bin/velmora-replay-$target" \
    "fuzz/corpus/$target" 2> "$build/$target.log"
llvm-profdata-14 merge -o "$build/$target.profdata" "$build/$target.profraw"
llvm-cov-14 report "$build/bin/velmora-replay-$target" -instr-profile="$build/$target.profdata" \
    -show-region-summary=false "$@"
