# SPDX-License-Identifier: GPL-2.0-or-later
# Sourced by scripts that run libobs: a screen of their own until they end.

screen_dir=$(mktemp -d)
screen_pid=

end_screen() {
  [ -n "$screen_pid" ] && kill "$screen_pid" 2>/dev/null && wait "$screen_pid" 2>/dev/null
  rm -rf "$screen_dir"
}
trap end_screen EXIT

start_screen() {
  mkfifo "$screen_dir/number"
  Xvfb -displayfd 3 -screen 0 800x600x24 -nolisten tcp 3>"$screen_dir/number" 2>"$screen_dir/log" &
  screen_pid=$!
  local number
  if ! read -r -t 20 number <"$screen_dir/number"; then
    cat "$screen_dir/log" >&2
    echo "${0##*/}: Xvfb did not start" >&2
    exit 1
  fi
  export DISPLAY=":$number"
}
