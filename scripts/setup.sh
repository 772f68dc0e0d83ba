#!/usr/bin/env bash
# Installs the Debian packages that building, testing and benchmarking Harbor need.
# Safe to run again: only missing packages are installed.
set -euo pipefail

# Each subsystem lists its packages in scripts/packages/*.txt, one a line.
# Lists named bench-*.txt hold the peer tools the benchmarks compare with;
# they are installed only with --bench.
here=$(cd "$(dirname "$0")" && pwd)
bench=0
[ "${1:-}" = "--bench" ] && bench=1
packages=()
for list in "$here"/packages/*.txt; do
  case "$(basename "$list")" in bench-*) [ $bench -eq 1 ] || continue ;; esac
  while read -r line; do
    line=${line%%#*}
    line=$(echo "$line" | xargs)
    [ -n "$line" ] && packages+=("$line")
  done < "$list"
done

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

# The page tests drive Chromium through a pinned playwright-core from npm.
install_web_test_modules() {
  local web="$here/../tests/web"
  [ -f "$web/package-lock.json" ] || return 0
  if ! command -v npm >/dev/null 2>&1; then
    if [ "$(id -u)" -eq 0 ]; then
      DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends npm
    else
      echo "The page tests need npm: apt-get install npm" >&2
      return 0
    fi
  fi
  if [ ! -d "$web/node_modules/playwright-core" ]; then
    (cd "$web" && npm ci --no-audit --no-fund --silent)
  fi
}

if [ ${#missing[@]} -eq 0 ]; then
  install_web_test_modules
  exit 0
fi

if [ "$(id -u)" -eq 0 ]; then
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}"
elif command -v sudo >/dev/null 2>&1 && sudo -n true 2>/dev/null; then
  sudo apt-get update -qq
  sudo DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}"
else
  echo "Harbor needs these packages; run as root:" >&2
  echo "  apt-get install ${missing[*]}" >&2
  exit 1
fi
install_web_test_modules
