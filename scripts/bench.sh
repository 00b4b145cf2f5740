#!/usr/bin/env bash
# Measures every shading operation of every shader (kvi-bench), prints a table
# (shader, preset, operation, ns per call) and writes it as JSON.
#   scripts/bench.sh [OUTPUT.json] [extra kvi-bench arguments]
# Default output: build/bench.json. Build first with scripts/build.sh.
set -euo pipefail
cd "$(dirname "$0")/.."
out=${1:-build/bench.json}
shift || true
raw=$(mktemp)
trap 'rm -f "$raw"' EXIT
build/bin/kvi-bench --benchmark_format=json --benchmark_out="$raw" --benchmark_out_format=json \
  --benchmark_min_time=0.2 "$@" >/dev/null
python3 - "$raw" "$out" <<'PY'
import json, sys
raw = json.load(open(sys.argv[1]))
rows = []
for b in raw["benchmarks"]:
    shader, preset, operation = b["name"].split("/")[:3]
    scale = {"ns": 1.0, "us": 1e3, "ms": 1e6}[b.get("time_unit", "ns")]
    rows.append({"shader": shader, "preset": preset, "operation": operation,
                 "ns_per_call": round(b["cpu_time"] * scale, 2)})
json.dump({"context": raw["context"], "results": rows}, open(sys.argv[2], "w"), indent=2)
w = max(len(r["shader"]) for r in rows) if rows else 6
print(f"{'shader':<{w}}  {'preset':<22}  {'operation':<18}  {'ns/call':>8}")
for r in rows:
    print(f"{r['shader']:<{w}}  {r['preset']:<22}  {r['operation']:<18}  {r['ns_per_call']:>8.1f}")
PY
echo "written: $out"
