#!/usr/bin/env bash
# Builds dist/vantler_<version>_<arch>.deb: the Release build in BUILD_DIR installed under /usr
# into a staging directory, its library dependencies worked out by dpkg-shlibdeps.
# Usage: scripts/make-deb.sh BUILD_DIR OUT_DIR
set -euo pipefail
build=${1:?build directory}
out=${2:?output directory}

stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT
root=$stage/debian/vantler
DESTDIR=$root cmake --install "$build" --prefix /usr --strip >/dev/null
gzip -9n "$root/usr/share/man/man1/vantler.1"
mkdir -p "$root/usr/share/doc/vantler"
cp README.md "$root/usr/share/doc/vantler/"
cp data/copyright "$root/usr/share/doc/vantler/copyright"

version=$(sed -n 's/.*kVersion = "\(.*\)";/\1/p' "$build/generated/version.h")
arch=$(dpkg --print-architecture)
# dpkg-shlibdeps wants a debian/control naming the package, and the package's root (the
# directory holding DEBIAN) around the files it looks at.
mkdir -p "$root/DEBIAN"
printf 'Source: vantler\n\nPackage: vantler\nArchitecture: any\n' >"$stage/debian/control"
depends=$(cd "$stage" && dpkg-shlibdeps -O debian/vantler/usr/bin/vantler |
  sed -n 's/^shlibs:Depends=//p')
[ -n "$depends" ] || { echo "make-deb: dpkg-shlibdeps found no dependencies" >&2; exit 1; }

(cd "$root" && find usr -type f -print0 | sort -z | xargs -0 md5sum) >"$root/DEBIAN/md5sums"
cat >"$root/DEBIAN/control" <<CONTROL
Package: vantler
Version: $version
Architecture: $arch
Maintainer: Vantler developers <dev@vantler.dev>
Installed-Size: $(du -sk --exclude=DEBIAN "$root" | cut -f1)
Depends: $depends
Recommends: dbus-user-session, at-spi2-core, xdg-utils, openssh-client, wtype
Suggests: tmux, pocketsphinx-en-us
Section: devel
Priority: optional
Description: desktop companion for AI coding agents
 Vantler follows the sessions of AI coding agents (Claude Code, Codex, Cursor,
 Gemini CLI, Windsurf, Copilot CLI, droid, OpenCode and fifteen more) and shows
 in a small panel at the top of the screen what each one does, whether it waits
 for you, and what it costs. Permission requests and questions are answered from the panel
 or the command line.
CONTROL

mkdir -p "$out"
deb="$out/vantler_${version}_${arch}.deb"
dpkg-deb --root-owner-group -Zxz --build "$root" "$deb" >/dev/null
echo "$deb"
