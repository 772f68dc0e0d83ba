#!/usr/bin/env bash
# `harbor serve` (WebDAV) against `rclone serve webdav` and Apache 2 with
# mod_dav_fs on one tree: each server pinned to core 1, the clients (curl,
# wrk) to core 0, loopback only. Prints each figure, the peers', and the
# ratio of harbor to the faster peer.
#   BENCH_BIG_MB (default 1024)   size of the large file
#   BENCH_SECONDS (default 10)    wrk run length
#   BENCH_ENTRIES (default 10000) entries of the listed folder
set -euo pipefail
harbor=${HARBOR_BIN:-@CMAKE_BINARY_DIR@/bin/harbor}
here=${BENCH_SOURCE_DIR:-@CMAKE_CURRENT_SOURCE_DIR@}
big_mb=${BENCH_BIG_MB:-1024}
secs=${BENCH_SECONDS:-10}
entries=${BENCH_ENTRIES:-10000}
for tool in rclone apache2 wrk curl taskset python3; do
  command -v "$tool" >/dev/null || { echo "webdav_bench: $tool is missing (scripts/setup.sh --bench)"; exit 0; }
done
pin_server="taskset -c 1"
pin_client="taskset -c 0"
[ "$(nproc)" -ge 2 ] || { pin_server=""; pin_client=""; }

work=$(mktemp -d)
chmod 755 "$work"
pids=()
cleanup() {
  for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT
port_of() { python3 -c 'import socket;s=socket.socket();s.bind(("127.0.0.1",0));print(s.getsockname()[1])'; }

# One tree per server, the same content, so that no server sees another's writes.
dd if=/dev/zero of="$work/big.bin" bs=1M count="$big_mb" status=none
head -c 4096 /dev/urandom > "$work/small.bin"
for s in harbor rclone apache; do
  mkdir -p "$work/$s/many" "$work/$s/in"
  ln "$work/big.bin" "$work/$s/big.bin"
  (cd "$work/$s/many" && seq -f 'entry-%05g.txt' 1 "$entries" | xargs touch)
done

export XDG_DATA_HOME=$work/home/data XDG_CONFIG_HOME=$work/home/config
$pin_server "$harbor" serve --port 0 --webdav-port 0 --bind 127.0.0.1 --root "$work/harbor" \
  > "$work/serve.out" 2>/dev/null &
harbor_pid=$!
pids+=($harbor_pid)

rclone_port=$(port_of)
RCLONE_CONFIG=/dev/null $pin_server rclone serve webdav "$work/rclone" \
  --addr "127.0.0.1:$rclone_port" > "$work/rclone.log" 2>&1 &
pids+=($!)

apache_port=$(port_of)
user=$(id -un) group=$(id -gn)
if [ "$(id -u)" -eq 0 ]; then  # Apache will not serve as root
  user=www-data group=www-data
  chown -R www-data:www-data "$work/apache"
fi
mkdir -p "$work/apache/lock"
[ "$(id -u)" -eq 0 ] && chown www-data:www-data "$work/apache/lock"
sed -e "s|%WORK%|$work|g; s|%TREE%|$work/apache|g; s|%PORT%|$apache_port|g" \
  -e "s|%USER%|$user|g; s|%GROUP%|$group|g" "$here/apache2-dav.conf.in" > "$work/apache2.conf"
APACHE_RUN_DIR=$work/apache $pin_server apache2 -f "$work/apache2.conf" -DFOREGROUND &
pids+=($!)

for _ in $(seq 100); do [ "$(wc -l < "$work/serve.out")" -ge 2 ] && break; sleep 0.1; done
harbor_url=$(sed -n 's/^webdav //p' "$work/serve.out" | sed 's/\/$//')
rclone_url=http://127.0.0.1:$rclone_port
apache_url=http://127.0.0.1:$apache_port
sleep 1
for u in "$harbor_url" "$rclone_url" "$apache_url"; do
  curl -s -o /dev/null -m 5 "$u/big.bin" -r 0-0 || { echo "webdav_bench: $u does not answer"; exit 1; }
done

# ratio harbor peer1 peer2 [lower]: harbor against the better peer.
ratio() {
  python3 -c "
h, a, b = $1, $2, $3
lower = '${4:-}' == 'lower'
best = min(a, b) if lower else max(a, b)
print(f'{(best / h if lower else h / best):.2f}' if h and best else 'n/a')"
}
seconds() {
  local start end
  start=$(date +%s.%N)
  "$@" > /dev/null
  end=$(date +%s.%N)
  python3 -c "print(f'{$end-$start:.3f}')"
}
row() {  # label unit harbor rclone apache ratio goal
  printf '%-30s harbor %9s  rclone %9s  apache %9s %-6s ratio %s (goal %s)\n' "$1" "$3" "$4" "$5" "$2" "$6" "$7"
}

# 1 GiB up and down; harbor's peak memory around the upload.
declare -A put get
for s in harbor rclone apache; do
  url_var=${s}_url
  put[$s]=$(seconds $pin_client curl -s -f -T "$work/big.bin" "${!url_var}/in/up.bin")
  get[$s]=$(seconds $pin_client curl -s -f -o /dev/null "${!url_var}/big.bin")
  [ "$(stat -c %s "$work/$s/in/up.bin")" = "$(stat -c %s "$work/big.bin")" ] || echo "$s: upload incomplete!"
done
row "PUT ${big_mb} MiB" s "${put[harbor]}" "${put[rclone]}" "${put[apache]}" \
  "$(ratio "${put[harbor]}" "${put[rclone]}" "${put[apache]}" lower)" 0.9
row "GET ${big_mb} MiB" s "${get[harbor]}" "${get[rclone]}" "${get[apache]}" \
  "$(ratio "${get[harbor]}" "${get[rclone]}" "${get[apache]}" lower)" 0.9
echo "harbor peak RSS after the upload: $(awk '/VmHWM/ {print $2, $3}' "/proc/$harbor_pid/status")"

# 1000 PUTs of 4 KiB on one connection.
declare -A small
for s in harbor rclone apache; do
  url_var=${s}_url
  cfg=$work/$s-small.cfg
  : > "$cfg"
  for i in $(seq 1000); do
    printf 'upload-file = "%s"\nurl = "%s/in/small-%d.bin"\noutput = "/dev/null"\n' \
      "$work/small.bin" "${!url_var}" "$i" >> "$cfg"
  done
  small[$s]=$(seconds $pin_client curl -s -f -K "$cfg")
  n=$(find "$work/$s/in" -name 'small-*' | wc -l)
  [ "$n" = 1000 ] || echo "$s: $n of 1000 small files"
done
row "1000 PUTs of 4 KiB" s "${small[harbor]}" "${small[rclone]}" "${small[apache]}" \
  "$(ratio "${small[harbor]}" "${small[rclone]}" "${small[apache]}" lower)" 0.5

# PROPFIND Depth 1 of a folder of $entries entries.
declare -A list
for s in harbor rclone apache; do
  url_var=${s}_url
  list[$s]=$($pin_client wrk -t1 -c4 -d"$secs"s -s "$here/propfind.lua" "${!url_var}/many/" |
    awk '/Requests\/sec/ {print $2}')
done
row "PROPFIND depth 1, $entries" req/s "${list[harbor]}" "${list[rclone]}" "${list[apache]}" \
  "$(ratio "${list[harbor]}" "${list[rclone]}" "${list[apache]}")" 0.5
