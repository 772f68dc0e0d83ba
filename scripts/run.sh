#!/usr/bin/env bash
# Sets up and builds Harbor, then opens the desktop application on the
# default document root where a display is available ($DISPLAY or
# $WAYLAND_DISPLAY); without one it shares that root with `harbor serve`
# (web file manager and WebDAV) until stopped. Arguments go to whichever runs.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
scripts/build.sh
bin=${HARBOR_BUILD_DIR:-build}/bin
if [ -n "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ] && [ -x "$bin/harbor-app" ]; then
  exec "$bin/harbor-app" "$@"
fi
if [ -z "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ]; then
  echo "run.sh: no display (\$DISPLAY and \$WAYLAND_DISPLAY are unset): sharing the document root with harbor serve instead" >&2
else
  echo "run.sh: harbor-app was not built (Qt 6 missing): sharing the document root with harbor serve instead" >&2
fi
exec "$bin/harbor" serve "$@"
