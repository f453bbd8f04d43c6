#!/usr/bin/env bash
# Fails and says where when a C++ file is not in the project's format.
set -euo pipefail
exec "$(dirname "${BASH_SOURCE[0]}")/format.sh" --check "$@"
