#!/usr/bin/env bash
# The main job: builds everything, then lists every shader the module offers
# with its parameters. Arguments go to kvi-info.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/build.sh
exec build/bin/kvi-info "$@"
