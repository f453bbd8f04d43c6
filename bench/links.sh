# Two veth links through a namespace in the middle, for scripts that measure between them; to be sourced.
# shellcheck shell=bash

# links_are NAME: makes `in` (device s0), `middle` (eth1, eth2) and `out` (r0), namespaces whose names begin with NAME, and the
# folder `work`. All of it goes when the script ends, and so does the process that `forwarder` names.
links_are() {
  in=$1-in middle=$1-mid out=$1-out
  work=$(mktemp -d)
  forwarder=
  trap links_go EXIT
  local namespace device end
  for namespace in "$in" "$middle" "$out"; do
    ip netns add "$namespace"
    ip netns exec "$namespace" sysctl -qw net.ipv6.conf.all.disable_ipv6=1 net.ipv6.conf.default.disable_ipv6=1
  done
  ip link add s0 netns "$in" type veth peer name eth1 netns "$middle"
  ip link add r0 netns "$out" type veth peer name eth2 netns "$middle"
  for end in "$in s0" "$middle eth1" "$middle eth2" "$out r0"; do
    read -r namespace device <<<"$end"
    ip -n "$namespace" link set "$device" up
  done
}

links_go() {
  [[ -z $forwarder ]] || kill "$forwarder" 2>/dev/null || true
  local namespace
  for namespace in "$in" "$middle" "$out"; do ip netns del "$namespace" 2>/dev/null || true; done
  rm -rf "$work"
}
