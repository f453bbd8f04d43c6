#!/usr/bin/env bash
# How many frames a second go through the agent between two veth links, side by side with forwarders that know no
# rules and with the kernel's bridge and its filter: all of them in turn, several rounds, medians.
set -euo pipefail
# shellcheck source=scripts/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/../scripts/lib.sh"
# shellcheck source=bench/links.sh
source "$(dirname "${BASH_SOURCE[0]}")/links.sh"

usage() {
  cat <<'TEXT'
usage: bench/live.sh [--bin DIR] [--rounds N] [--seconds S] [--sizes "OCTETS..."] [--only REGEX]
  --bin      where velo, bare-forwarder and send-frames are (default: build/release/bin)
  --rounds   how often each is measured (default 5)
  --seconds  how long each time (default 1)
  --sizes    octets of the frames with their check sequence (default "64 1500")
  --only     what to measure, by name
As root, on an idle machine; where other work runs, under chrt -f 5. In the lists that log the last rule does; a flood
is of 64,512 flows, which nobody is told of but a hundred a second, everything else of 64 flows. Frames meet the last rule of every list, and the
others differ from it in the port.
TEXT
}

bin=$root/build/release/bin rounds=5 seconds=1 sizes="64 1500" only=.
while [[ $# -gt 0 ]]; do
  case $1 in
    --bin) bin=$2 ;;
    --rounds) rounds=$2 ;;
    --seconds) seconds=$2 ;;
    --sizes) sizes=$2 ;;
    --only) only=$2 ;;
    -h | --help)
      usage
      exit 0
      ;;
    *) usage_error "unknown argument: $1" ;;
  esac
  shift 2
done
for program in velo bare-forwarder send-frames; do
  [[ -x $bin/$program ]] || die "$bin/$program is missing; build it first"
done

links_are vb$$

# The last rule is met. All others differ from it in the port only, so that who walks them compares all of each.
station=203.0.113.1 peer=198.51.100.7 port=443
write_list() {
  echo "ip access-list L"
  for ((i = 1; i < $1; ++i)); do echo " permit udp host $station host $peer eq $((port + i))"; done
  echo " permit udp host $station host $peer eq $port ${2:-}"
  for device in eth1 eth2; do printf 'interface %s\n ip access-group L in\n ip access-group L out\n' "$device"; done
}
write_nft() {
  echo "table bridge t {"
  if [[ $1 == set ]]; then
    echo "set s { type ipv4_addr . ipv4_addr . inet_service; elements = {"
    for ((i = 1; i < $2; ++i)); do echo "$station . $peer . $((port + i)),"; done
    printf '%s . %s . %s }\n}\n' "$station" "$peer" "$port"
  fi
  echo "chain f { type filter hook forward priority 0; policy drop;"
  if [[ $1 == set ]]; then
    echo "ether type ip ip saddr . ip daddr . udp dport @s accept"
  else
    for ((i = 1; i < $2; ++i)); do echo "ip saddr $station ip daddr $peer udp dport $((port + i)) accept"; done
    echo "ip saddr $station ip daddr $peer udp dport $port accept"
  fi
  printf '}\n}\n'
}
for rules in 10 1000 10000; do write_list "$rules" >"$work/$rules.acl"; done
write_list 10 log >"$work/10-log.acl"
write_nft linear 1000 >"$work/linear.nft"
write_nft set 1000 >"$work/set.nft"

# With two processors or more the sender has one and the forwarder another; the kernel's bridge does its work
# where the frame was sent.
first=() second=()
if [[ $(nproc) -gt 1 ]]; then first=(taskset -c 0) second=(taskset -c 1); fi
list_of() {
  local name=${1#velo-}
  echo "${name%-flood}"
}
inside() { ip netns exec "$middle" "$@"; }
start() {
  case $1 in
    bare)
      "${second[@]}" ip netns exec "$middle" "$bin/bare-forwarder" eth1 eth2 &
      forwarder=$!
      ;;
    velo-*)
      "${second[@]}" ip netns exec "$middle" "$bin/velo" run --config "$work/$(list_of "$1").acl" \
        --port eth1=eth1 --port eth2=eth2 --patch eth1,eth2 2>>"$work/log" &
      forwarder=$!
      ;;
    bridge*)
      ip -n "$middle" link add br0 type bridge
      ip -n "$middle" link set eth1 master br0
      ip -n "$middle" link set eth2 master br0
      ip -n "$middle" link set br0 up
      [[ $1 == bridge ]] || inside nft -f "$work/${1#bridge-nft-}.nft"
      ;;
  esac
}
stop() {
  if [[ -n $forwarder ]]; then
    kill "$forwarder"
    wait "$forwarder" 2>/dev/null || true
    forwarder=
  else
    inside nft flush ruleset
    ip -n "$middle" link del br0
  fi
}
# Nanoseconds that the forwarder has had a processor for; the kernel's bridge works on its senders' time.
used() { if [[ -n $forwarder ]]; then cut -d' ' -f1 "/proc/$forwarder/schedstat"; else echo 0; fi; }
arrived() { ip netns exec "$out" cat /sys/class/net/r0/statistics/rx_packets; }
send() { "${first[@]}" ip netns exec "$in" "$bin/send-frames" s0 "$1" "$2" 0 "${3:-64}"; }
# Waits until frames pass: big lists take a while to read.
ready() {
  local before=0
  for ((i = 0; i < 300; ++i)); do
    before=$(arrived)
    send 60 0.01 >/dev/null
    sleep 0.05
    [[ $(arrived) -eq $before ]] || return 0
  done
  die "nothing passes $1: $(tail -n 3 "$work/log" 2>/dev/null)"
}

for size in $sizes; do
  for ((round = 1; round <= rounds; ++round)); do
    for name in bare velo-10 velo-10-log velo-10-flood velo-10-log-flood velo-1000 velo-10000 bridge bridge-nft-set bridge-nft-linear; do
      [[ $name =~ $only ]] || continue
      start "$name"
      ready "$name"
      before=$(arrived) time=$(used)
      flows=64
      [[ $name != *-flood ]] || flows=64512
      sent=$(send $((size - 4)) "$seconds" "$flows")
      sleep 0.1
      echo "$size $name $(($(arrived) - before)) $sent $(($(used) - time))" >>"$work/figures"
      stop
    done
  done
done

python3 - "$work/figures" "$seconds" <<'PYTHON'
import collections
import statistics
import sys

seconds = float(sys.argv[2])
figures = collections.defaultdict(lambda: collections.defaultdict(list))
for line in open(sys.argv[1], encoding="ascii"):
    size, name, *numbers = line.split()
    arrived, sent, used = map(int, numbers)
    figures[size][name].append((arrived / seconds / 1000, sent / seconds / 1000, used / max(arrived, 1)))
for size, names in figures.items():
    print(f"\n{size} octets, thousands of frames a second; nanoseconds of the forwarder's processor a frame")
    print(f"{'':20} {'median':>8} {'least':>8} {'most':>8} {'offered':>8} {'of bare':>8} {'ns':>8}")
    bare = statistics.median(rates[0] for rates in names["bare"]) if "bare" in names else None
    for name, rounds in names.items():
        through, sent, used = (list(column) for column in zip(*rounds))
        median = statistics.median(through)
        share = f"{median / bare:8.2f}" if bare else f"{'':8}"
        print(f"{name:20} {median:8.1f} {min(through):8.1f} {max(through):8.1f} {statistics.median(sent):8.1f} {share}"
              + (f" {statistics.median(used):8.0f}" if max(used) else ""))
PYTHON
