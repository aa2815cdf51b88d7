#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-2.0-or-later
# usage: install_test.sh; runs outside the environment.
# Whether the README's packages are enough for its lines, and the host loads what they install.
set -euo pipefail
project_dir=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# In a root with these packages and a screen, with the sources in the current folder.
install_and_start() {
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

# Called by mmdebstrap with its new root, as root.
enter_root() {
  local path=PATH=/usr/sbin:/usr/bin:/sbin:/bin
  mkdir "$1/src"
  (cd "$project_dir" && git ls-files -z --cached --others --exclude-standard | tar -c --null -T -) | tar -x --no-same-owner -C "$1/src"
  chroot "$1" env -i $path LANG=C.UTF-8 bash -euc 'cd /src && . tests/install_test.sh --inside'
}

case ${1:-} in
  --hook) enter_root "$2" ;;
  --inside) install_and_start ;;
  *)
    . "$project_dir/tools/environment.sh"
    packages=$(sed -n '/^    sudo apt install/,/[^\\]$/{s/sudo apt install//;s/\\$//;p}' "$project_dir/README.md" | xargs | tr ' ' ,)
    say "Making a root with $packages"
    prepare_bootstrap
    TMPDIR=$cache_dir bootstrap "$packages,xvfb" /dev/null --format=null \
      --customize-hook="'$project_dir/tests/install_test.sh' --hook \"\$1\""
    say "Installed, and the host loads it"
    ;;
esac
