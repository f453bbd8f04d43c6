#!/usr/bin/env bash
# Installs what is missing, builds the program and replays a capture through access lists: the one that comes
# with the project, or the caller's own. The table goes to stdout, all else to stderr.
set -euo pipefail
# shellcheck source=scripts/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

usage() {
  cat <<'TEXT'
usage: scripts/demo.sh [FILE.pcap]
Without a file: the captures in examples/ through the lists of examples/demo.acl.
With a capture (pcap or pcapng, Ethernet): its frames, received on port eth1 and patched to eth2, through the
lists of examples/any.acl.
TEXT
}

capture=
for argument in "$@"; do
  case $argument in
    -h | --help)
      usage
      exit 0
      ;;
    -?*) usage_error "unknown argument: $argument" ;;
    *)
      [[ -z $capture ]] || usage_error "one capture at a time: $argument"
      [[ -n $argument ]] || usage_error "the name of the capture is empty"
      capture=$argument
      ;;
  esac
done
if [[ -n $capture ]]; then
  [[ -f $capture && -r $capture ]] || die "cannot read $capture"
  capture=$(realpath -- "$capture")
fi

"$root/scripts/install_deps.sh"
build release velo VeloAcl make-demo-capture

out=build/demo
mkdir -p "$out"
if [[ -n $capture ]]; then
  replay=(--config examples/any.acl --port "eth1=$capture" --patch "eth1,eth2")
else
  # Made afresh, so that what is replayed is what the generator says it is.
  build/release/bin/make-demo-capture "$out"
  replay=(--config examples/demo.acl --patch "eth1,po1")
  for port in eth1 eth2 eth4; do replay+=(--port "$port=$out/$port.pcap"); done
fi
replay+=(--out "eth9=$out/mirrored.pcap")

say "build/release/bin/velo replay ${replay[*]}"
status=0
build/release/bin/velo replay "${replay[@]}" || status=$?
say "what the lists mirrored is in $out/mirrored.pcap"
exit "$status"
