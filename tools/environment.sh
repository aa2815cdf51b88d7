# SPDX-License-Identifier: GPL-2.0-or-later
# Sourced by ./dev: prepares the build and test environment and runs commands in it.
#
# A machine that has OBS >= 32, FFmpeg >= 8 and all tools is used as it is. Elsewhere a
# Debian root with exactly the packages of packages.txt is made once, cached outside the
# clone under a name made from that list, and entered with bubblewrap (private network and
# process namespaces), or with chroot where the machine refuses namespaces.

suite=forky
cache_dir="${XDG_CACHE_HOME:-$HOME/.cache}/corvane-vertical-canvas"
needed_kib=4000000

say() { printf '\033[1m==>\033[0m %s\n' "$*" >&2; }
die() {
  printf '\033[1;31merror:\033[0m %s\n' "$*" >&2
  exit 1
}

# The packages for the demo alone ("demo"), or all.
package_list() {
  sed "${1:+/^# ---/,\$d;}s/#.*//" "$project_dir/tools/packages.txt" | tr -s ' \n' ',' | sed 's/^,//; s/,$//'
}
root_dir() { echo "$cache_dir/root-$(package_list "$@" | sha256sum | cut -c1-12)"; }

machine_is_enough() {
  local tool
  for tool in obs ffmpeg ffprobe nginx srt-live-transmit Xvfb openbox xdotool import cmake ninja g++ \
    clang-format clang-tidy pkg-config pytest-3 valgrind \
    dpkg-shlibdeps lintian appstreamcli x86_64-w64-mingw32-g++-posix; do
    command -v "$tool" >/dev/null || return 1
  done
  pkg-config --atleast-version=32 libobs obs-frontend-api 2>/dev/null &&
    pkg-config --atleast-version=62 libavformat 2>/dev/null &&
    pkg-config --exists Qt6Widgets gtest 2>/dev/null &&
    python3 -c 'import numpy, PIL, matplotlib, websocket' 2>/dev/null
}

as_root() {
  if [ "$(id -u)" = 0 ]; then
    "$@"
  elif command -v sudo >/dev/null && sudo -n true 2>/dev/null; then
    sudo "$@"
  else
    die "root rights are needed once, for: $*
       Run that command as root, then start ./dev again."
  fi
}

install_bootstrap_tools() {
  local missing=()
  command -v mmdebstrap >/dev/null || missing+=(mmdebstrap)
  command -v bwrap >/dev/null || missing+=(bubblewrap)
  [ "$(id -u)" = 0 ] || command -v newuidmap >/dev/null || missing+=(uidmap)
  [ ${#missing[@]} -eq 0 ] && return
  command -v apt-get >/dev/null ||
    die "this machine has neither OBS >= 32 with FFmpeg >= 8 nor apt to make an environment with"
  say "Installing ${missing[*]}"
  as_root apt-get -qq update || die "the package lists cannot be refreshed: is the mirror reachable?"
  DEBIAN_FRONTEND=noninteractive as_root apt-get -qq install -y --no-install-recommends "${missing[@]}" ||
    die "installing ${missing[*]} failed"
}

# The mirror this machine's own apt uses for the distribution's main packages.
debian_mirror() {
  [ "$(apt-get indextargets --format '$(REPO_URI)' 2>/dev/null | wc -l)" -gt 0 ] || as_root apt-get -qq update >&2 || true
  apt-get indextargets --format '$(REPO_URI) $(ORIGIN) $(SUITE) $(COMPONENT)' 'Created-By: Packages' 2>/dev/null |
    awk '$2 == "Debian" && $4 == "main" && $3 !~ /security|updates|backports/ { print $1; exit }'
}

# Sets $mirror, from which bootstrap takes its packages.
prepare_bootstrap() {
  install_bootstrap_tools
  mirror=$(debian_mirror)
  [ -n "$mirror" ] || die "apt on this machine names no Debian mirror (see 'apt-get indextargets')"
  mkdir -p "$cache_dir"
}

# bootstrap PACKAGES TARGET OPTION...: a root of the suite, in any form that mmdebstrap makes.
bootstrap() {
  local packages=$1 target=$2 setting
  shift 2
  setting=$(apt-config dump Acquire::Check-Valid-Until 2>/dev/null)
  [ -z "$setting" ] || set -- --aptopt="${setting%;}" "$@"
  # No waiting for the disk, nor unpacking what nobody reads.
  mmdebstrap --variant=minbase --components=main --dpkgopt=force-unsafe-io --dpkgopt='path-exclude=/usr/share/doc/*' \
    --dpkgopt='path-exclude=/usr/share/man/*' --dpkgopt='path-exclude=/usr/share/locale/*' "$@" --include="$packages" "$suite" "$target" "$mirror"
}

make_root() {
  local root=$1 packages=$2 free
  prepare_bootstrap
  free=$(df -Pk "$cache_dir" | awk 'NR == 2 { print $4 }')
  [ "$free" -ge "$needed_kib" ] ||
    die "$cache_dir has $((free / 1024)) MiB free; the environment needs $((needed_kib / 1024)) MiB"

  say "Making the environment (once, about a minute): $root"
  rm -rf "$root.part"
  if ! bootstrap "$packages" "$root.part" 2>&1 | tee "$cache_dir/setup.log" | grep --line-buffered '^[IE]:' >&2; then
    tail -n 20 "$cache_dir/setup.log" >&2
    die "making the environment failed; the whole log is $cache_dir/setup.log"
  fi
  mv "$root.part" "$root"
}

# Sets $root to "/" or to a ready root; makes it when it is missing. With "demo" a smaller one, unless
# there is one with all.
prepare_environment() {
  if machine_is_enough; then
    root=/
    return
  fi
  root=$(root_dir)
  [ -d "$root" ] || root=$(root_dir "$@")
  [ -d "$root" ] && return
  mkdir -p "$cache_dir"
  exec 9>"$cache_dir/lock"
  flock 9
  [ -d "$root" ] || make_root "$root" "$(package_list "$@")"
  exec 9>&-
}

inner_environment=(
  "HOME=/tmp/home" "PATH=/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin" "LANG=C.UTF-8" "LC_ALL=C.UTF-8"
  "CCACHE_DIR=$cache_dir/ccache" "TERM=${TERM:-dumb}" "PYTHONDONTWRITEBYTECODE=1"
)
[ -n "${CI:-}" ] && inner_environment+=("CI=$CI")

# The sockets through which a window reaches the person's own screen.
window_binds=()
allow_window() {
  [ -n "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ] || die "no screen: neither DISPLAY nor WAYLAND_DISPLAY is set"
  [ -d /tmp/.X11-unix ] && window_binds+=(--bind /tmp/.X11-unix /tmp/.X11-unix)
  [ -n "${XAUTHORITY:-}" ] && window_binds+=(--ro-bind "$XAUTHORITY" "$XAUTHORITY")
  [ -n "${XDG_RUNTIME_DIR:-}" ] && window_binds+=(--bind "$XDG_RUNTIME_DIR" "$XDG_RUNTIME_DIR")
  [ -d /dev/dri ] && window_binds+=(--dev-bind /dev/dri /dev/dri)
  local name
  for name in DISPLAY WAYLAND_DISPLAY XAUTHORITY XDG_RUNTIME_DIR; do
    [ -n "${!name:-}" ] && inner_environment+=("$name=${!name}")
  done
}

namespaces_work() {
  bwrap --ro-bind / / --dev /dev --proc /proc --unshare-net --unshare-pid true 2>/dev/null
}

# Runs a command in the environment, in the current directory, and returns its status.
enter() {
  mkdir -p "$cache_dir/ccache"
  inner_environment+=("CVC_ENVIRONMENT=${CVC_ENVIRONMENT:-${root##*/}}")
  case "${DEV_ENTER:-}" in
    bwrap) enter_bwrap "$@" ;;
    chroot) enter_chroot "$@" ;;
    "")
      if command -v bwrap >/dev/null && namespaces_work; then
        enter_bwrap "$@"
      elif [ "$root" = / ]; then
        env -i "${inner_environment[@]}" "$@"
      else
        enter_chroot "$@"
      fi
      ;;
    *) die "DEV_ENTER is '$DEV_ENTER'; it can be bwrap or chroot" ;;
  esac
}

