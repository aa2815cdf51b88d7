#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-2.0-or-later
# usage: build.sh PRESET [--configure-only]; runs inside the environment.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
preset=$1
log="build/$preset.configure.log"
if [ ! -f "build/$preset/build.ninja" ]; then
  mkdir -p build
  echo "Configuring ($preset)" >&2
  cmake --preset "$preset" >"$log" 2>&1 || {
    cat "$log" >&2
    exit 1
  }
fi
[ "${2:-}" = --configure-only ] || cmake --build "build/$preset"
