#!/usr/bin/env bash
# Makes the general media module's test media with Debian's ffmpeg tool:
# small, deterministic files in every container the module must read, plus a
# truncated and a random one. Files already there are kept (the script runs
# as a ctest fixture before every suite run).
# Usage: make_media.sh OUTDIR
set -euo pipefail
OUT="${1:?usage: make_media.sh OUTDIR}"
mkdir -p "$OUT"
cd "$OUT"

FF=(ffmpeg -hide_banner -loglevel error -nostdin -y)
# 2 s of a moving test picture at 320x240, 25 fps, and a 440 Hz tone.
VIDEO=(-f lavfi -i "testsrc2=size=320x240:rate=25:duration=2")
AUDIO=(-f lavfi -i "sine=frequency=440:sample_rate=48000:duration=2")
BITEXACT=(-fflags +bitexact -flags:v +bitexact -flags:a +bitexact)

make() {
  local name="$1"; shift
  if [ -s "$name" ]; then return 0; fi
  "${FF[@]}" "$@" "${BITEXACT[@]}" "$name.tmp.${name##*.}"
  mv "$name.tmp.${name##*.}" "$name"
  echo "made $name"
}

make h264_aac.mp4 "${VIDEO[@]}" "${AUDIO[@]}" -c:v libx264 -preset veryfast -g 25 -bf 2 -pix_fmt yuv420p \
  -c:a aac -b:a 96k -ac 2 -shortest
make hevc_opus.mkv "${VIDEO[@]}" "${AUDIO[@]}" -c:v libx265 -preset ultrafast -x265-params log-level=error:keyint=25 \
  -pix_fmt yuv420p -c:a libopus -b:a 64k -ac 2 -shortest
# Two programs: each with its own MPEG-2 video and MP2 audio.
make mpeg2_mp2_2prog.ts "${VIDEO[@]}" "${AUDIO[@]}" -f lavfi -i "testsrc=size=320x240:rate=25:duration=2" \
  -f lavfi -i "sine=frequency=880:sample_rate=48000:duration=2" \
  -map 0:v -map 1:a -map 2:v -map 3:a -c:v mpeg2video -g 12 -b:v 1M -c:a mp2 -b:a 128k \
  -program title=One:st=0:st=1 -program title=Two:st=2:st=3 -shortest
make mpeg2_pcm.mxf "${VIDEO[@]}" "${AUDIO[@]}" -c:v mpeg2video -g 12 -b:v 2M -pix_fmt yuv422p -c:a pcm_s16le -ar 48000 \
  -shortest
make vp9_vorbis.webm "${VIDEO[@]}" "${AUDIO[@]}" -c:v libvpx-vp9 -deadline realtime -cpu-used 8 -g 25 -b:v 300k \
  -c:a libvorbis -ac 2 -shortest
make video_only.mp4 "${VIDEO[@]}" -c:v libx264 -preset veryfast -g 25 -pix_fmt yuv420p
# 20 s with a key frame every second: for switching files every few seconds.
make h264_aac_20s.mp4 -f lavfi -i "testsrc2=size=320x240:rate=25:duration=20" \
  -f lavfi -i "sine=frequency=440:sample_rate=48000:duration=20" -c:v libx264 -preset veryfast -g 25 -bf 2 \
  -pix_fmt yuv420p -c:a aac -b:a 96k -ac 2 -shortest

# The first 40% of the MKV: its headers open, the read runs out mid-cluster.
if [ ! -s truncated.mkv ]; then
  size=$(stat -c %s hevc_opus.mkv)
  head -c $((size * 2 / 5)) hevc_opus.mkv > truncated.mkv
  echo "made truncated.mkv"
fi
# Random bytes that no demuxer accepts (fixed seed: the same every run).
if [ ! -s random.bin ]; then
  python3 -c "import random,sys; random.seed(20261122); sys.stdout.buffer.write(bytes(random.getrandbits(8) for _ in range(65536)))" > random.bin
  echo "made random.bin"
fi
