#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-2.0-or-later
# usage: build.sh PRESET [--configure-only | TARGET...]; runs inside the environment.
# Builds the targets, or all. The tests are always configured, also where a user's build was before.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
preset=$1
shift
log="build/$preset.configure.log"
if [ ! -f "build/$preset/build.ninja" ] || ! grep -q '^CVC_BUILD_TESTS:BOOL=ON' "build/$preset/CMakeCache.txt"; then
  mkdir -p build
  echo "Configuring ($preset)" >&2
  cmake --preset "$preset" -DCVC_BUILD_TESTS=ON >"$log" 2>&1 || {
    cat "$log" >&2
    exit 1
  }
fi
[ "${1:-}" = --configure-only ] || cmake --build "build/$preset" ${1:+--target "$@"}
