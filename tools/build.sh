#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-2.0-or-later
# usage: build.sh PRESET [--configure-only | TARGET...]; runs inside the environment.
# Builds the targets, or all. The tests are always configured, also where a user's build was before.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
preset=$1
shift
log="build/$preset.configure.log"
# Configured anew in another environment, which may have more for the tests and benches.
if ! grep -qsx "CVC_BUILT_IN:UNINITIALIZED=${CVC_ENVIRONMENT:-}" "build/$preset/CMakeCache.txt" ||
  [ ! -f "build/$preset/build.ninja" ]; then
  mkdir -p build
  echo "Configuring ($preset)" >&2
  cmake --preset "$preset" -DCVC_BUILD_TESTS=ON -DCVC_BUILT_IN="${CVC_ENVIRONMENT:-}" >"$log" 2>&1 || {
    cat "$log" >&2
    exit 1
  }
fi
[ "${1:-}" = --configure-only ] || cmake --build "build/$preset" ${1:+--target "$@"}
