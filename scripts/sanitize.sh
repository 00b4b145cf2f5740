#!/usr/bin/env bash
# Builds the library, the host library, the tools and the test suites with
# clang-14 and sanitizers, and runs them:
#   scripts/sanitize.sh address   AddressSanitizer + UndefinedBehaviorSanitizer, plus the bounded fuzz run
#   scripts/sanitize.sh thread    ThreadSanitizer
# Each uses its own build folder (build-address, build-thread).
set -euo pipefail
cd "$(dirname "$0")/.."
kind=${1:?usage: scripts/sanitize.sh address|thread}
case "$kind" in
  address) sanitizers=address,undefined fuzz=ON ;;
  thread) sanitizers=thread fuzz=OFF ;;
  *) echo "sanitize.sh: unknown kind '$kind' (address or thread)" >&2; exit 1 ;;
esac
bash scripts/setup.sh
dir=build-$kind
CC=clang-14 CXX=clang++-14 cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DKVI_SANITIZE="$sanitizers" -DKVI_BUILD_FUZZERS="$fuzz" \
  -DKVI_BUILD_BENCHMARKS=OFF >/dev/null
cmake --build "$dir" -j"$(nproc)"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:strict_string_checks=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1:suppressions=$PWD/tests/tsan.supp"
cd "$dir"
ctest --output-on-failure -j"$(nproc)" --timeout 900
