#!/usr/bin/env bash
# Installs what is missing, builds everything into build/release and runs the tests, and once more with every task
# at the end of its time slice wherever it asks.
set -euo pipefail
# shellcheck source=scripts/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

usage() {
  cat <<'TEXT'
usage: scripts/test.sh [--sanitize|--threads] [--build]
  --sanitize  build/sanitize instead, by clang with the address and undefined-behaviour sanitizers
  --threads   build/threads instead, with the thread sanitizer, and only the tests of rooms that have threads
  --build     builds only, and runs nothing
TEXT
}

preset=release
build_only=
for argument in "$@"; do
  case $argument in
    --sanitize) preset=sanitize ;;
    --threads) preset=threads ;;
    --build) build_only=1 ;;
    -h | --help)
      usage
      exit 0
      ;;
    *) usage_error "unknown argument: $argument" ;;
  esac
done

install=()
[[ $preset == sanitize ]] && install=(--sanitize)
"$root/scripts/install_deps.sh" "${install[@]}"
if [[ $preset == threads ]]; then
  # Lists are compiled, texts read, and the state written on threads of their own; what is counted can be told to
  # expect that. The tests have the label where they are declared.
  build threads Kelp-tests Acl-tests agent-tests control-tests fuzz-classifier fuzz-control fuzz-directory velo
  [[ -z $build_only ]] || exit 0
  run_tests threads tests --label-regex '^threads$'
  exit
fi
build "$preset"
[[ -z $build_only ]] || exit 0
if [[ $preset == sanitize ]]; then
  # Live tests are about real time, which sanitizers stretch; what they drive, the other tests drive by hand. What the
  # scripts themselves check is the same everywhere.
  run_tests "$preset" tests --exclude-regex '^(layering|mutants|live)[.]'
else
  # Live tests wait for most of their time.
  run_tests "$preset" tests --parallel "$((2 * jobs))"
  # Rooms below the tasks, languages and scripts know none of them, and live tests are about real time.
  VELO_ALWAYS_YIELD=1 run_tests "$preset" always-yield --exclude-regex '^(layering|mutants|live|Classify|Hive|Nimnet|config|examples|proof|support)[.]|MatchDifferential|MatchProperty|RealCaptures|CaptureKinds'
fi
