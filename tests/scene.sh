# shellcheck shell=bash
# Sourced by the scenes: a bench camera in the background with a server on it. VELMORA_SERVER names another
# server to try. The first two arguments of a scene are the folders of the programs and of the clips.
programs=$1 clips=$2
work=$(mktemp -d)

fail() {
    echo "${0##*/}: $*" >&2
    tail -40 "$work/camera.log" | cut -c1-200 >&2
    exit 1
}
recorder() { # ARGUMENTS: of the recorder's tool, at the other end of the cable
    on-recorder-side "$programs/velmora" "$@"
}
start_camera() { # ARGUMENTS: returns when the server listens
    "$programs/velmora-bench-camera" --clips "$clips" --server "${VELMORA_SERVER:-$programs/Velmora_server}" \
        "$@" > "$work/camera.log" 2>&1 &
    bench=$!
    trap 'kill "$bench"; wait "$bench" || true; rm -r "$work"' EXIT
    for _ in $(seq 300); do
        recorder time "$CAMERA" > /dev/null 2>&1 && return
        kill -0 $bench || fail 'the bench camera ended'
        sleep 0.1
    done
    fail 'the server does not listen'
}
expect_no_complaint() {
    ! grep -aE 'ERROR: (Address|Leak)|WARNING: ThreadSanitizer|runtime error' "$work/camera.log" ||
        fail 'a sanitizer complains'
}
