#!/bin/bash
# From nothing to a picture: a bench camera and the server beside it in the sandbox, a recorder at the
# other end of the camera's network, which finds it, watches it, changes its settings and sets them back,
# moves it, takes its alarms and waits for it while it starts again.
# Leaves demo/: clips, a snapshot, the settings, the logs. Needs ./run build.
set -eu
cd "$(dirname "$0")/.."
seconds=${DEMO_SECONDS:-10}

recorder() { # COMMAND [ARGUMENT...]: the recorder's tool at the other end of the camera's network
    on-recorder-side build/bin/velmora "$@" 2>> demo/recorder.log
}

told() { # the same, shown as a user would type it
    printf '\n$ velmora %s\n' "$*"
    recorder "$@"
}

watch_both() { # two clips and a picture of what the camera plays
    local extra_pid status=0
    recorder live "$CAMERA" --stream extra -o demo/extra.mp4 --duration "$seconds" --json > demo/extra.json &
    extra_pid=$!
    recorder live "$CAMERA" --stream main -o demo/main.mkv --duration "$seconds" --json > demo/main.json || status=1
    wait $extra_pid || status=1
    recorder snapshot "$CAMERA" demo/snapshot.png || status=1
    return $status
}

configure_and_restore() { # settings are read, changed, seen in the picture and set back
    local status=0
    told get "$CAMERA" --all -o demo/before.json || status=1
    told set "$CAMERA" Simplify.Encode \
        '{"MainFormat":{"Video":{"Compression":"H.264","Resolution":"720P","FPS":15}}}' || status=1
    told set "$CAMERA" NetWork.NetCommon '{"HostName":"front-door"}' || status=1
    told diff "$CAMERA" demo/before.json | grep -v CombineEncode || status=1
    recorder live "$CAMERA" -o demo/changed.mkv --duration 4 --json > demo/changed.json || status=1
    told restore "$CAMERA" demo/before.json || status=1
    recorder get "$CAMERA" --all -o demo/after.json || status=1
    cmp demo/before.json demo/after.json || status=1
    return $status
}

operate() { # the camera is moved, raises an alarm while it is watched, and starts again under a recorder's eyes
    local live_pid status=0
    told ptz "$CAMERA" right --speed 6 --for 1 || status=1
    told ptz "$CAMERA" zoom-in --for 1 || status=1
    told preset "$CAMERA" set 1 || status=1
    recorder snapshot "$CAMERA" demo/preset.png > demo/preset.txt || status=1
    told ptz "$CAMERA" left --speed 8 --for 1 || status=1
    told preset "$CAMERA" goto 1 || status=1

    # In the place of the shell, so that it gets the signal which ends it below.
    (exec on-recorder-side build/bin/velmora live "$CAMERA" --reconnect -o demo/rebooted.mkv --json \
        > demo/rebooted.json 2>> demo/recorder.log) &
    live_pid=$!
    told alarms "$CAMERA" --count 2 --duration 15 | tee demo/alarms.txt
    grep -q 'VideoMotion Start' demo/alarms.txt || status=1
    recorder snapshot "$CAMERA" demo/preset-again.png >> demo/preset.txt || status=1
    told reboot "$CAMERA" --wait 30 || status=1
    sleep 6 # for pictures of the camera that has started again
    kill $live_pid
    wait $live_pid || status=1
    grep -o '"reconnects":[0-9]*' demo/rebooted.json || status=1
    grep -q '"reconnects":[1-9]' demo/rebooted.json || status=1
    return $status
}

scene() { # runs inside the sandbox
    local camera_pid status=0
    # The camera's own lines and the server's standard output in one log, the server's diagnostics in another.
    build/bin/velmora-bench-camera --clips build/clips --motion every=6,for=2 --server build/bin/Velmora_server \
        > demo/camera.log 2> demo/server.log &
    camera_pid=$!
    for _ in $(seq 200); do # until the server listens
        recorder time "$CAMERA" > demo/time.txt && break
        kill -0 $camera_pid || { echo "demo: the bench camera ended; see demo/camera.log" >&2 && return 1; }
        sleep 0.1
    done
    : > demo/recorder.log
    told discover --timeout 2 || status=1
    told info "$CAMERA" > demo/info.txt || status=1
    head -12 demo/info.txt
    watch_both || status=1
    configure_and_restore || status=1
    operate || status=1
    kill $camera_pid
    wait $camera_pid || status=1
    return $status
}

check_clip() { # FILE CODEC SIZE MIN_FRAMES: prints one row; fails when the clip is not what was played
    local file=$1 codec size frames errors audio
    # Every frame is decoded and counted; what the decoder says goes to standard error.
    IFS=, read -r codec size frames < <(ffprobe -v error -select_streams v:0 -count_frames \
        -show_entries stream=codec_name,width,height,nb_read_frames -of csv=p=0 "$file" 2> demo/decode.log |
        awk -F, '{print $1 "," $2 "x" $3 "," $4}')
    audio=$(ffprobe -v error -select_streams a:0 -show_entries stream=codec_name -of csv=p=0 "$file")
    errors=$(grep -c . demo/decode.log || true)
    printf '%-16s %-6s %-10s %6s   %-10s %6s
' "$file" "$codec" "$size" "$frames" "$audio" "$errors"
    [ "$codec" = "$2" ] && [ "$size" = "$3" ] && [ "$frames" -ge "$4" ] && [ "$errors" -eq 0 ] && [ -n "$audio" ]
}

if [ "${1-}" = --scene ]; then
    scene
    exit
fi

rm -rf demo && mkdir demo
tests/sandbox.sh scripts/demo.sh --scene

failed=0
printf '\n%-16s %-6s %-10s %6s   %-10s %6s\n' clip video size frames audio errors
# Nothing is lost on the way: as many frames as the seconds hold, less those before the first key frame.
check_clip demo/main.mkv hevc 1920x1080 $((seconds * 20)) || failed=1
check_clip demo/extra.mp4 h264 720x480 $((seconds * 20)) || failed=1
check_clip demo/changed.mkv h264 1280x720 45 || failed=1 # 4 s at 15 frames a second
# A new file begins whenever the picture's parameters change; the last one shows what came after the reboot.
check_clip "$(printf '%s\n' demo/rebooted*.mkv | sort -V | tail -1)" hevc 1920x1080 60 || failed=1
snapshot=$(ffprobe -v error -show_entries stream=codec_name,width,height -of csv=p=0 demo/snapshot.png)
printf '%-16s %s\n' demo/snapshot.png "$snapshot"
[ "$snapshot" = png,1920,1080 ] || failed=1
if [ $failed -ne 0 ]; then
    echo 'demo: what was recorded is not what was played; see the logs in demo/' >&2
    exit 1
fi
cat <<'TEXT'

Watch demo/main.mkv in any player, or look at demo/snapshot.png. To try it yourself, in a sandbox:

  tests/sandbox.sh bash
  build/bin/velmora-bench-camera --clips build/clips --server build/bin/Velmora_server 2> server.log &
  on-recorder-side build/bin/velmora live $CAMERA -o - --duration 10 | ffprobe -
  on-recorder-side build/bin/velmora get $CAMERA --all
  on-recorder-side build/bin/velmora --help

docs/protocol.md tells what goes over the wire, docs/ipc.md what the camera's processes share.
TEXT
