#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-2.0-or-later
# usage: fuzz.sh [NAME...] [--seconds N] [--keep]; runs inside the environment.
# Each fuzz program, or those whose name contains one of the words, for N seconds (20), one after
# another. An input that breaks a program is left in build/fuzz/found. With --keep the inputs that
# reach new code are merged into the corpus.
set -uo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
seconds=20 keep= names=()
while [ $# -gt 0 ]; do
  case $1 in
    --seconds)
      seconds=${2:?--seconds needs a number}
      shift
      ;;
    --seconds=*) seconds=${1#*=} ;;
    --keep) keep=1 ;;
    *) names+=("$1") ;;
  esac
  shift
done

chosen() {
  [ ${#names[@]} -eq 0 ] && return
  local name
  for name in "${names[@]}"; do [[ $1 == *$name* ]] && return; done
  return 1
}

. tools/screen.sh
start_screen
export ASAN_OPTIONS="detect_stack_use_after_return=1"
export UBSAN_OPTIONS="print_stacktrace=1"
found=$PWD/build/fuzz/found
mkdir -p "$found"
status=0 count=0
for source in tools/fuzz/*_fuzz.cpp; do
  target=$(basename "$source" _fuzz.cpp)
  chosen "$target" || continue
  count=$((count + 1))
  program=build/fuzz/tools/fuzz/${target}_fuzz
  corpus=tools/fuzz/corpus/$target
  work=$(mktemp -d)
  if "$program" -max_total_time="$seconds" -timeout=20 -rss_limit_mb=4096 -print_final_stats=1 \
    -artifact_prefix="$found/$target-" "$work" "$corpus" >"$work.log" 2>&1; then
    runs=$(awk '/number_of_executed_units/ { print $2 }' "$work.log")
    reached=$(grep -o 'cov: [0-9]* ft: [0-9]*' "$work.log" | tail -1)
    printf '%-16s ok      %9s runs  %s\n' "$target" "$runs" "$reached"
    if [ -n "$keep" ]; then
      mkdir -p "$work.new" "$corpus"
      "$program" -merge=1 "$work.new" "$corpus" "$work" >>"$work.log" 2>&1 &&
        rm -rf "${corpus:?}" && mv "$work.new" "$corpus"
    fi
  else
    printf '%-16s BROKEN\n' "$target"
    grep -v '^#' "$work.log" | tail -40
    status=1
  fi
  rm -rf "$work" "$work.log"
done
[ "$count" -gt 0 ] || echo "no fuzz program has one of the words in its name" >&2
exit $status
