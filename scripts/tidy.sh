#!/bin/bash
# Runs clang-tidy over the product code of a build directory: tidy.sh BUILD_DIRECTORY JOBS
set -eu
cd "$(dirname "$0")/.."
git ls-files -- '*.cpp' ':!tests/*' ':!fuzz/*' ':!bench/*' ':!scripts/*' |
    xargs -P "$2" -n 3 clang-tidy-14 --quiet -p "$1" 2> >(grep -vE '^[0-9]+ warnings? (generated|treated)|Suppressed|Use -header-filter' >&2)
