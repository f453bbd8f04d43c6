#!/usr/bin/env bash
# Puts every C++ file of the tree into the project's format; with --check only says which are not in it.
set -euo pipefail
# shellcheck source=scripts/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

usage() { echo "usage: scripts/format.sh [--check]"; }

mode=(-i)
for argument in "$@"; do
  case $argument in
    --check) mode=(--dry-run --Werror) ;;
    -h | --help)
      usage
      exit 0
      ;;
    *) usage_error "unknown argument: $argument" ;;
  esac
done

cd "$root"
files=()
# New files count before they are tracked; a file that was deleted and not yet committed does not.
while IFS= read -r -d '' file; do
  if [[ -f $file ]]; then files+=("$file"); fi
done < <(git ls-files -z --cached --others --exclude-standard -- '*.h' '*.cpp')
[[ ${#files[@]} -gt 0 ]] || die "git names no C++ file in $root"
printf '%s\0' "${files[@]}" | xargs -0 -n 16 -P "$jobs" clang-format "${mode[@]}"
