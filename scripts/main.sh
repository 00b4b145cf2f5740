#!/usr/bin/env bash
# The main job: builds everything, then renders the built-in showcase scene
# (every material of the module on its own ball, lit by the module's lights,
# in front of a background) to render.png. Arguments go to kvi-render, e.g.
#   scripts/main.sh scenes/cornell_box.json --output box.png
#   scripts/main.sh --gallery gallery/
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/build.sh
exec build/bin/kvi-render "$@"
