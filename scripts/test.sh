#!/usr/bin/env bash
# Sets up, builds and runs every Harbor test.
#   scripts/test.sh             the ordinary build in ./build
#   scripts/test.sh --sanitize  the same suite built with address and
#                               undefined-behaviour sanitizers in ./build-sanitize
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
if [ "${1:-}" = "--sanitize" ]; then
  export HARBOR_BUILD_DIR=${HARBOR_SANITIZE_BUILD_DIR:-build-sanitize}
  # Benchmarks are not run here; the suite and the fuzz seed replays are.
  # -O1 keeps the sanitizers' reports exact and the build quick; asserts stay on.
  scripts/build.sh -DHARBOR_SANITIZE=ON -DHARBOR_BUILD_BENCH=OFF \
    -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -g1"
  export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1:detect_stack_use_after_return=1}
  export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
else
  scripts/build.sh
fi
ctest --test-dir "${HARBOR_BUILD_DIR:-build}" --output-on-failure -j "$(nproc)"
