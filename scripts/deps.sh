#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the app need, but only those missing.
# Usage: scripts/deps.sh [build|test|web|agents|run|all]   (default: all)
set -euo pipefail
what=${1:-all}

build_pkgs=(build-essential cmake ninja-build pkg-config git
  nlohmann-json3-dev libglib2.0-dev libicu-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  libgtk-3-dev libwebkit2gtk-4.1-dev libgtk-layer-shell-dev libx11-dev libwayland-dev
  librsvg2-bin dpkg-dev
  libayatana-appindicator3-dev libcurl4-openssl-dev
  libkeybinder-3.0-dev libxi-dev libxtst-dev libatspi2.0-dev
  libpulse-dev libsecret-1-dev libpocketsphinx-dev pocketsphinx-en-us)
# What the desktop app needs at run time beyond the libraries above: a session bus for its
# single instance and actions, the accessibility bus, a browser opener for links, ssh for
# remote hosts, and wtype to type dictated text on wlroots compositors.
run_pkgs=(dbus-user-session at-spi2-core xdg-utils openssh-client wtype)
test_pkgs=(clang libclang-rt-14-dev
  xvfb openbox xcompmgr xdotool x11-utils imagemagick at-spi2-core python3-gi gir1.2-gtk-3.0
  python3-pyatspi sway grim wayvnc
  tmux xterm kitty foot gnome-terminal konsole groff-base desktop-file-utils appstream dbus-daemon
  xclip wtype wl-clipboard
  pulseaudio pulseaudio-utils espeak-ng gnome-keyring
  openssh-server openssh-client)
web_pkgs=(nodejs npm chromium)
agent_pkgs=(nodejs npm tmux python3)

case "$what" in
  build) pkgs=("${build_pkgs[@]}") ;;
  test) pkgs=("${build_pkgs[@]}" "${test_pkgs[@]}") ;;
  web) pkgs=("${web_pkgs[@]}") ;;
  agents) pkgs=("${agent_pkgs[@]}") ;;
  run) pkgs=("${build_pkgs[@]}" "${run_pkgs[@]}") ;;
  all) pkgs=("${build_pkgs[@]}" "${run_pkgs[@]}" "${test_pkgs[@]}" "${web_pkgs[@]}" "${agent_pkgs[@]}") ;;
  *) echo "usage: $0 [build|test|web|agents|run|all]" >&2; exit 2 ;;
esac

missing=()
for p in "${pkgs[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

# npm on Debian is usually present when node comes from elsewhere (nvm, nodesource): skip it then.
if command -v node >/dev/null && command -v npm >/dev/null; then
  keep=(); for p in "${missing[@]}"; do case "$p" in nodejs|npm) ;; *) keep+=("$p") ;; esac; done
  missing=("${keep[@]}")
  [ ${#missing[@]} -eq 0 ] && exit 0
fi

sudo=""
if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi
echo "installing: ${missing[*]}" >&2
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
# another apt run (unattended upgrades) may hold the lock for a while
for i in $(seq 1 60); do
  if $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"; then exit 0; fi
  echo "apt-get busy, retrying ($i)" >&2
  sleep 5
done
exit 1