# The environment's system folders, read-only, under a root that lives in memory: nothing that
# runs in it can change it, and any path can be bound into it.
system_binds() {
  if [ "$root" = / ]; then
    echo --bind / /
    return
  fi
  local entry name
  for entry in "$root"/*; do
    name=/${entry##*/}
    if [ -L "$entry" ]; then
      echo --symlink "$(readlink "$entry")" "$name"
    else
      case $name in /etc | /usr | /var) echo --ro-bind "$entry" "$name" ;; esac
    fi
  done
}

enter_bwrap() {
  local system binds=() variables=() item
  mapfile -t system < <(system_binds | tr ' ' '\n')
  for item in "${inner_environment[@]}"; do variables+=(--setenv "${item%%=*}" "${item#*=}"); done
  for item in "$project_dir" "$cache_dir/ccache" "$PWD" "${extra_binds[@]}"; do binds+=(--bind "$item" "$item"); done
  bwrap "${system[@]}" --dev /dev --proc /proc --tmpfs /dev/shm --tmpfs /tmp --tmpfs /run --dir /tmp/home \
    "${binds[@]}" "${window_binds[@]}" --chdir "$PWD" \
    --unshare-net --unshare-pid --unshare-ipc --die-with-parent --clearenv \
    "${variables[@]}" "$@"
}

# Needs root and the right to mount; processes share the machine's network.
enter_chroot() {
  [ "$(id -u)" = 0 ] || die "this machine refuses namespaces; run ./dev as root to use chroot instead"
  local mounted=() path status=0 point
  mount_in() {
    mkdir -p "$root${!#}"
    mount "${@:1:$#-1}" "$root${!#}" ||
      die "this machine refuses both namespaces and mounts; give it one of them (in a container: the capability SYS_ADMIN)"
    mounted+=("$root${!#}")
  }
  leave_chroot() {
    for ((point = ${#mounted[@]} - 1; point >= 0; point--)); do umount -l "${mounted[point]}"; done
    mounted=()
  }
  trap leave_chroot EXIT
  mount_in --bind /proc /proc
  mount_in --bind /dev /dev
  mount_in -t tmpfs tmpfs /tmp
  mount_in -t tmpfs tmpfs /run
  for path in "$cache_dir/ccache" "$project_dir" "$PWD" "${extra_binds[@]}"; do mount_in --bind "$path" "$path"; done
  mkdir -p "$root/tmp/home"
  chroot "$root" env -i "${inner_environment[@]}" sh -c 'cd "$0" && exec "$@"' "$PWD" "$@" || status=$?
  leave_chroot
  trap - EXIT
  return $status
}
