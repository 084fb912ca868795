#!/bin/bash
# The fence of docs/fence.nft keeps strangers out and recorders in. Runs in the sandbox:
# tests/sandbox.sh tests/fence_scene.sh PROGRAMS CLIPS; VELMORA_SERVER names another server to try.
set -eu
# shellcheck source=tests/scene.sh
. "${0%/*}/scene.sh"
stranger=192.0.2.66
start_camera "${@:3}"

dropped() { # RULE: packets that it dropped
    nft list table inet velmora_fence | sed -n "s/.*$1.*counter packets \([0-9]*\) .*/\1/p"
}
ask_as() { # ADDRESS: the other end of the cable gets it
    on-recorder-side ip addr flush dev recorder0
    on-recorder-side ip addr add "$1/24" brd + dev recorder0
    on-recorder-side ip route add default via "$CAMERA"
}
reachable() { # PORT
    on-recorder-side timeout 2 bash -c "exec 3<> /dev/tcp/$CAMERA/$1" 2> /dev/null
}
ask_as $stranger
for port in 9000 414; do
    reachable $port || fail "without a fence a stranger does not reach port $port"
done

nft -f "${0%/*}/../docs/fence.nft"
nft -f "${0%/*}/../docs/fence.nft" # a second time in its own place
for port in 9000 414; do
    reachable $port && fail "a stranger reaches port $port"
done
recorder discover --timeout 1 | grep -q "^$CAMERA " && fail 'a stranger finds the camera'
[ "$(dropped 'udp dport 34569 ip saddr')" -gt 0 ] || fail 'the search was not what the fence dropped'

ask_as "$RECORDER"
recorder discover --timeout 2 | grep -q "^$CAMERA " || fail 'the recorder does not find the camera'
recorder time "$CAMERA" > "$work/time" || fail 'the recorder does not get in'
reachable 414 || fail 'maintenance does not reach the console'
# shellcheck disable=SC2016 # expanded on the recorder's side
on-recorder-side bash -c 'for _ in $(seq 60); do printf x > /dev/udp/$CAMERA/34569; done' || true
[ "$(dropped 'limit rate over 10.second burst 20')" -gt 0 ] || fail 'a flood of searches passes'
