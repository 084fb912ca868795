#!/bin/bash
# One row of tests/e2e/data/stress.tsv: a camera under load, which must serve its recorders on, without
# eating the processor, drowning the log or keeping anything afterwards.
# Runs in the sandbox: tests/sandbox.sh tests/stress_scene.sh PROGRAMS CLIPS ROW; VELMORA_SERVER names
# another server to try, VELMORA_SLOWNESS how many times as long it may take.
set -euo pipefail
row=$3
slowness=${VELMORA_SLOWNESS:-1}
table=${0%/*}/e2e/data/stress.tsv
IFS=$'\t' read -r _ _ hook most_cpu most_lines arguments < <(grep -P "^$row\t" "$table")
# shellcheck source=tests/scene.sh
. "${0%/*}/scene.sh"

stress() {
    recorder stress "$CAMERA" --timeout 100 "$@"
}
descriptors() { find "/proc/$server/fd" -mindepth 1 | wc -l; }
cpu_ms() { awk '{ print ($14 + $15) * 10 }' "/proc/$server/stat"; }
# Lines, and the one message that the server ends without a line feed.
log_lines() { LC_ALL=C awk '{ n += 1 + gsub(/MAX_CONNECT_NUM/, "") } END { print n + 0 }' "$work/camera.log"; }
now_ms() { echo $((${EPOCHREALTIME/[.,]/} / 1000)); }

# What a row does to the camera before the load; `expected` is what the log then says.
expected=
play_hook() {
    local queue pages
    case $hook in
        none) ;;
        motion) kill -USR2 "$bench" ;;
        few_descriptors)
            prlimit --pid "$server" --nofile=$(($(descriptors) + 9))
            expected='Accept fd < 0'
            ;;
        full_queues) # no place is left beside messages that nobody waits for
            for queue in $(ipcs -q | awk '$1 ~ /^0x/ { print $2 }'); do
                perl -e 'for my $n (1000, 1) { 1 while msgsnd($ARGV[0], pack("l!", 77777) . "x" x $n, 2048) }' "$queue"
            done
            expected='control queue failed, errno = 11'
            ;;
        failing_shmat) # no room for another segment; sanitizers cannot live with such a limit
            pages=$(cut -d' ' -f1 "/proc/$server/statm")
            [ "$pages" -lt 10000000 ] || return 0
            prlimit --pid "$server" --as=$((pages * $(getconf PAGESIZE)))
            expected='has something wrong!'
            ;;
        *) fail "no hook is called '$hook'" ;;
    esac
}

start_camera "${@:4}"
server=$(pgrep -P $bench Velmora_server)
stress none --calm 0 --seconds 1 --after 0 > /dev/null # by now all that is opened once is open
before=0
until [ "$(descriptors)" = "$before" ]; do # all connections are closed
    before=$(descriptors)
    sleep 0.3
done
threads=$(find "/proc/$server/task" -mindepth 1 -maxdepth 1 | wc -l)
play_hook

# Times on a slower server may be longer; what lies in a socket at the end is no more with it.
bounds=()
for word in $arguments; do
    [[ $word =~ ^(.*_ms=)([0-9]+)$ ]] && word=${BASH_REMATCH[1]}$((BASH_REMATCH[2] * slowness))
    bounds+=("$word")
done
[[ $arguments == *--no-probe* ]] || bounds+=(--most unanswered=0)
[[ $arguments =~ --no-probe|answer_ms ]] || bounds+=(--most "answer_ms=$((500 * slowness))")
# Whatever else runs on this machine only makes times longer, so they have to hold once in three times.
for attempt in 1 2 3; do
    lines=$(log_lines) cpu=$(cpu_ms) begin=$(now_ms)
    stress "${bounds[@]}" --calm 1 --after 1 --most lost=0 --most faults=0 --most different_frames=0 \
        2> "$work/broken" && break
    cat "$work/broken" >&2
    grep -qvE '_ms is .* wanted' "$work/broken" && fail 'a recorder suffers'
    [ $attempt -lt 3 ] || fail 'a recorder waits'
done
took=$(($(now_ms) - begin))
cpu=$(($(cpu_ms) - cpu)) lines=$(($(log_lines) - lines))
printf 'cpu_percent %d\nlines_per_second %d\n' $((cpu * 100 / took)) $((lines * 1000 / took))
most_cpu=$((most_cpu * slowness < 90 ? most_cpu * slowness : 90))
[ $((cpu * 100)) -le $((took * most_cpu)) ] || fail "more than $most_cpu % of a processor"
[ $((lines * 1000)) -le $((took * most_lines)) ] || fail "more than $most_lines lines a second"
for _ in $(seq 100); do
    [ "$(descriptors)" -gt "$before" ] || break
    sleep 0.1
done
[ "$(descriptors)" -le "$before" ] || fail "$(descriptors) descriptors, $before before"
[ -z "$expected" ] || grep -aqF "$expected" "$work/camera.log" || fail "the log does not say '$expected'"
[ "$(find "/proc/$server/task" -mindepth 1 -maxdepth 1 | wc -l)" -eq "$threads" ] || fail 'other threads than before'
expect_no_complaint
