#!/usr/bin/env bash
# Quick start: install what is missing, build, then the tool's main job on a
# sample it makes itself: a 10 s H.264/AAC file made through the encoder and
# muxer facades, transcoded through all four facades, with the summary.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
source scripts/configure.sh
vc_configure default
cmake --build --preset default
VCCODECS=./build/default/bin/vccodecs
"$VCCODECS" info
SAMPLE=build/default/sample/sample.mp4
if [ ! -s "$SAMPLE" ]; then
  mkdir -p "$(dirname "$SAMPLE")"
  "$VCCODECS" sample "$SAMPLE" --duration 10 --size 1280x720 --rate 25
fi
"$VCCODECS" transcode "$SAMPLE" build/default/sample/transcoded.mp4
