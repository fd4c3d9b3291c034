#!/usr/bin/env bash
# Wall time of `vccodecs decode FILE --json` (every stream through the
# splitter and decoder facades) against `ffmpeg -i FILE -f null -` (FFmpeg's
# own tool decoding every stream to nothing) on the 30 s 1080p H.264/AAC
# bench file, a few runs each, taken in turns so both meet the same machine.
# Prints every run, both medians and the ratio; the goal is vccodecs at least
# as fast (ratio 1.00 or less).
# Usage: decode_vs_ffmpeg.sh [BUILD_DIR] [RUNS]   (defaults: build/default, 5)
set -euo pipefail
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
BUILD="${1:-$ROOT/build/default}"
RUNS="${2:-5}"
TOOL="$BUILD/bin/vccodecs"
FILE="$BUILD/benchmedia/h264_aac_1080p_30s.mp4"

[ -x "$TOOL" ] || { echo "decode_vs_ffmpeg: no $TOOL: build the vccodecs target first" >&2; exit 1; }
command -v ffmpeg > /dev/null || { echo "decode_vs_ffmpeg: no ffmpeg on the PATH" >&2; exit 1; }
[ -s "$FILE" ] || bash "$ROOT/bench/make_bench_media.sh" "$(dirname "$FILE")"

# Seconds a command takes, its output thrown away; a failing command stops
# the script.
seconds() {
  local t0 t1
  t0=$(date +%s.%N)
  if ! "$@" > /dev/null 2> /tmp/decode_vs_ffmpeg.$$.err; then
    echo "decode_vs_ffmpeg: failed: $*" >&2
    cat /tmp/decode_vs_ffmpeg.$$.err >&2
    rm -f /tmp/decode_vs_ffmpeg.$$.err
    exit 1
  fi
  t1=$(date +%s.%N)
  rm -f /tmp/decode_vs_ffmpeg.$$.err
  echo "$t1 - $t0" | bc -l
}

median() { printf '%s\n' "$@" | sort -g | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }

# One untimed run each: the file in the page cache, the modules loaded once.
seconds "$TOOL" decode "$FILE" --json > /dev/null
seconds ffmpeg -hide_banner -loglevel error -nostdin -i "$FILE" -f null - > /dev/null

declare -a tool_runs=() ffmpeg_runs=()
for ((i = 1; i <= RUNS; i++)); do
  t=$(seconds "$TOOL" decode "$FILE" --json)
  f=$(seconds ffmpeg -hide_banner -loglevel error -nostdin -i "$FILE" -f null -)
  tool_runs+=("$t")
  ffmpeg_runs+=("$f")
  printf 'run %d: vccodecs %.3f s  ffmpeg %.3f s\n' "$i" "$t" "$f"
done
tool_median=$(median "${tool_runs[@]}")
ffmpeg_median=$(median "${ffmpeg_runs[@]}")
ratio=$(echo "$tool_median / $ffmpeg_median" | bc -l)
printf 'file:                 %s\n' "$FILE"
printf 'vccodecs decode:      median %.3f s of %d runs\n' "$tool_median" "$RUNS"
printf 'ffmpeg -f null:       median %.3f s of %d runs\n' "$ffmpeg_median" "$RUNS"
printf 'vccodecs / ffmpeg:    %.3f (goal: 1.00 or less)\n' "$ratio"
