#!/usr/bin/env bash
# `harbor grep` beside `grep -rnI` and `rg -n --no-ignore --hidden` over
# Debian's kernel source tree (unpacked once into a cache folder): literal,
# whole-word, case-insensitive and regex searches with matching flags. Each
# side runs on the warm tree, best of BENCH_RUNS, writing to a file (grep and
# rg stop early when they see /dev/null). Prints seconds, matching lines and
# the ratios harbor/grep and harbor/rg.
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

# Best wall time of $runs runs of a command whose output goes to $work/out.
best() {
  local b="" t s e
  for _ in $(seq "$runs"); do
    s=$(date +%s.%N)
    "$@" > "$work/out" 2>/dev/null || true
    e=$(date +%s.%N)
    t=$(echo "$e - $s" | bc -l)
    if [ -z "$b" ] || [ "$(echo "$t < $b" | bc -l)" = 1 ]; then b=$t; fi
  done
  echo "$b"
}

base=${HARBOR_BASE:-}

row() {
  local label=$1 hflags=$2 gflags=$3 rflags=$4 pattern=$5
  local th tg tr nh ng nr tb
  if [ -n "$base" ]; then
    # shellcheck disable=SC2086
    tb=$(best "$base" grep $hflags -- "$pattern" "$tree")
  fi
  # shellcheck disable=SC2086
  th=$(best "$harbor" grep $hflags -- "$pattern" "$tree"); nh=$(wc -l < "$work/out")
  # shellcheck disable=SC2086
  tg=$(best grep -rnI $gflags -- "$pattern" "$tree"); ng=$(wc -l < "$work/out")
  # shellcheck disable=SC2086
  tr=$(best rg -n --no-ignore --hidden $rflags -- "$pattern" "$tree"); nr=$(wc -l < "$work/out")
  printf '%-18s harbor %6.2fs (%7d lines)  grep %6.2fs (%7d)  rg %6.2fs (%7d)  harbor/grep %5.2f  harbor/rg %5.2f\n' \
    "$label" "$th" "$nh" "$tg" "$ng" "$tr" "$nr" \
    "$(echo "$th / $tg" | bc -l)" "$(echo "$th / $tr" | bc -l)"
  if [ -n "$base" ]; then
    printf '%-18s base   %6.2fs  harbor/base %5.2f\n' "" "$tb" "$(echo "$th / $tb" | bc -l)"
  fi
}

row "literal"          ""                         "-F"     "-F"     "mutex_lock"
row "literal, rare"    ""                         "-F"     "-F"     "harbor_no_such_word"
row "word"             "--word"                   "-Fw"    "-Fw"    "dev"
row "ignore case"      "--ignore-case"            "-Fi"    "-Fi"    "MUTEX_LOCK"
row "regex"            "--regex"                  "-E"     ""       'spin_(un)?lock_irq[a-z]*\('
