#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-2.0-or-later
# usage: install_test.sh [--packages FOLDER]; runs outside the environment.
# Whether the README's packages are enough to build with its lines, and the host loads what these install; or
# whether the packages in the FOLDER are built the same again, work beside nothing but the host, and leave no trace.
set -euo pipefail
project_dir=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# In a root with the README's packages and a screen.
build_as_readme() {
  sudo() { "$@"; }
  eval "$(sed -n 's/^    \(\(sudo \)\?cmake -.*\)/\1/p' README.md)"

  export HOME=/tmp/home QT_QPA_PLATFORM=xcb LIBGL_ALWAYS_SOFTWARE=1
  mkdir -p $HOME/.config/obs-studio
  printf '[General]\nFirstRun=true\n' >$HOME/.config/obs-studio/user.ini
  . tools/screen.sh
  start_screen
  obs --multi --disable-updater --verbose >$HOME/console 2>&1 &
  local host=$! end=$((SECONDS + 60))
  until grep 'corvane-obs-vertical. Loaded successfully' $HOME/console; do
    kill -0 $host && [ $SECONDS -lt $end ] || {
      tail -n 40 $HOME/console >&2
      return 1
    }
    sleep 0.2
  done
  kill -INT $host
  wait $host
}

system_files() {
  find / -xdev \( -path /src -o -path /tmp -o -path /proc -o -path /sys -o -path /var \) -prune -o -print | sort
}
stream_with() { CVC_MODULE=$1 PYTHONDONTWRITEBYTECODE=1 pytest-3 -vx -p no:cacheprovider tests/host/test_stream.py; }

# In a root with the host, and the servers and the screen of the tests.
use_packages() {
  local before
  before=$(system_files)
  dpkg -i dist/*.deb
  stream_with system
  stream_with dist/*.tar.gz # beside it
  dpkg -P corvane-vertical-canvas
  diff <(echo "$before") <(system_files)
  stream_with dist/*.tar.gz
}

# git lists deleted files, too.
sources() {
  (cd "$project_dir" && git ls-files -z --cached --others --exclude-standard | tar -c --ignore-failed-read --null -T -)
}

# Called by mmdebstrap with its new root, as root.
enter_root() {
  local root=$1 job=$2 packages=${3:-} path=PATH=/usr/sbin:/usr/bin:/sbin:/bin
  mkdir "$root/src"
  sources | tar -x --no-same-owner -C "$root/src"
  if [ -n "$packages" ]; then
    cp -r "$packages" "$root/src/dist"
    (cd "$project_dir" && cp --parents build/release/tools/livehost/driver/livehost-driver.so "$root/src")
  fi
  chroot "$root" env -i "$path" HOME=/tmp/home LANG=C.UTF-8 bash -euc "cd /src && . tests/install_test.sh --inside $job"
}

# in_root PACKAGES JOB [FOLDER]: does the job in a root with the Debian packages.
in_root() {
  say "Making a root with $1"
  prepare_bootstrap
  TMPDIR=$cache_dir bootstrap "$1" /dev/null --format=null \
    --customize-hook="'$project_dir/tests/install_test.sh' --hook \"\$1\" $2 '${3:-}'"
}

case ${1:-} in
  --hook) enter_root "${@:2}" ;;
  --inside) "$2" ;;
  --packages)
    . "$project_dir/tools/environment.sh"
    prepare_environment
    extra_binds=("$project_dir")
    again=$project_dir/build/again
    rm -rf "$again"
    mkdir -p "$again"
    sources | tar -x -C "$again"
    say "Building them again elsewhere"
    enter "$again/tools/package.sh" "$again/dist"
    diff "$2/SHA256SUMS" "$again/dist/SHA256SUMS"
    packages=(
      obs-studio libqt6test6 xvfb xauth openbox xdotool imagemagick libgl1-mesa-dri fonts-dejavu-core
      nginx-light libnginx-mod-rtmp srt-tools ffmpeg iproute2 procps python3-pytest python3-numpy python3-pil
    )
    in_root "$(tr ' ' , <<<"${packages[*]}")" use_packages "$2"
    say "Built the same twice; both streamed beside nothing but the host, and left nothing"
    ;;
  *)
    . "$project_dir/tools/environment.sh"
    packages=$(sed -n '/^    sudo apt install/,/[^\\]$/{s/sudo apt install//;s/\\$//;p}' "$project_dir/README.md" | xargs | tr ' ' ,)
    in_root "$packages,xvfb" build_as_readme
    say "Installed, and the host loads it"
    ;;
esac
