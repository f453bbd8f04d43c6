#!/usr/bin/env bash
# Builds the benchmarks of the packets' way and fails when a packet takes 2 % more instructions than bench/instructions.txt
# says. It takes minutes and needs valgrind, and is no part of scripts/test.sh.
set -euo pipefail
# shellcheck source=scripts/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

command -v valgrind >/dev/null || die "valgrind is not installed"
build release packets-bench matches-bench
exec "$root/bench/instructions.py" --check "$@" "$root/build/release"
