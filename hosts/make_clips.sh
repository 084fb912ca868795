#!/bin/sh
# Makes the clips that the bench camera plays by default: a moving test picture with a running clock and
# frame number, and a tone. Does nothing when both exist.
# Usage: make_clips.sh DIR
set -eu
[ $# -eq 1 ] || { echo "usage: $0 DIR" >&2; exit 2; }
dir=$1
seconds=10
rate=25
[ -s "$dir/main.mkv" ] && [ -s "$dir/second.mkv" ] && exit 0
command -v ffmpeg >/dev/null || { echo "$0: ffmpeg is not installed" >&2; exit 1; }
mkdir -p "$dir"

font=$(find /usr/share/fonts -name '*Mono*.ttf' 2>/dev/null | sort | head -n 1)
[ -n "$font" ] || font=$(find /usr/share/fonts -name '*.ttf' 2>/dev/null | sort | head -n 1)

# make NAME SIZE LETTER-HEIGHT VIDEO-OPTIONS...
make() {
    name=$1 size=$2 height=$3
    shift 3
    text=
    if [ -n "$font" ]; then
        text=",drawtext=fontfile=$font:fontsize=$height:fontcolor=white:box=1:boxcolor=black@0.6:boxborderw=8"
        text="$text:x=w/20:y=h/20:text='%{pts\\:hms}  frame %{n}'"
    fi
    ffmpeg -nostdin -v error -y \
        -f lavfi -i "testsrc2=size=$size:rate=$rate:duration=$seconds" \
        -f lavfi -i "sine=frequency=440:beep_factor=2:sample_rate=8000:duration=$seconds" \
        -vf "format=yuv420p$text" -g 50 -bf 0 -preset ultrafast "$@" \
        -c:a pcm_alaw -ac 1 -ar 8000 -f matroska "$dir/$name.part"
    mv "$dir/$name.part" "$dir/$name"
}

make main.mkv 1920x1080 48 -c:v libx265 -b:v 4M -maxrate 4M -bufsize 4M \
    -x265-params "log-level=error:bframes=0:keyint=50:min-keyint=50:scenecut=0:open-gop=0"
make second.mkv 720x480 24 -c:v libx264 -b:v 1M -maxrate 1M -bufsize 1M -sc_threshold 0 -keyint_min 50
