#!/usr/bin/env bash
# How many frames a second go through the agent by each kind of port: from an endless capture in memory to nothing, beside
# what the test program of DPDK moves, and between veth links beside the kernel's sockets. All in turn, several rounds,
# medians.
set -euo pipefail
# shellcheck source=scripts/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/../scripts/lib.sh"
# shellcheck source=bench/links.sh
source "$(dirname "${BASH_SOURCE[0]}")/links.sh"

usage() {
  cat <<'TEXT'
usage: bench/ports.sh [--bin DIR] [--rounds N] [--seconds S] [--only REGEX] [--set NAME] [--l3fwd PROGRAM]
  --bin      where velo, send-frames, bare-forwarder and bare-xdp-forwarder are (default: build/release/bin)
  --rounds   how often each is measured (default 3)
  --seconds  how long each time (default 2)
  --only     what to measure, by name
  --set      a rule set with its trace for the names with "set" (default: ../shared/data/classbench/acl1_1k, if it is there)
  --l3fwd    the program of DPDK's example of that name, for the names with "l3fwd"
As root, on an idle machine. Frames have 64 octets with their check sequence and are of 64 flows. They meet the last rule
of the list, which is bound in (and, where the name says so, out); the other rules differ from it in the port. Names with
"workers" are of so many processes (velo run --workers), on all processors. Those with
"dpdk" are left out where the program is built without such ports, "testpmd" where there is no dpdk-testpmd. Those with
"set" have all rules of the set, and frames whose headers meet rules of it, evenly. "bare" forwards between the same sockets
and looks at nothing.
TEXT
}

bin=$root/build/release/bin rounds=3 seconds=2 only=. set=$root/../shared/data/classbench/acl1_1k l3fwd=
while [[ $# -gt 0 ]]; do
  case $1 in
    --bin) bin=$2 ;;
    --rounds) rounds=$2 ;;
    --seconds) seconds=$2 ;;
    --only) only=$2 ;;
    --set) set=$2 ;;
    --l3fwd) l3fwd=$2 ;;
    -h | --help)
      usage
      exit 0
      ;;
    *) usage_error "unknown argument: $1" ;;
  esac
  shift 2
done
[[ -x $bin/velo ]] || die "$bin/velo is missing; build it first"

links_are vp$$

python3 - "$work/in.pcap" <<'PYTHON'
import struct
import sys

def checksum(data):
    total = sum(struct.unpack(f"!{len(data) // 2}H", data))
    total = (total & 0xFFFF) + (total >> 16)
    return ~(total + (total >> 16)) & 0xFFFF

with open(sys.argv[1], "wb") as file:
    file.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 1))
    for number in range(1024):
        ip = struct.pack("!BBHHHBBH4s4s", 0x45, 0, 46, 0, 0, 64, 17, 0, bytes((203, 0, 113, 1)), bytes((198, 51, 100, 7)))
        ip = ip[:10] + struct.pack("!H", checksum(ip)) + ip[12:]
        frame = bytes((2, 0, 0, 0, 0, 2, 2, 0, 0, 0, 0, 1, 8, 0)) + ip + struct.pack("!HHHH", 1024 + number % 64, 443, 26, 0)
        file.write(struct.pack("<IIII", 0, 0, 60, 60) + frame.ljust(60, b"x"))
PYTHON

[[ ! -e $set.rules ]] || python3 "$root/bench/rule_set.py" "$set" "$work"

station=203.0.113.1 peer=198.51.100.7 port=443
write_list() {
  echo "ip access-list L"
  for ((i = 1; i < $1; ++i)); do echo " permit udp host $station host $peer eq $((port + i))"; done
  echo " permit udp host $station host $peer eq $port"
}
: >"$work/0.acl"
for rules in 10 1000 10000; do
  write_list "$rules" >"$work/$rules.acl"
  cp "$work/$rules.acl" "$work/$rules-both.acl"
  printf 'interface eth1\n ip access-group L in\n' >>"$work/$rules.acl"
  printf 'interface eth1\n ip access-group L in\ninterface eth2\n ip access-group L out\n' >>"$work/$rules-both.acl"
done

