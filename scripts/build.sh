#!/usr/bin/env bash
# Configures and builds the project (Release) into build/, after installing
# what is missing. Extra arguments go to the CMake configure step.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release "$@" >/dev/null
cmake --build build -j"$(nproc)"
