#!/usr/bin/env bash
# `harbor grep` beside `grep -rnI` and `rg -n --no-ignore --hidden` over
# Debian's kernel source tree (unpacked once into a cache folder): literal,
# whole-word, case-insensitive and regex searches with matching flags. Each
# side runs on the warm tree, best of BENCH_RUNS, writing to a file (grep and
# rg stop early when they see /dev/null). Prints wall and CPU (user+sys)
# seconds, matching lines and the ratios harbor/grep and harbor/rg.
#   BENCH_RUNS (default 3)   runs per figure
#   BENCH_TREE               search this folder instead of the kernel tree
#   BENCH_CACHE              where the tree is unpacked (default /var/tmp/harbor-bench)
#   HARBOR_BASE              an earlier harbor binary, timed in the same rows
#                            (ratio harbor/base) to show a change on a busy machine
set -euo pipefail
harbor=${HARBOR_BIN:-@CMAKE_BINARY_DIR@/bin/harbor}
runs=${BENCH_RUNS:-3}
for tool in grep rg; do
  command -v "$tool" >/dev/null || { echo "search_bench: $tool is missing (scripts/setup.sh --bench)"; exit 0; }
done
tree=${BENCH_TREE:-}
if [ -z "$tree" ]; then
  tarball=$(ls /usr/src/linux-source-*.tar.xz 2>/dev/null | sort -V | tail -1 || true)
  [ -n "$tarball" ] || { echo "search_bench: no /usr/src/linux-source-*.tar.xz (scripts/setup.sh --bench)"; exit 0; }
  cache=${BENCH_CACHE:-/var/tmp/harbor-bench}
  name=$(basename "$tarball" .tar.xz)
  tree=$cache/$name
  if [ ! -f "$cache/$name.done" ]; then
    echo "unpacking $tarball into $cache (once)"
    rm -rf "$tree"
    mkdir -p "$cache"
    tar -xJf "$tarball" -C "$cache"
    touch "$cache/$name.done"
  fi
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
echo "tree: $tree ($(du -sh "$tree" | cut -f1), $(find "$tree" -type f | wc -l) files)"
# Warm the page cache so every side reads from memory.
grep -rIc zzzzzz "$tree" >/dev/null 2>&1 || true

# Best wall time and best CPU time (user+sys) of $runs runs of a command
# whose output goes to $work/out; prints "WALL CPU". Both matter on a shared
# machine: wall shows the cores kept busy, CPU the work done.
best() {
  local bw="" bc="" w c
  for _ in $(seq "$runs"); do
    /usr/bin/time -f '%e %U %S' -o "$work/time" "$@" > "$work/out" 2>/dev/null || true
    read -r w u s < <(tail -1 "$work/time")
    c=$(echo "$u + $s" | bc -l)
    if [ -z "$bw" ] || [ "$(echo "$w < $bw" | bc -l)" = 1 ]; then bw=$w; fi
    if [ -z "$bc" ] || [ "$(echo "$c < $bc" | bc -l)" = 1 ]; then bc=$c; fi
  done
  echo "$bw $bc"
}

base=${HARBOR_BASE:-}

row() {
  local label=$1 hflags=$2 gflags=$3 rflags=$4 pattern=$5
  local wh ch wg cg wr cr nh ng nr wb cb
  if [ -n "$base" ]; then
    # shellcheck disable=SC2086
    read -r wb cb < <(best "$base" grep $hflags -- "$pattern" "$tree")
  fi
  # shellcheck disable=SC2086
  read -r wh ch < <(best "$harbor" grep $hflags -- "$pattern" "$tree"); nh=$(wc -l < "$work/out")
  # shellcheck disable=SC2086
  read -r wg cg < <(best grep -rnI $gflags -- "$pattern" "$tree"); ng=$(wc -l < "$work/out")
  # shellcheck disable=SC2086
  read -r wr cr < <(best rg -n --no-ignore --hidden $rflags -- "$pattern" "$tree"); nr=$(wc -l < "$work/out")
  printf '%-14s wall: harbor %5.2fs grep %5.2fs rg %5.2fs  cpu: harbor %5.2fs grep %5.2fs rg %5.2fs  lines %d/%d/%d\n' \
    "$label" "$wh" "$wg" "$wr" "$ch" "$cg" "$cr" "$nh" "$ng" "$nr"
  printf '%-14s harbor/grep wall %5.2f cpu %5.2f   harbor/rg wall %5.2f cpu %5.2f\n' "" \
    "$(echo "$wh / $wg" | bc -l)" "$(echo "$ch / $cg" | bc -l)" \
    "$(echo "$wh / $wr" | bc -l)" "$(echo "$ch / $cr" | bc -l)"
  if [ -n "$base" ]; then
    printf '%-14s base wall %5.2fs cpu %5.2fs   harbor/base wall %5.2f cpu %5.2f\n' "" "$wb" "$cb" \
      "$(echo "$wh / $wb" | bc -l)" "$(echo "$ch / $cb" | bc -l)"
  fi
}

row "literal"          ""                         "-F"     "-F"     "mutex_lock"
row "literal, rare"    ""                         "-F"     "-F"     "harbor_no_such_word"
row "word"             "--word"                   "-Fw"    "-Fw"    "dev"
row "ignore case"      "--ignore-case"            "-Fi"    "-Fi"    "MUTEX_LOCK"
row "regex"            "--regex"                  "-E"     ""       'spin_(un)?lock_irq[a-z]*\('
