#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-2.0-or-later
# usage: format.sh [--check]; lays out the C++ sources, or says which differ.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
case ${1:-} in
  --check) options=(--dry-run --Werror) ;;
  "") options=(-i) ;;
  *)
    echo "usage: ./dev format [--check]" >&2
    exit 2
    ;;
esac
find src tests tools bench \( -name '*.cpp' -o -name '*.hpp' \) -print0 2>/dev/null | xargs -0 -r clang-format "${options[@]}"