# With two processors or more the forwarder has the last one, and what sends to it the first.
first=() last=()
if [[ $(nproc) -gt 1 ]]; then first=(taskset -c 0) last=(taskset -c "$(($(nproc) - 1))"); fi
environment="--no-huge -m 1024 --no-pci"
null=net_null0,no-rx=1
capture_of() { if [[ $1 == set* ]]; then echo "$work/set.pcap"; else echo "$work/in.pcap"; fi; }
begin() {
  local list=$1 from=$2 to=$3 where=("${last[@]}")
  figure=shown
  [[ $# -le 3 ]] || where=()  # several processes share all processors
  "${where[@]}" ip netns exec "$middle" "$bin/velo" run --config "$work/$list.acl" --control "$work/velo.sock" \
    --dpdk-args "$environment" --port "eth1=$from" --port "eth2=$to" --patch eth1,eth2 "${@:4}" 2>>"$work/log" &
  forwarder=$!
  for ((i = 0; i < 300; ++i)); do
    ! "$bin/velo" show ports --control "$work/velo.sock" >/dev/null 2>&1 || return 0
    sleep 0.1
  done
  die "velo does not begin: $(tail -n 3 "$work/log")"
}
end() {
  kill "$forwarder"
  wait "$forwarder" 2>/dev/null || true
  forwarder=
}
begin_bare() {
  "${last[@]}" ip netns exec "$middle" "$bin/$1" eth1 eth2 &
  forwarder=$! figure=arrived
}
# What has left by the second port, and when.
shown() {
  "$bin/velo" show ports --json --control "$work/velo.sock" |
    python3 -c 'import json, sys, time; print(json.load(sys.stdin)["ports"]["eth2"]["live"]["sent"]["frames"], time.monotonic())'
}
arrived() {
  ip netns exec "$out" cat /sys/class/net/r0/statistics/rx_packets |
    python3 -c 'import sys, time; print(sys.stdin.read().strip(), time.monotonic())'
}
of_telemetry() {
  python3 - /var/run/dpdk/ports-sh/dpdk_telemetry.v2 <<'PYTHON'
import json
import socket
import sys
import time

with socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET) as client:
    client.connect(sys.argv[1])
    client.recv(4096)
    client.send(b"/ethdev/stats,1")
    print(json.loads(client.recv(16384))["/ethdev/stats"]["opackets"], time.monotonic())
PYTHON
}
tell() { echo "$1 $2" >>"$work/figures"; }
# Nanoseconds that the agent's loop, or those of its workers, have had a processor for.
used() {
  local sum=0 pid
  for pid in "$forwarder" $(cat "/proc/$forwarder/task/$forwarder/children"); do
    sum=$((sum + $(cut -d' ' -f1 "/proc/$pid/schedstat")))
  done
  echo "$sum"
}
# What an agent sends between two looks at it, and how long it has had a processor for each frame.
measured() {
  local before after
  sleep 0.3
  before="$("$figure") $(used)"
  sleep "$seconds"
  after="$("$figure") $(used)"
  end
  # shellcheck disable=SC2086  # three numbers each
  tell "$1" "$(python3 -c 'import sys; a, s, u, b, t, v = map(float, sys.argv[1:]); print((b - a) / (t - s), (v - u) / (b - a))' $before $after)"
}
# It takes some seconds to begin; the best second that it tells counts.
of_testpmd() {
  local vdevs=(--vdev "net_pcap0,rx_pcap=$work/in.pcap,infinite_rx=1" --vdev "$null")
  # shellcheck disable=SC2086  # several words
  "${last[@]}" timeout -k 3 -s INT "$((seconds + 4))" dpdk-testpmd $environment --no-shconf -l 0,"$(($(nproc) - 1))" "${vdevs[@]}" \
    -- --forward-mode="$2" --nb-cores=1 --auto-start --stats-period 1 </dev/null >"$work/testpmd" 2>&1 || true
  tell "$1" "$(grep -oE 'Rx-pps: +[0-9]+' "$work/testpmd" | awk '{print $2}' | sort -n | tail -n 1)"
}
of_l3fwd() {
  local vdevs=(--vdev "net_pcap0,rx_pcap=$work/set.pcap,infinite_rx=1" --vdev "$null")
  # shellcheck disable=SC2086  # several words
  "${last[@]}" "$l3fwd" $environment --file-prefix ports-sh -l "$(($(nproc) - 1))" "${vdevs[@]}" -- -p 3 \
    --config="(0,0,$(($(nproc) - 1)))" --lookup=acl --rule_ipv4="$work/set.ipv4" --rule_ipv6="$work/set.ipv6" \
    --parse-ptype >"$work/log" 2>&1 &
  forwarder=$! figure=of_telemetry
  for ((i = 0; i < 100; ++i)); do
    ! of_telemetry >/dev/null 2>&1 || break
    sleep 0.1
  done
  sleep 2  # it looks for links before it begins
  measured "$1"
}
of_veth() {
  ip netns exec "$in" "${first[@]}" "$bin/send-frames" s0 60 "$((seconds + 2))" 0 64 >/dev/null &
  local sender=$!
  measured "$1"
  wait "$sender"
}

has_dpdk=$([[ -e $bin/VeloDpdk.so ]] && echo yes || true)
lists=(0 10 1000 10000 1000-both)
[[ ! -e $work/set.acl ]] || lists+=(set set-both)
names=("${lists[@]/#/capture-}")
[[ -z $has_dpdk ]] || names=(testpmd-io testpmd-macswap "${lists[@]/#/dpdk-}" "${names[@]}")
[[ -z $l3fwd || ! -e $work/set.acl ]] || names=(l3fwd-set "${names[@]}")
names+=(workers-1-1000 workers-2-1000 veth-packet-bare veth-packet veth-packet-1000 veth-xdp-bare veth-xdp veth-xdp-1000)
for ((round = 1; round <= rounds; ++round)); do
  for name in "${names[@]}"; do
    [[ $name =~ $only ]] || continue
    case $name in
      testpmd-*) ! command -v dpdk-testpmd >/dev/null || of_testpmd "$name" "${name#testpmd-}" ;;
      capture-*)
        begin "${name#capture-}" "pcap:$(capture_of "${name#capture-}"),endless" null:
        measured "$name"
        ;;
      workers-*)
        [[ $name =~ ^workers-([0-9]+)-(.*)$ ]]
        begin "${BASH_REMATCH[2]}" "pcap:$work/in.pcap,endless" null: --workers "${BASH_REMATCH[1]}"
        measured "$name"
        ;;
      dpdk-*)
        begin "${name#dpdk-}" "dpdk:net_pcap0,rx_pcap=$(capture_of "${name#dpdk-}"),infinite_rx=1" "dpdk:$null"
        measured "$name"
        ;;
      l3fwd-set) of_l3fwd "$name" ;;
      veth-packet-bare | veth-xdp-bare)
        bare="bare-forwarder"
        [[ $name == veth-packet-bare ]] || bare="bare-xdp-forwarder"
        begin_bare "$bare"
        of_veth "$name"
        ;;
      veth-*)
        kind=${name#veth-} list=0
        if [[ $kind == *-1000 ]]; then kind=${kind%-1000} list=1000; fi
        begin "$list" "$kind:eth1" "$kind:eth2"
        of_veth "$name"
        ;;
    esac
  done
done

python3 - "$work/figures" <<'PYTHON'
import collections
import statistics
import sys

figures = collections.defaultdict(list)
for line in open(sys.argv[1], encoding="ascii"):
    name, *rate = line.split()
    if rate:
        figures[name].append((float(rate[0]) / 1e6, float(rate[1]) if len(rate) > 1 else None))
print("millions of frames a second; nanoseconds of the agent's processor a frame, median and least")
print(f"{'':20} {'median':>8} {'least':>8} {'most':>8} {'ns':>8} {'least':>8}")
for name, told in figures.items():
    rates = [rate for rate, _ in told]
    used = [ns for _, ns in told if ns is not None]
    ends = f" {statistics.median(used):8.1f} {min(used):8.1f}" if used else ""
    print(f"{name:20} {statistics.median(rates):8.2f} {min(rates):8.2f} {max(rates):8.2f}{ends}")
PYTHON
