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
# The viewers and the archive browser, each on a sample made by the shot
# program itself.
viewer=$build/bin/harbor_viewer_shot
if [ -x "$viewer" ]; then
  for kind in web mht epub image pdf media archive; do
    xvfb-run -a -s "-screen 0 1280x900x24" "$viewer" "$out/viewer-$kind-light.png" "$kind"
    xvfb-run -a -s "-screen 0 1280x900x24" "$viewer" --night "$out/viewer-$kind-dark.png" "$kind"
  done
  ls -1 "$out"/viewer-*.png
fi
