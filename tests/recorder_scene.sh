#!/bin/bash
# A recorder configures a camera and brings it back: every kind of setting is changed, the address too, the
# change is seen in the picture, and after the restoration the camera says what it said before.
# Runs in the sandbox: tests/sandbox.sh tests/recorder_scene.sh PROGRAMS CLIPS; VELMORA_SERVER names another
# server to try.
set -eu
# shellcheck source=tests/scene.sh
. "${0%/*}/scene.sh"
start_camera --apply-network --state "$work/state.json" --rechost --reboot-pause 0.1

recorder discover --timeout 2 | grep -q "^$CAMERA .*02:00:5E:A1:B2:C3" || fail 'not found'
recorder get "$CAMERA" --all -o "$work/first.json"
cp "$work/first.json" "$work/before.json"
recorder set "$CAMERA" System.TimeZone '{"timeMin":-480}'
recorder set "$CAMERA" 'AVEnc.VideoColor.[0]' '[{"VideoColorParam":{"Brightness":10,"Contrast":90}}]'
recorder set "$CAMERA" 'Detect.MotionDetect.[0]' '{"Enable":true,"Level":6,"Region":["0x00ff00ff"]}'
recorder set "$CAMERA" Simplify.Encode '{
    "MainFormat":{"AudioEnable":false,"Audio":{},"Video":{"Compression":"H.264","Resolution":"720P","FPS":12,
        "GOP":4,"BitRate":2048,"BitRateControl":"VBR","Quality":5}},
    "ExtraFormat":{"Video":{"FPS":10,"BitRate":512,"GOP":3}}}'
moved=192.0.2.77
recorder set "$CAMERA" NetWork.NetCommon \
    "{\"HostName\":\"front-door\",\"HttpPort\":8081,\"HostIP\":\"$moved\"}" |
    grep -q "the camera is at $moved" || fail 'not found again'

# A reboot loses nothing but the head's position.
at_home='action 16, value 2, at pan 0.00 tilt 0.00 zoom 1.00' # which the third preset then is
recorder ptz $moved right --for 0.1
recorder preset $moved set 3
grep -qF "$at_home" "$work/camera.log" && fail 'the head does not move'
recorder get $moved --all -o "$work/set.json"
recorder reboot $moved --wait 60
recorder diff $moved "$work/set.json" || fail 'a reboot loses settings'
grep -q 'RecHost: told to stop, its files are closed' "$work/camera.log" || fail 'the recording is not closed'
recorder preset $moved set 3
grep -qF "$at_home" "$work/camera.log" || fail 'the head is not at home'

live=$(recorder live $moved --duration 2)
grep -q '^main: H.264 1280x720' <<< "$live" || fail "the picture is not what was set: $live"
grep -q ' 0 gaps, 0 damaged' <<< "$live" || fail "media was lost: $live"

# What is left of a recording that Ctrl-C ends plays.
on-recorder-side "$programs/velmora" live $moved --stream both -o "$work/a.mp4" -o "$work/b.mkv" --json > "$work/live" &
live=$!
until [ -s "$work/a.mp4" ] && [ -s "$work/b.mkv" ]; do
    kill -0 $live || fail 'nothing is recorded'
    sleep 0.1
done
kill -INT $live
wait $live || fail 'Ctrl-C is an error'
grep -q '"stream":"extra"' "$work/live" || fail 'only one stream is recorded'
for file in a.mp4 b.mkv; do
    ffprobe -v error -count_frames -of csv=p=0 -show_entries stream=nb_read_frames -select_streams v "$work/$file" \
        2>&1 | grep -qx '[1-9][0-9]*' || fail "$file does not play"
done

recorder restore $moved "$work/before.json" | grep -q "the camera is at $CAMERA" || fail 'not moved back'
recorder get "$CAMERA" --all -o "$work/after.json"
cmp "$work/before.json" "$work/after.json" || fail 'not restored'

# Every pair of codecs comes back, also behind a start of live video, and where the camera, which compares
# with the main stream, takes the extra stream's codec only by way of another one of the main stream.
codecs() { # MAIN EXTRA
    recorder set "$CAMERA" Simplify.Encode \
        "{\"MainFormat\":{\"Video\":{\"Compression\":\"$1\"}},\"ExtraFormat\":{\"Video\":{\"Compression\":\"$2\"}}}"
}
while read -r main extra main_now extra_now; do
    codecs "$main" "$extra"
    recorder get "$CAMERA" --all -o "$work/before.json"
    codecs "$main_now" "$extra_now"
    recorder live "$CAMERA" --duration 1 > "$work/live"
    recorder restore "$CAMERA" "$work/before.json" > "$work/restored" || fail "$(cat "$work/restored")"
    recorder diff "$CAMERA" "$work/before.json" || fail "$main $extra is not restored from $main_now $extra_now"
done << 'END'
H.264 H.264 H.265 H.265
H.265 H.264 H.264 H.265
H.264 H.265 H.264 H.264
H.264 H.264 H.264 H.265
END

# Its address is changed by a search too, whether it is named by what it has or by its MAC.
recorder set-address "$CAMERA" --address $moved | grep -q "is at $moved" || fail 'not moved by its address'
recorder set-address 02:00:5e:a1:b2:c3 --address "$CAMERA" | grep -q "is at $CAMERA" || fail 'not moved by its MAC'

recorder factory-default "$CAMERA" --yes
recorder get "$CAMERA" --all -o "$work/default.json"
cmp "$work/first.json" "$work/default.json" || fail 'not as on the first day'
expect_no_complaint
