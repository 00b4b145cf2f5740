#!/usr/bin/env bash
# Line and branch coverage of the shader module (src/) by the test suites:
# a --coverage build in build-coverage, the suites, then gcovr.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
dir=build-coverage
cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS="--coverage -O0 -fprofile-update=atomic" \
  -DCMAKE_MODULE_LINKER_FLAGS="--coverage" -DCMAKE_EXE_LINKER_FLAGS="--coverage" \
  -DKVI_BUILD_RENDERER=OFF -DKVI_BUILD_BENCHMARKS=OFF >/dev/null
cmake --build "$dir" -j"$(nproc)"
find "$dir" -name '*.gcda' -delete
# The install test is left out: its consumer projects are not built for coverage.
(cd "$dir" && ctest -j"$(nproc)" --timeout 900 -LE install >/dev/null)
# The build-time generators (parameter metadata, Ward variants) run while building, not in the suites.
gcovr -r . --filter 'src/' --exclude 'src/metadata/' --exclude 'src/materials/ward/generate_variants.cpp' \
  --object-directory "$dir" --exclude-unreachable-branches --exclude-throw-branches \
  --txt "$dir/coverage.txt" --print-summary | tail -3
echo "per-file figures: $dir/coverage.txt"
