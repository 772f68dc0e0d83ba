#!/usr/bin/env bash
# Configures and builds Harbor into ./build (or $HARBOR_BUILD_DIR).
# Extra arguments go to the first configure, e.g. -DHARBOR_SANITIZE=ON.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${HARBOR_BUILD_DIR:-build}
launcher=()
# A compiler cache, where one is installed, makes rebuilds of a fresh clone
# cheap; paths relative to the checkout let another clone hit the same cache.
if command -v ccache >/dev/null 2>&1; then
  launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
  export CCACHE_BASEDIR=${CCACHE_BASEDIR:-$PWD} CCACHE_NOHASHDIR=${CCACHE_NOHASHDIR:-1}
fi
if [ ! -f "$build/build.ninja" ]; then
  cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo "${launcher[@]}" "$@" >/dev/null
fi
cmake --build "$build"
