#!/bin/bash
# Prints how many bytes of code and read-only data a program has once it is stripped, and fails when it has
# more than a small camera should spend on it.
#
#   scripts/server_size.sh PROGRAM
set -eu

limit=250000
stripped=$(mktemp)
trap 'rm -f "$stripped"' EXIT
strip -o "$stripped" "$1"
bytes=$(size --format=berkeley "$stripped" | awk 'NR == 2 { print $1 }') # "text" counts read-only data too
echo "$1: $bytes bytes of code and read-only data when stripped (goal: at most $limit)"
[ "$bytes" -le "$limit" ]
