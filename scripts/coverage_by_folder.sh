#!/bin/bash
# Prints, for each folder, how many lines and branches ran, from the figures of `gcovr --csv` on standard input.
set -eu
awk -F, '
NR == 1 { for (i = 1; i <= NF; i++) column[$i] = i; next }
{
    folder = $column["filename"]
    sub("/.*", "", folder)
    lines[folder] += $column["line_total"]
    linesRun[folder] += $column["line_covered"]
    branches[folder] += $column["branch_total"]
    branchesRun[folder] += $column["branch_covered"]
}
function percent(part, whole) { return whole ? sprintf("%.1f %%", 100 * part / whole) : "-" }
END {
    printf "%-10s %8s %8s %10s %8s\n", "folder", "lines", "run", "branches", "run"
    for (folder in lines)
        printf "%-10s %8d %8s %10d %8s\n", folder, lines[folder], percent(linesRun[folder], lines[folder]),
            branches[folder], percent(branchesRun[folder], branches[folder]) | "sort"
}'
