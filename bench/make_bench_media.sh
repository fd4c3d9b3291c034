#!/usr/bin/env bash
# Makes the benchmarks' own media with Debian's ffmpeg tool: larger than the
# test media (which stay small so the suite stays fast). A file already there
# is kept.
# Usage: make_bench_media.sh OUTDIR
set -euo pipefail
OUT="${1:?usage: make_bench_media.sh OUTDIR}"
mkdir -p "$OUT"
cd "$OUT"

FF=(ffmpeg -hide_banner -loglevel error -nostdin -y)
name=h264_aac_1080p_30s.mp4
if [ ! -s "$name" ]; then
  # 30 s of a moving 1080p picture at 25 fps with a tone: 750 video and
  # about 1400 audio packets, the mix a splitter meets in a broadcast file.
  "${FF[@]}" -f lavfi -i "testsrc2=size=1920x1080:rate=25:duration=30" \
    -f lavfi -i "sine=frequency=440:sample_rate=48000:duration=30" \
    -c:v libx264 -preset ultrafast -g 50 -bf 2 -b:v 8M -pix_fmt yuv420p \
    -c:a aac -b:a 128k -ac 2 -shortest "$name.tmp.mp4"
  mv "$name.tmp.mp4" "$name"
  echo "made $name"
fi
