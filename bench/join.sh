#!/bin/bash
# Time to the first picture of `velmora live`, which asks for a key frame when it starts: so many joins to a
# bench camera whose groups of pictures last two seconds. Runs in the sandbox.
#
#   tests/sandbox.sh bench/join.sh PROGRAMS CLIPS [JOINS]
set -eu -o pipefail
programs=$1 clips=$2 joins=${3:-100}
log=$(mktemp)
"$programs/velmora-bench-camera" --clips "$clips" --server "$programs/Velmora_server" > "$log" 2>&1 &
bench=$!
trap 'kill $bench; wait $bench || true; rm -f "$log"' EXIT
ready=''
for _ in $(seq 200); do
    on-recorder-side "$programs/velmora" time "$CAMERA" > /dev/null 2>&1 && ready=1 && break
    sleep 0.1
done
[ -n "$ready" ] || { cat "$log" >&2 && exit 1; }
for _ in $(seq "$joins"); do
    on-recorder-side "$programs/velmora" live "$CAMERA" --duration 0.1 --json |
        grep -o '"timeToFirstPicture":[0-9.e-]*' | cut -d: -f2
    sleep 0.0$((RANDOM % 10))$((RANDOM % 10)) # anywhere in a group of pictures
done | sort -g | awk -v joins="$joins" '{ value[NR] = $1 * 1000 } END {
    p95 = value[int(NR * 0.95 + 0.999)]
    printf "first picture after connecting, %d joins: p50 %.0f ms, p95 %.0f ms, max %.0f ms (goal: p95 250 ms)\n",
        NR, value[int(NR * 0.5 + 0.999)], p95, value[NR]
    exit NR != joins || p95 > 250 }'
