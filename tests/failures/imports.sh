#!/bin/bash
# Says which functions a program imports that calls.txt does not let fail and infallible.txt does not
# excuse, and which rows stand for nothing: imports.sh PROGRAM
set -eu
cd "$(dirname "$0")"
imported=$(nm -D --undefined-only "$1" | awk '{ sub(/@.*/, "", $2); print $2 }' | sort -u)
fallible=$(awk '!/^#/ { print $1 }' calls.txt | sort -u)
excused=$(awk '!/^#/ && NF > 1 { print $1 }' infallible.txt | sort -u)
unknown=$(comm -23 <(echo "$imported") <(sort -u <(echo "$fallible") <(echo "$excused")))
both=$(comm -12 <(echo "$fallible") <(echo "$excused"))
idle=$(comm -13 <(echo "$imported") <(echo "$fallible") | grep -vx malloc || true) # the parser's
[ -n "$imported" ] || { echo "$1 imports nothing" && exit 1; }
[ -z "$unknown$both$idle" ] || { echo "unknown: $unknown; in both files: $both; not imported: $idle" && exit 1; }
