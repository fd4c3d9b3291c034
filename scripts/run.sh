#!/usr/bin/env bash
# Quick start: install what is missing, build, run the tool's main job.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
cmake --preset default >/dev/null
cmake --build --preset default
./build/default/bin/vccodecs info
