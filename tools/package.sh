#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-2.0-or-later
# usage: package.sh FOLDER; runs inside the environment.
# Puts the Debian package, the archive for one user's module folder, and their SHA-256 sums there.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
out=$1

umask 022 # which the folders in the packages have

from_last_commit() {
  git -c safe.directory='*' log -1 --format="$1" 2>/dev/null || {
    echo "No git clone: SOURCE_DATE_EPOCH, DEBFULLNAME and DEBEMAIL must be set" >&2
    return 1
  }
}
SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(from_last_commit %ct)}
DEBFULLNAME=${DEBFULLNAME:-$(from_last_commit %an)}
DEBEMAIL=${DEBEMAIL:-$(from_last_commit %ae)}
export SOURCE_DATE_EPOCH DEBFULLNAME DEBEMAIL
# What a cache holds may have been compiled elsewhere.
export CCACHE_DISABLE=1
# Debian's hardening, and no paths of this machine.
eval "$(DEB_BUILD_MAINT_OPTIONS=hardening=+bindnow dpkg-buildflags --export=sh)"
export CXXFLAGS="$CXXFLAGS $CPPFLAGS"

rm -rf build/package
cmake --preset package >/dev/null
cmake --build build/package
rm -rf "$out"
mkdir -p "$out"
cpack --config build/package/CPackConfig.cmake -B build/package/cpack >/dev/null
mv build/package/cpack/*.deb "$out"

cmake --install build/package --component user --strip --prefix build/package/user >/dev/null
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' build/package/CMakeCache.txt)
tar -C build/package/user --sort=name --mtime="@$SOURCE_DATE_EPOCH" --owner=0 --group=0 --numeric-owner --mode=go=u-w \
  -c corvane-vertical-canvas | gzip -9n >"$out/corvane-vertical-canvas-$version-linux-$(uname -m).tar.gz"

cd "$out"
sums=$(sha256sum -- *) # which must not list the file that is being written
echo "$sums" | tee SHA256SUMS
lintian --fail-on error,warning --tag-display-limit 0 -- *.deb
appstreamcli validate --no-net --override=url-homepage-missing=info "$OLDPWD"/build/package/tools/package/*.metainfo.xml
