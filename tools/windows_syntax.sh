#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-2.0-or-later
# Checks the syntax and types of every source that Windows would compile, with a cross compiler and
# the Linux packages' headers. Nothing is generated, linked or run.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# Only the libraries' folders: the C library's own headers beside them are not those of Windows.
include=build/windows-headers
mkdir -p "$include/QtGui"
ln -sfn "$(pkg-config --variable=includedir simde)/simde" "$include/simde"
for library in libavformat libavcodec libavutil; do
  ln -sfn "$(pkg-config --variable=includedir $library)/$library" "$include/$library"
done
# Headers that the libraries have on Windows alone. The module needs no more of them than this.
: >"$include/threading-windows.h"
cat >"$include/QtGui/qwindowdefs_win.h" <<'TXT'
#include <windef.h>
struct tagMSG;
using MSG = tagMSG;
TXT
# Lets formats be checked by the rules of today's C runtime, not of the one before %zu.
printf '#include <%s>\n' cinttypes cstdio >"$include/formats.h"
echo '#define printf gnu_printf' >>"$include/formats.h"

qt=$(pkg-config --variable=includedir Qt6Core)
flags=(-std=c++20 -fsyntax-only -Wall -Wextra -Wpedantic -Werror -include "$include/formats.h"
  -D__STDC_CONSTANT_MACROS -DQT_NO_KEYWORDS -DCVC_VERSION='""' -Isrc)
for folder in "$include" "$(pkg-config --variable=includedir libobs)/obs" "$qt" "$qt"/Qt{Core,Gui,Widgets}; do
  flags+=(-isystem "$folder")
done
mapfile -t files < <(find src -name '*.cpp' ! -name '*_linux.cpp' | sort)
printf '%s\n' "${files[@]}" |
  xargs -P 2 -n 1 sh -c '"$@" || exit 255' sh x86_64-w64-mingw32-g++-posix "${flags[@]}"
echo "Windows: ${#files[@]} files passed" >&2
