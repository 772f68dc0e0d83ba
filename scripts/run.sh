#!/usr/bin/env bash
# Sets up, builds and shares the default document root with `harbor serve`
# (web file manager and WebDAV) until stopped; arguments go to `harbor serve`.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
scripts/build.sh
exec "${HARBOR_BUILD_DIR:-build}/bin/harbor" serve "$@"
