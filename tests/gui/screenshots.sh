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
# Find bar, find in files and the custom syntax screens, by day and by night.
find=$build/bin/harbor_find_shot
if [ -x "$find" ]; then
  mkdir -p "$work/tree/src" "$work/stx"
  cp "$here/tests/gui/samples/Buffer.cpp" "$here/tests/gui/samples/index.html" "$work/tree/src/"
  cp "$here/tests/gui/samples/Buffer.cpp" "$work/tree/Buffer copy.cpp"
  for n in mylang settings templates; do printf '; %s\n' "$n" > "$work/stx/$n.stx"; done
  frun() { xvfb-run -a -s "-screen 0 1280x900x24" "$find" "$@"; }
  for t in light dark; do
    night=(); [ $t = dark ] && night=(--night)
    frun "${night[@]}" find-bar "$out/find-bar-$t.png" "$work/Buffer.cpp" size
    frun "${night[@]}" find-in-files "$out/find-in-files-$t.png" "$work/tree" size
    (cd "$work" && frun "${night[@]}" syntax-list "$out/custom-syntax-list-$t.png" stx/*.stx)
    (cd "$work" && frun "${night[@]}" syntax-edit "$out/custom-syntax-edit-$t.png" stx/*.stx)
  done
  ls -1 "$out"/find-*.png "$out"/custom-syntax-*.png
fi
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
