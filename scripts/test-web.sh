#!/usr/bin/env bash
# Builds and tests the panel page in web/: unit tests (Vitest) and end-to-end
# tests in Debian's chromium through playwright-core.
#   scripts/test-web.sh         build, unit tests, end-to-end tests
#   scripts/test-web.sh bench   build, then the receive→frame benchmark and bundle size
#   scripts/test-web.sh build   build only (web/dist)
set -euo pipefail

here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
web="$here/web"
mode="${1:-test}"

as_root() {
  if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi
}

apt_updated=0
apt_install() {
  if [ "$apt_updated" -eq 0 ]; then
    as_root apt-get update -qq
    apt_updated=1
  fi
  as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "$@"
}

command -v node >/dev/null 2>&1 && command -v npm >/dev/null 2>&1 || apt_install nodejs npm
[ "$mode" = build ] || [ -x /usr/bin/chromium ] || apt_install chromium

cd "$web"
if [ ! -d node_modules ] || [ package-lock.json -nt node_modules ]; then
  npm ci --no-audit --no-fund
  touch node_modules
fi
npm run --silent build

case "$mode" in
  build) ;;
  bench) npm run --silent bench ;;
  test)
    npm test --silent
    npm run --silent e2e
    ;;
  *) echo "usage: $0 [test|bench|build]" >&2; exit 2 ;;
esac
