#!/usr/bin/env bash
# Configures and builds Harbor into ./build (or $HARBOR_BUILD_DIR).
set -euo pipefail
cd "$(dirname "$0")/.."
build=${HARBOR_BUILD_DIR:-build}
if [ ! -f "$build/build.ninja" ]; then
  cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null
fi
cmake --build "$build"
