# shellcheck shell=bash
# What the scripts share; sourced, never run. Progress goes to stderr: stdout belongs to what was asked for.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
jobs=$(nproc 2>/dev/null || echo 2)

say() { printf '%s\n' "-- $*" >&2; }
die() {
  printf '%s: %s\n' "${0##*/}" "$*" >&2
  exit 1
}

# usage_error TEXT...: a mistake on the command line. The script defines usage().
usage_error() {
  printf '%s: %s\n' "${0##*/}" "$*" >&2
  usage >&2
  exit 2
}

# quietly LOG COMMAND...: what the command prints goes to LOG, and is shown in full when it fails.
quietly() {
  local log=$1 status=0
  shift
  mkdir -p "$(dirname "$log")"
  "$@" >"$log" 2>&1 || status=$?
  [[ $status -eq 0 ]] && return 0
  cat "$log" >&2
  printf '%s: this failed with status %d: %s\n' "${0##*/}" "$status" "$*" >&2
  return "$status"
}

# build PRESET [TARGET...]: configures and builds into build/PRESET; without a target everything.
build() {
  local preset=$1 launcher=() targets=()
  shift
  if command -v ccache >/dev/null; then
    launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
    # So that clones share what they compile, and a first build is not slower with it than without.
    export CCACHE_BASEDIR=$root CCACHE_NOHASHDIR=1 CCACHE_DEPEND=1 CCACHE_SLOPPINESS=pch_defines,time_macros
  fi
  if [[ $# -gt 0 ]]; then targets=(--target "$@"); fi
  cd "$root" || return
  say "configuring build/$preset"
  quietly "build/$preset/configure.log" cmake --preset "$preset" "${launcher[@]}" || return
  say "building ${*:-everything} with $jobs jobs"
  quietly "build/$preset/build.log" cmake --build "build/$preset" --parallel "$jobs" "${targets[@]}"
}

# run_tests PRESET [LABEL [CTEST_ARGUMENT...]]: runs what build/PRESET holds; the label, with which the results are
# kept apart, says in what way. No test run, or none but skipped ones, is a failure.
run_tests() {
  local preset=$1 label=${2:-tests} report total skipped disabled
  report=$root/build/$preset/$label.xml
  rm -f "$report"
  cd "$root" || return
  say "testing build/$preset ($label)"
  quietly "build/$preset/$label.log" ctest --test-dir "build/$preset" --parallel "$jobs" --output-on-failure \
    --no-tests=error --output-junit "$report" "${@:3}" || return
  total=$(suite_number "$report" tests)
  skipped=$(suite_number "$report" skipped)
  disabled=$(suite_number "$report" disabled)
  ((total - skipped - disabled > 0)) || die "no test was run (of $total, $skipped skipped themselves)"
  printf '%d tests passed, %d skipped (build/%s, %s)\n' "$((total - skipped - disabled))" "$((skipped + disabled))" \
    "$preset" "$label"
}

# suite_number FILE ATTRIBUTE: a count from the head of a JUnit report.
suite_number() {
  local number
  number=$(tr '\n' ' ' <"$1" | sed -nE "s/.*<testsuite [^>]*[[:space:]]$2=\"([0-9]+)\".*/\1/p")
  [[ -n $number ]] || die "$1 says nothing of its number of $2"
  printf '%s\n' "$number"
}
