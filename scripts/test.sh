#!/usr/bin/env bash
# Sets up, builds and runs every Harbor test.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
scripts/build.sh
ctest --test-dir "${HARBOR_BUILD_DIR:-build}" --output-on-failure -j "$(nproc)"
