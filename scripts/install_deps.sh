#!/usr/bin/env bash
# Installs the Debian 12 packages that building and testing need, and only those that are missing: with all of
# them in place it neither needs rights nor a network.
set -euo pipefail
# shellcheck source=scripts/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

usage() {
  cat <<'TEXT'
usage: scripts/install_deps.sh [--ci] [--sanitize] [--fuzz] [--dpdk]
  --ci        also what only the checks of .ci/run use: the formatter, what makes and checks packages and manual pages, a reader of annotated
              captures, a server that scrapes metrics, a store for fleets, shells that complete
  --sanitize  also what scripts/test.sh --sanitize uses: clang with its sanitizers
  --fuzz      also what scripts/fuzz.sh uses: clang with its fuzzer
  --dpdk      also what dpdk: ports are built with; without it the build leaves them out
TEXT
}

packages=(g++ cmake lld ninja-build pkg-config python3 libfmt-dev libpcap-dev libsqlite3-dev libcli11-dev nlohmann-json3-dev libcurl4-openssl-dev zlib1g-dev libzstd-dev libbdd-dev libxml2-dev
  prometheus-cpp-dev libyang2-dev libyang2-tools libgtest-dev libgmock-dev libbenchmark-dev iproute2 iperf3 iputils-ping nftables)
for argument in "$@"; do
  case $argument in
    --ci) packages+=(clang-format dpkg-dev etcd-server git fish groff-base lintian tshark prometheus zsh) ;;
    --sanitize | --fuzz) packages+=(clang libclang-rt-14-dev) ;;
    --dpdk) packages+=(libdpdk-dev dpdk-dev dpdk) ;;
    -h | --help)
      usage
      exit 0
      ;;
    *) usage_error "unknown argument: $argument" ;;
  esac
done

command -v dpkg-query >/dev/null || die "this is no Debian system; install by other means: ${packages[*]}"

missing=()
for package in "${packages[@]}"; do
  # shellcheck disable=SC2016  # the field name is for dpkg-query
  state=$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null || true)
  [[ $state == installed ]] || missing+=("$package")
done
[[ ${#missing[@]} -gt 0 ]] || exit 0

as_root=()
if [[ $(id -u) -ne 0 ]]; then
  command -v sudo >/dev/null || die "to be run as root, or with sudo; missing: ${missing[*]}"
  as_root=(sudo)
fi
say "installing ${missing[*]}"
install=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q)
log=$(mktemp)
trap 'rm -f "$log"' EXIT
quietly "$log" "${install[@]}" update
quietly "$log" "${install[@]}" install -y --no-install-recommends "${missing[@]}"
