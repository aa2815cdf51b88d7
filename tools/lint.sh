#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-2.0-or-later
# clang-tidy over every source of the debug build (which another platform's are not part of); any finding fails.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
cmake --build build/debug --target autogen >/dev/null 2>&1 || true
mapfile -t files < <(find src tests tools bench -name '*.cpp' ! -name '*_windows.cpp' | sort)
echo "clang-tidy: ${#files[@]} files" >&2
printf '%s\n' "${files[@]}" | xargs -P "$(nproc)" -n 1 clang-tidy --quiet -p build/debug 2> >(grep -v 'warnings generated' >&2 || true)
