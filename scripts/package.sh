#!/usr/bin/env bash
# Makes the Debian packages velo, velo-dev and velo-dpdk in build/package, of what is committed: in a tree of its own, which has
# nothing that is only here.
set -euo pipefail
# shellcheck source=scripts/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

usage() {
  cat <<'TEXT'
usage: scripts/package.sh [VERSION]
  VERSION  that of the packages; otherwise by the last tag vX.Y.Z of git
TEXT
}

version=
for argument in "$@"; do
  case $argument in
    -h | --help)
      usage
      exit 0
      ;;
    [0-9]*) version=$argument ;;
    *) usage_error "no version: $argument" ;;
  esac
done

"$root/scripts/install_deps.sh" --dpdk
out=$root/build/package
tree=$out/tree
# The build folder stays: a second time only what has changed is compiled.
mkdir -p "$tree"
find "$tree" -mindepth 1 -maxdepth 1 ! -name build -exec rm -rf {} +
git -C "$root" archive HEAD | tar -x -C "$tree"
echo "${version:-$(cmake -P "$root/cmake/VeloVersion.cmake")}" >"$tree/VERSION.txt"

# The functions of lib.sh build what is in $root.
root=$tree
build release velo VeloAcl VeloDpdk
rm -f "$out"/*.deb
quietly "$out/package.log" cpack --config "$tree/build/release/CPackConfig.cmake" -B "$out"
rm -rf "$out/_CPack_Packages"
if command -v lintian >/dev/null; then quietly "$out/lintian.log" lintian --fail-on error --allow-root "$out"/*.deb; fi
ls "$out"/*.deb
