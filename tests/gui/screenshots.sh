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
fi
# The sharing screen, and the cloud screen over a sync folder with a file
# downloaded, one in the cloud, one arriving and a folder.
share=$build/bin/harbor_gui_share_shot
if [ -x "$share" ]; then
  mkdir -p "$work/root/Projects" "$work/cloud/Documents/Reports"
  echo notes >"$work/root/notes.txt"
  echo plan >"$work/cloud/Documents/plan.md"
  echo 2048 >"$work/cloud/Documents/.photos.zip.cloud"
  echo 1000 >"$work/cloud/Documents/.video.mp4.cloud"
  head -c 400 /dev/zero >"$work/cloud/Documents/.video.mp4.cloud-part"
  echo q3 >"$work/cloud/Documents/Reports/q3.csv"
  xrun() { xvfb-run -a -s "-screen 0 1280x900x24" "$share" "$@"; }
  xrun share "$out/share-light.png" "$work/root"
  xrun --night share "$out/share-dark.png" "$work/root"
  xrun offline "$out/share-offline-light.png" "$work/root"
  xrun cloud "$out/cloud-light.png" "$work/cloud" "$work/root"
  xrun --night cloud "$out/cloud-dark.png" "$work/cloud" "$work/root"
fi
settings=$build/bin/harbor_gui_settings_shot
if [ -x "$settings" ]; then
  for screen in lock lock-refused settings lock-settings; do
    xvfb-run -a -s "-screen 0 1280x900x24" "$settings" "$screen" "$out/$screen-light.png"
    xvfb-run -a -s "-screen 0 1280x900x24" "$settings" --night "$screen" "$out/$screen-dark.png"
  done
fi
# The viewers and the archive browser, each on a sample made by the shot
# program itself.
viewer=$build/bin/harbor_viewer_shot
if [ -x "$viewer" ]; then
  for kind in web mht epub image pdf media archive; do
    xvfb-run -a -s "-screen 0 1280x900x24" "$viewer" "$out/viewer-$kind-light.png" "$kind"
    xvfb-run -a -s "-screen 0 1280x900x24" "$viewer" --night "$out/viewer-$kind-dark.png" "$kind"
  done
fi
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
fi
ls -1 "$out"/*.png
