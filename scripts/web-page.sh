#!/usr/bin/env bash
# Puts the built panel page into DEST (the build tree's web/ beside the vantler executable).
# The page is built with npm only when web/dist is missing or older than its sources; when it
# cannot be built (no network for npm ci) the app shows its "web bundle missing" page instead.
set -uo pipefail
dest=${1:?usage: $0 DEST}
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
dist="$here/web/dist"

stale() {
  [ ! -f "$dist/index.html" ] && return 0
  [ -n "$(find "$here/web/src" "$here/web/index.html" "$here/web/package-lock.json" \
    "$here/web/vite.config.ts" -newer "$dist/index.html" -print -quit 2>/dev/null)" ]
}

if stale; then
  if ! "$here/scripts/test-web.sh" build; then
    echo "warning: the panel page could not be built; vantler will show its fallback page" >&2
  fi
fi
rm -rf "$dest"
mkdir -p "$dest"
if [ -f "$dist/index.html" ]; then
  cp -R "$dist/." "$dest/"
fi
# The build system's stamp: written even without a page, so a build does not retry each time.
touch "$dest.stamp"
