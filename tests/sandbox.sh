#!/bin/bash
# Runs a command on a camera of its own, made of Linux namespaces; needs no privileges beyond creating
# them, and leaves nothing behind however the command ends.
#
#   tests/sandbox.sh [--sdcard] [--real-killall] [--] COMMAND...
#
# Inside are: an interface eth0 (192.0.2.10/24, 02:00:5E:A1:B2:C3, default route, link up),
# System V keys and ports that collide with nobody's, empty /var/cfg and /param, a name server
# that does not exist (192.0.2.53) and a clock that cannot be set.
# `reboot`, `sync` and `killall` only write their names and arguments to $SANDBOX/calls. Recorders live
# at the other end of eth0, in a network namespace of their own (192.0.2.1/24):
#
#   on-recorder-side COMMAND...        (from inside) runs the command there
#
# --sdcard makes /dev/mmcblk0p1 and /media/SDCard exist;
# --real-killall leaves killall alone, which finds the sandbox's own processes and no others.
set -eu

camera=192.0.2.10 recorder=192.0.2.1 address=02:00:5e:a1:b2:c3

if [ "${1-}" != --inside ]; then
    exec unshare --user --map-root-user --net --ipc --mount --pid --fork --kill-child \
        bash "$0" --inside "$@"
fi
shift

sdcard='' recorded='reboot sync killall'
while [ $# -gt 0 ]; do
    case $1 in
        --sdcard) sdcard=1 ;;
        --real-killall) recorded='reboot sync' ;;
        --) shift && break ;;
        -*) echo "sandbox.sh: unknown option '$1'" >&2 && exit 2 ;;
        *) break ;;
    esac
    shift
done
if [ $# -eq 0 ]; then
    echo "sandbox.sh: a command is needed" >&2
    exit 2
fi

# A root of our own: a tmpfs whose entries are the machine's, but for what the camera may change.
mount --make-rprivate /
mount -t proc proc /proc # of this process namespace
root=/mnt
mount -t tmpfs -o mode=755 velmora-sandbox $root
borrow() { # DIRECTORY SKIP...: the directory's entries appear in the new root, except those named
    local directory=$1 entry name
    shift
    mkdir -p "$root$directory"
    for entry in "$directory"/* "$directory"/.[!.]*; do
        name=${entry##*/}
        case " $* " in *" $name "*) continue ;; esac
        if [ -L "$entry" ]; then
            cp -P "$entry" "$root$directory/$name"
        elif [ -d "$entry" ]; then
            mkdir "$root$directory/$name"
            mount --rbind "$entry" "$root$directory/$name"
        elif [ -e "$entry" ]; then
            touch "$root$directory/$name"
            mount --bind "$entry" "$root$directory/$name"
        fi
    done
}
borrow '' mnt proc param var media sandbox dev
borrow /var cfg
if [ -n "$sdcard" ]; then
    borrow /dev mmcblk0p1
    touch $root/dev/mmcblk0p1
    mkdir -p $root/media/SDCard
else
    mkdir -p $root/dev && mount --rbind /dev $root/dev
fi
mkdir -p $root/proc $root/mnt $root/media $root/param $root/var/cfg $root/sandbox/bin
mount -t proc proc $root/proc
if [ -e /etc/resolv.conf ]; then
    printf 'nameserver 192.0.2.53\nnameserver 192.0.2.54\n' > $root/sandbox/resolv.conf
    mount --bind $root/sandbox/resolv.conf "$(readlink -f /etc/resolv.conf | sed "s|^|$root|")"
fi

for name in $recorded; do
    printf '#!/bin/sh\necho "%s $*" >> /sandbox/calls\n' "$name" > "$root/sandbox/bin/$name"
    if [ -e "$root/usr/sbin/$name" ]; then
        chmod +x "$root/sandbox/bin/$name" && mount --bind "$root/sandbox/bin/$name" "$root/usr/sbin/$name"
    fi
done
# shellcheck disable=SC2016 # expanded when it runs
printf '#!/bin/sh\nexec nsenter --net=/sandbox/recorder.ns "$@"\n' > $root/sandbox/bin/on-recorder-side
chmod +x $root/sandbox/bin/*
: > $root/sandbox/calls

# eth0 and its other end.
touch $root/sandbox/recorder.ns
unshare --net=$root/sandbox/recorder.ns true
ip link set lo up
nsenter --net=$root/sandbox/recorder.ns ip link set lo up
ip link add eth0 address $address type veth peer name recorder0
exec 9< $root/sandbox/recorder.ns
ip link set recorder0 netns /proc/self/fd/9
exec 9<&-
ip addr add $camera/24 brd + dev eth0
ip link set eth0 up
nsenter --net=$root/sandbox/recorder.ns ip link set recorder0 up
ip route add default via $recorder
nsenter --net=$root/sandbox/recorder.ns ip addr add $recorder/24 brd + dev recorder0
nsenter --net=$root/sandbox/recorder.ns ip route add default via $camera

directory=$PWD
export SANDBOX=/sandbox CAMERA=$camera RECORDER=$recorder PATH=/sandbox/bin:$PATH
# shellcheck disable=SC2016 # expanded inside
chroot $root bash -c 'cd "$1" && shift && exec "$@"' sandbox "$directory" "$@"
