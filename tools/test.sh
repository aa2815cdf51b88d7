#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-2.0-or-later
# usage: test.sh PRESET [--long] [NAME...]; runs inside the environment.
# The in-process tests of build/PRESET on a screen of their own, then, with the presets release
# and debug, the tests that drive the real host. NAMEs choose those that contain one of the words.
# Some tests take minutes or run but briefly unless --long is given.
set -uo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
project=$PWD
preset=$1
build="$project/build/$preset"
shift
names=() long=()
for argument; do
  if [ "$argument" = --long ]; then
    long=(-m '')
    export CVC_LONG=1
  else
    names+=("$argument")
  fi
done
set -- "${names[@]}"
. tools/screen.sh

export QT_QPA_PLATFORM=xcb LIBGL_ALWAYS_SOFTWARE=1
export ASAN_OPTIONS="detect_stack_use_after_return=1"
export UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1"
# A leaked thread of ours would have ended the process (it is a std::thread); libobs leaks one
# with every output that stops. Servers are made by fork.
export TSAN_OPTIONS="suppressions=$project/tests/support/tsan.supp:report_thread_leaks=0:die_after_fork=0:second_deadlock_stack=1"

status=0
if [ $# -gt 0 ]; then
  printf -v GTEST_FILTER '*%s*:' "$@"
  export GTEST_FILTER
fi
start_screen
ctest --test-dir "$build" --output-on-failure --progress || status=1

if [[ $preset =~ ^(release|debug)$ ]]; then
  tools/build.sh fuzz && tests/fuzz/run.sh "$@" || status=1
  words=$(printf ' or %s' "$@")
  CVC_MODULE="$build/src/corvane-vertical-canvas.so" \
    pytest-3 tests/host -v "${long[@]}" ${1:+-k "${words# or }"}
  code=$?
  # 5: the words chose none of these tests.
  [ $code -eq 0 ] || { [ $code -eq 5 ] && [ $# -gt 0 ]; } || status=1
fi
exit $status
