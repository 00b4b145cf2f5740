#!/usr/bin/env bash
# Runs the shader fuzzer for a bounded time over a scratch copy of the kept
# corpus (the repository is not written). Usage: run_fuzzer.sh FUZZER CORPUS SECONDS
set -euo pipefail
fuzzer=$1 corpus=$2 seconds=$3
artifacts=$PWD
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp -r "$corpus"/. "$work"/ 2>/dev/null || true
cd "$work"
"$fuzzer" -max_total_time="$seconds" -timeout=10 -artifact_prefix="$artifacts/" -rss_limit_mb=4096 -print_final_stats=1 "$work" 2>&1 | tail -25
