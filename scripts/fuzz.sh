#!/bin/bash
# Lets fuzz targets run, one after another, so many seconds in all. New inputs go to
# BUILD/corpus-TARGET, beside the committed corpus, so that the next campaign goes on where this one ended.
# A finding is written to BUILD/TARGET-crash-*, and the exit status is then 1.
# usage: fuzz.sh BUILD SECONDS TARGET...
set -eu
build=$1 seconds=$2
shift 2
findings=0

campaign() { # TARGET SECONDS MOST_BYTES
    local target=$1 corpus=$build/corpus-$1 log=$build/$1.log status=0 options=()
    mkdir -p "$corpus"
    [ ! -f "fuzz/$target.dict" ] || options=("-dict=fuzz/$target.dict")
    printf '%s: %d s, inputs of at most %d bytes, log in %s\n' "$target" "$2" "$3" "$log"
    tests/isolated.sh "$build/bin/velmora-fuzz-$target" "-max_total_time=$2" -timeout=120 \
        "-max_len=$3" -use_memcmp=0 -print_final_stats=1 "-artifact_prefix=$build/$target-" "${options[@]}" \
        "$corpus" "fuzz/corpus/$target" > "$log" 2>&1 || status=$?
    sed -n -e 's/^stat::number_of_executed_units: */  executions /p' \
        -e 's/^stat::average_exec_per_sec: */  a second /p' \
        -e 's/^stat::new_units_added: */  new units /p' \
        -e 's/.*Test unit written to /  finding /p' "$log"
    if [ $status -ne 0 ]; then
        findings=1
        grep -a -m 1 -e VIOLATION -e 'ERROR:' -e 'runtime error' "$log" || tail -n 5 "$log"
    fi
}

# Most of the time with inputs of a few messages, which are quick, the rest with as much as a request can be.
for target in "$@"; do
    campaign "$target" $((seconds * 3 / 4 / $#)) 1024
    campaign "$target" $((seconds / 4 / $#)) 16384
done
exit $findings
