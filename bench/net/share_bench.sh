#!/usr/bin/env bash
# `harbor serve` against nginx (one worker, sendfile, dav PUT) on one tree:
# each server pinned to core 1, the clients (curl, wrk) to core 0, loopback
# only. Prints each figure, the peer's, and the ratio harbor/nginx.
#   BENCH_BIG_MB (default 1024)  size of the large file
#   BENCH_SECONDS (default 10)   wrk run length; BENCH_SOAK_SECONDS (default 60)
set -euo pipefail
harbor=${HARBOR_BIN:-@CMAKE_BINARY_DIR@/bin/harbor}
big_mb=${BENCH_BIG_MB:-1024}
secs=${BENCH_SECONDS:-10}
soak=${BENCH_SOAK_SECONDS:-60}
for tool in nginx wrk curl taskset; do
  command -v "$tool" >/dev/null || { echo "share_bench: $tool is missing (scripts/setup.sh --bench)"; exit 0; }
done
pin_server="taskset -c 1"
pin_client="taskset -c 0"
[ "$(nproc)" -ge 2 ] || { pin_server=""; pin_client=""; }

work=$(mktemp -d)
pids=()
cleanup() {
  for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT
tree=$work/tree
mkdir -p "$tree/in" "$work/nginx" "$work/home"
dd if=/dev/zero of="$tree/big.bin" bs=1M count="$big_mb" status=none
head -c 4096 /dev/urandom > "$tree/small.bin"
cp "$tree/big.bin" "$work/upload.bin"

port_of() { python3 -c 'import socket;s=socket.socket();s.bind(("127.0.0.1",0));print(s.getsockname()[1])'; }
nginx_port=$(port_of)
nginx_user=""
# As root nginx would hand its worker to "nobody", who cannot read a private temporary folder.
[ "$(id -u)" -eq 0 ] && nginx_user="user root root;"
cat > "$work/nginx/nginx.conf" <<CONF
$nginx_user
worker_processes 1;
daemon off;
error_log $work/nginx/error.log;
pid $work/nginx/nginx.pid;
events { worker_connections 4096; }
http {
  access_log off;
  sendfile on;
  tcp_nopush on;
  keepalive_requests 1000000;
  client_max_body_size 0;
  client_body_temp_path $work/nginx/body;
  proxy_temp_path $work/nginx/proxy;
  fastcgi_temp_path $work/nginx/fastcgi;
  uwsgi_temp_path $work/nginx/uwsgi;
  scgi_temp_path $work/nginx/scgi;
  server {
    listen 127.0.0.1:$nginx_port;
    root $tree;
    location / { dav_methods PUT; create_full_put_path on; }
  }
}
CONF
$pin_server nginx -p "$work/nginx" -c "$work/nginx/nginx.conf" &
pids+=($!)

export XDG_DATA_HOME=$work/home/data XDG_CONFIG_HOME=$work/home/config
$pin_server "$harbor" serve --port 0 --no-webdav --bind 127.0.0.1 --root "$tree" > "$work/serve.out" 2>/dev/null &
harbor_pid=$!
pids+=($harbor_pid)
for _ in $(seq 100); do [ -s "$work/serve.out" ] && break; sleep 0.1; done
harbor_url=$(head -1 "$work/serve.out" | sed 's/^web //; s/\/$//')
nginx_url=http://127.0.0.1:$nginx_port
sleep 0.5

ratio() { python3 -c "print(f'{$1/$2:.2f}' if $2 else 'n/a')"; }
best_download() {  # bytes per second, best of three
  local best=0
  for _ in 1 2 3; do
    s=$($pin_client curl -s -o /dev/null -w '%{speed_download}' "$1")
    best=$(python3 -c "print(max($best, $s))")
  done
  echo "$best"
}
rps() { $pin_client wrk -t1 -c"$2" -d"$3"s "$1" | awk '/Requests\/sec/ {print $2}'; }

h=$(best_download "$harbor_url/big.bin?type=file")
n=$(best_download "$nginx_url/big.bin")
printf '%-34s harbor %8.0f MB/s  nginx %8.0f MB/s  ratio %s (goal 0.9)\n' \
  "GET ${big_mb} MiB file" "$(python3 -c "print($h/1e6)")" "$(python3 -c "print($n/1e6)")" "$(ratio "$h" "$n")"

h=$(rps "$harbor_url/small.bin?type=file" 64 "$secs")
n=$(rps "$nginx_url/small.bin" 64 "$secs")
printf '%-34s harbor %8.0f req/s  nginx %8.0f req/s  ratio %s (goal 0.5)\n' \
  "GET 4 KiB, 64 connections" "$h" "$n" "$(ratio "$h" "$n")"

up() {  # seconds for one upload
  local start end
  start=$(date +%s.%N)
  $pin_client curl -s -o /dev/null "$@"
  end=$(date +%s.%N)
  python3 -c "print($end-$start)"
}
ht=$(up -T "$work/upload.bin" -X POST -H 'Ajaxupload: 1' -H 'X-File-Name: up.bin' "$harbor_url/in?guid=bench")
nt=$(up -T "$work/upload.bin" "$nginx_url/in/nginx-up.bin")
printf '%-34s harbor %8.2f s      nginx %8.2f s      ratio %s (speed, harbor/nginx)\n' \
  "upload ${big_mb} MiB (nginx dav PUT)" "$ht" "$nt" "$(ratio "$nt" "$ht")"
for f in up.bin nginx-up.bin; do
  [ "$(stat -c %s "$tree/in/$f" 2>/dev/null)" = "$(stat -c %s "$work/upload.bin")" ] || echo "upload $f incomplete!"
done

rss() { awk '/VmRSS/ {print $2}' "/proc/$1/status"; }
before=$(rss "$harbor_pid")
out=$($pin_client wrk -t1 -c256 -d"$soak"s "$harbor_url/small.bin?type=file")
after=$(rss "$harbor_pid")
errors=$(echo "$out" | awk '/Socket errors|Non-2xx/ {print}' | tr '\n' ' ')
echo "256 connections ${soak} s: $(echo "$out" | awk '/Requests\/sec/ {print $2}') req/s," \
  "errors: ${errors:-none}; RSS ${before} KiB -> ${after} KiB"
