#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-2.0-or-later
# usage: run.sh [NAME...] [--seconds N] [--keep]; runs inside the environment.
# Each fuzz program whose name contains one of the words, or all, for N seconds (20). An input that
# breaks a program is left in build/fuzz. --keep merges those that reach new code into the corpus.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
seconds=20 keep='' names=()
while [ $# -gt 0 ]; do
  case $1 in
    --seconds) seconds=${2:?--seconds needs a number} && shift ;;
    --seconds=*) seconds=${1#*=} ;;
    --keep) keep=1 ;;
    *) names+=("$1") ;;
  esac
  shift
done
. tools/screen.sh
start_screen
export ASAN_OPTIONS=detect_stack_use_after_return=1 UBSAN_OPTIONS=print_stacktrace=1
status=0
for source in tests/fuzz/*_fuzz.cpp; do
  target=$(basename "$source" _fuzz.cpp)
  [ ${#names[@]} -eq 0 ] || grep -qF "$(printf '%s\n' "${names[@]}")" <<<"$target" || continue
  program=build/fuzz/tests/fuzz/${target}_fuzz corpus=tests/fuzz/corpus/$target found=build/fuzz/$target
  rm -rf "$found" && mkdir -p "$found/new" "$found/merged"
  "$program" -max_total_time="$seconds" -timeout=20 -rss_limit_mb=4096 -print_final_stats=1 -verbosity=0 \
    -artifact_prefix="$found/" "$found/new" "$corpus" || status=1
  [ -z "$keep" ] || { "$program" -merge=1 "$found/merged" "$corpus" "$found/new" && rm -r "$corpus" && mv "$found/merged" "$corpus"; }
done
exit $status
