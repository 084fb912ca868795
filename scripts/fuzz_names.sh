#!/bin/bash
# Writes fuzz/request.dict: every name and value that the server looks for in requests, taken from its
# sources. With --check: says whether the file is up to date.
set -eu
cd "$(dirname "$0")/.."
export LC_ALL=C
names() {
    # Not the replies' literals, nor what is only printed.
    cat config/*.cpp server/requests/*.cpp media/monitor_requests.cpp |
        grep -v -e 'R"(' -e '#include' -e 'Log[A-Z][a-z]*(' -e 'printf(' |
        grep -oE '"[A-Za-z0-9_][][A-Za-z0-9_. -]*"' | sort -u
}
if [ "${1-}" = --check ]; then
    names | diff fuzz/request.dict - || { echo 'fuzz/request.dict: run scripts/fuzz_names.sh' >&2 && exit 1; }
else
    names > fuzz/request.dict
fi
