#!/usr/bin/env bash
# Installs the Debian packages that building and testing Harbor need.
# Safe to run again: only missing packages are installed.
set -euo pipefail

packages=(
  # toolchain
  g++ cmake ninja-build pkg-config git
  # libraries
  libicu-dev nlohmann-json3-dev libfmt-dev libcli11-dev
  # tests and benchmarks
  libgtest-dev libgmock-dev libbenchmark-dev
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
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
