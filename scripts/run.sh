#!/usr/bin/env bash
# Sets up, builds and runs Harbor's main job on the default document root.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
scripts/build.sh
exec "${HARBOR_BUILD_DIR:-build}/bin/harbor" "$@"
