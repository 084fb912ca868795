#!/bin/bash
# The table of docs/ipc.md of processes that die has the peers of tests/e2e/data/peers.tsv, and something in
# bold for those alone after which not all is well: the server is restarted, or does not see what it sets.
set -eu
cd "$(dirname "$0")/.."
diff <(awk -F'\t' '!/^#/ && $6 != "none" { bold[$1] += $7 ~ /server-restart|set-acknowledged/ }
        END { for (peer in bold) print peer, (bold[peer] > 0) }' tests/e2e/data/peers.tsv | sort) \
    <(sed -n '/^## When a process dies/,/^## /p' docs/ipc.md | awk -F'`' '/^\| .*`/ { bold[$2] += /\*\*/ }
        END { for (peer in bold) print peer, (bold[peer] > 0) }' | sort) ||
    { echo 'docs/ipc.md and tests/e2e/data/peers.tsv differ' >&2 && exit 1; }
