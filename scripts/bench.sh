#!/usr/bin/env bash
# Builds and runs every benchmark of bench/ (or those whose name contains $1).
# Each prints its figures beside the peer tool's and the ratio.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh --bench
scripts/build.sh
build=${HARBOR_BUILD_DIR:-build}
for b in "$build"/bench/*; do
  [ -x "$b" ] || continue
  case "$(basename "$b")" in *"${1:-}"*) ;; *) continue ;; esac
  echo "== $(basename "$b")"
  "$b"
done
