#!/usr/bin/env bash
# Builds everything and runs every test suite, then the same suites under
# AddressSanitizer + UndefinedBehaviorSanitizer (with a bounded fuzz run) and
# under ThreadSanitizer. KVI_QUICK=1 skips the sanitizer builds.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/build.sh
(cd build && ctest --output-on-failure -j"$(nproc)" --timeout 900)
if [ "${KVI_QUICK:-0}" != 1 ]; then
  bash scripts/sanitize.sh address
  bash scripts/sanitize.sh thread
fi
