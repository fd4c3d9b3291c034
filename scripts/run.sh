#!/usr/bin/env bash
# Quick start: install what is missing, build, then the tool's main job on a
# sample it makes first: every packet of a 10 s H.264/AAC file through the
# splitter facade, with its statistics.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
source scripts/configure.sh
vc_configure default
cmake --build --preset default
./build/default/bin/vccodecs info
SAMPLE=build/default/sample/sample.mp4
if [ ! -s "$SAMPLE" ]; then
  mkdir -p "$(dirname "$SAMPLE")"
  ffmpeg -hide_banner -loglevel error -nostdin -y \
    -f lavfi -i "testsrc2=size=1280x720:rate=25:duration=10" \
    -f lavfi -i "sine=frequency=440:sample_rate=48000:duration=10" \
    -c:v libx264 -preset veryfast -g 50 -pix_fmt yuv420p -c:a aac -b:a 128k -shortest "$SAMPLE"
fi
./build/default/bin/vccodecs demux "$SAMPLE"
