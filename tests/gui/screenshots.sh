#!/usr/bin/env bash
# Pictures of the editor on a page and on C++ source, by day and by night,
# in a real X server (Xvfb). Usage: tests/gui/screenshots.sh [OUTDIR]
set -euo pipefail
here=$(cd "$(dirname "$0")/../.." && pwd)
build=${HARBOR_BUILD_DIR:-$here/build}
out=${1:-$build/screenshots}
shot=$build/bin/harbor_gui_shot
[ -x "$shot" ] || { echo "build harbor_gui_shot first" >&2; exit 1; }
mkdir -p "$out"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export XDG_DATA_HOME=$work/data XDG_CONFIG_HOME=$work/config
cp "$here/tests/gui/samples/index.html" "$here/tests/gui/samples/Buffer.cpp" "$work/"
run() { xvfb-run -a -s "-screen 0 1280x900x24" "$shot" "$@"; }
run "$out/editor-html-light.png" "$work/index.html"
run --night "$out/editor-html-dark.png" "$work/index.html"
run "$out/editor-cpp-light.png" "$work/Buffer.cpp"
run --night "$out/editor-cpp-dark.png" "$work/Buffer.cpp"
run --type " ret" "$out/editor-cpp-suggest.png" "$work/Buffer.cpp"
ls -1 "$out"/editor-*.png
# The file browser: list and icons by day and by night, and a locked folder's prompt.
browse=$build/bin/harbor_browser_shot
if [ -x "$browse" ]; then
  docs=$work/browser-docs
  shoot() { xvfb-run -a -s "-screen 0 1280x900x24" "$browse" "$@"; }
  shoot "$out/browser-list-light.png" "$docs"
  shoot --night "$out/browser-list-dark.png" "$docs"
  shoot --icons "$out/browser-icons-light.png" "$docs"
  shoot --night --icons "$out/browser-icons-dark.png" "$docs"
  shoot --password "$out/browser-password.png" "$docs"
  ls -1 "$out"/browser-*.png
fi
