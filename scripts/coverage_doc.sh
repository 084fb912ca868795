#!/bin/bash
# Writes docs/coverage.md: everything that the server's tables define, with the test that covers it.
#
#   scripts/coverage_doc.sh [--check] ROWS_PROGRAM
#
# With --check nothing is written; it fails when the file is out of date. Either way it fails when a row has
# no test, a named test does not exist, or a line of scripts/coverage/tests.txt fits no row.
set -eu
check=''
[ "$1" = --check ] && check=1 && shift
rows_program=$1
cd "$(dirname "$0")/.."
failed=0

rows() {
    "$rows_program"
    # Threads and System V objects have no table; their names stand where they are started and defined.
    grep -rhoE '(Start|StartThread|StartDetachedThread)\([[:space:]]*"[A-Za-z]+"' server camera media app |
        sed -E 's/.*"(.*)"/thread\t\1/' | sort -u
    grep -rhoE '"AVStream[A-Za-z]*Thread"' media | sed -E 's/"(.*)"/thread\t\1/' | sort -u
    grep -rhoE 'constexpr key_t k[A-Za-z]+' --include='*.h' common camera media |
        sed 's/.* /shared object\t/' | sort -u
}

test_exists() { # Suite.Name[/parameter] or scene.NAME
    local suite=${1%%.*} name=${1#*.}
    if [ "$suite" = scene ]; then
        [ -x "tests/${name}_scene.sh" ]
        return
    fi
    if [[ $name == */* ]]; then
        [ -e "tests/e2e/data/${name#*/}.seq" ] || return 1
        name=${name%%/*}
    fi
    grep -rqE "^TEST(_F|_P)?\($suite, $name\)" tests --include='*.cpp'
}

mapfile -t lines < <(grep -v '^#' scripts/coverage/tests.txt)
declare -A used known
out=$(mktemp)
trap 'rm -f "$out"' EXIT
{
    printf '# What is tested where\n\n'
    # shellcheck disable=SC2016 # Markdown
    printf 'Made by `./run docs` from the tables of the server and scripts/coverage/tests.txt; do not edit.\n'
} > "$out"
last_kind=''
while IFS=$'\t' read -r kind name; do
    test=''
    for i in "${!lines[@]}"; do
        IFS=$'\t' read -r line_kind glob line_test <<< "${lines[$i]}"
        # shellcheck disable=SC2053 # a pattern on purpose
        if [[ $kind == "$line_kind" && $name == $glob ]]; then
            test=$line_test used[$i]=1
            break
        fi
    done
    if [ -z "$test" ]; then
        echo "coverage: no test covers $kind '$name'" >&2
        failed=1
    elif [ -z "${known[$test]-}" ]; then
        known[$test]=1
        test_exists "$test" || { echo "coverage: there is no test $test" >&2 && failed=1; }
    fi
    if [ "$kind" != "$last_kind" ]; then
        printf '\n## %s\n\n| %s | test |\n|---|---|\n' "${kind^}" "$kind"
        last_kind=$kind
    fi
    # shellcheck disable=SC2016 # Markdown
    printf '| `%s` | %s |\n' "$name" "$test"
done < <(rows) >> "$out"
for i in "${!lines[@]}"; do
    [ -n "${used[$i]-}" ] || { echo "coverage: no row fits '${lines[$i]}'" >&2 && failed=1; }
done
if [ -n "$check" ]; then
    cmp -s "$out" docs/coverage.md || { echo 'coverage: docs/coverage.md is out of date; ./run docs' >&2 && failed=1; }
else
    cp "$out" docs/coverage.md
fi
exit $failed
