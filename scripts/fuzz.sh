#!/usr/bin/env bash
# Builds the fuzzers of fuzz/ with clang into build/fuzz and runs them, one after the other.
set -euo pipefail
# shellcheck source=scripts/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

usage() {
  cat <<'TEXT'
usage: scripts/fuzz.sh [--plain] [SECONDS [TARGET...]]
  SECONDS  for each target; 60 when none are given
  TARGET   as in fuzz/README.md; all of them when none is given
  --plain  no libFuzzer: random inputs and those that were found, in the build of scripts/test.sh --sanitize
Inputs that were found to lead somewhere are kept in build/fuzz/inputs/TARGET. One that is found to be wrong goes to
build/fuzz/wrong/TARGET-*, with --plain to build/sanitize/wrong/TARGET-input, and ends the run of its target; those
behind it run all the same, and the status is 1 then.
TEXT
}

plain=
arguments=()
for argument in "$@"; do
  case $argument in
    --plain) plain=1 ;;
    -h | --help)
      usage
      exit 0
      ;;
    -*) usage_error "unknown argument: $argument" ;;
    *) arguments+=("$argument") ;;
  esac
done
seconds=${arguments[0]:-60}
[[ $seconds =~ ^[1-9][0-9]*$ ]] || usage_error "no number of seconds: $seconds"
targets=("${arguments[@]:1}")
if [[ ${#targets[@]} -eq 0 ]]; then
  for folder in "$root"/fuzz/found/*/; do targets+=("$(basename "$folder")"); done
fi
for target in "${targets[@]}"; do
  [[ -d $root/fuzz/found/$target ]] || usage_error "no such target: $target"
done

preset=fuzz
if [[ $plain ]]; then
  preset=sanitize
  "$root/scripts/install_deps.sh" --sanitize
else
  "$root/scripts/install_deps.sh" --fuzz
fi
build "$preset" "${targets[@]/#/fuzz-}"
wrong=$root/build/$preset/wrong
mkdir -p "$wrong"

# What is made anew for every input is freed by it; a leak shows at the end of a run.
run_plain() {
  # What a sanitizer finds is to end the process by a signal, behind which the input is written.
  ASAN_OPTIONS=abort_on_error=1 UBSAN_OPTIONS=abort_on_error=1:print_stacktrace=1 \
    "$root/build/sanitize/bin/fuzz-$1" --seconds "$seconds" --seed "$RANDOM" --crash "$wrong/$1-input" \
    "$root/fuzz/found/$1" "$root/fuzz/seeds/$1"
}
run_fuzzer() {
  local inputs=$root/build/fuzz/inputs/$1
  mkdir -p "$inputs"
  # Left on, the search for leaks behind an input runs it twice, and the weights of what it reached take longer than
  # the input.
  "$root/build/fuzz/bin/fuzz-$1" -max_total_time="$seconds" -timeout=60 -rss_limit_mb=4096 -detect_leaks=0 -entropic=0 \
    -print_final_stats=1 -verbosity=0 -artifact_prefix="$wrong/$1-" "$inputs" "$root/fuzz/found/$1" "$root/fuzz/seeds/$1"
}

# Random inputs take a processor each; the fuzzer is given the machine, for it is judged by what it gets through.
at_once=1
[[ -z $plain ]] || at_once=$jobs
failed=$(mktemp)
trap 'rm -f "$failed"' EXIT
run() {
  say "$1 for $seconds seconds"
  if [[ $plain ]]; then run_plain "$1"; else run_fuzzer "$1"; fi || echo "$1" >>"$failed"
}
for target in "${targets[@]}"; do
  while (($(jobs -rp | wc -l) >= at_once)); do wait -n; done
  run "$target" &
done
wait
[[ ! -s $failed ]] || die "something is wrong: $(sort "$failed" | tr '\n' ' ')(see $wrong)"
