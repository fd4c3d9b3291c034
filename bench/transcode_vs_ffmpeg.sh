#!/usr/bin/env bash
# Wall time and peak memory of `vccodecs transcode` (splitter, decoder,
# encoder and muxer facades) against `ffmpeg` doing the same transcode
# (libx264 veryfast 6 Mbit/s, AAC 128 kbit/s) of the 30 s 1080p H.264/AAC
# bench file, a few runs each, taken in turns so both meet the same machine.
# Prints every run, a table of both medians and the two ratios; the goal is
# vccodecs at least as fast and no larger (both ratios 1.00 or less).
# Usage: transcode_vs_ffmpeg.sh [BUILD_DIR] [RUNS]   (defaults: build/default, 3)
set -euo pipefail
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
BUILD="${1:-$ROOT/build/default}"
RUNS="${2:-3}"
TOOL="$BUILD/bin/vccodecs"
FILE="$BUILD/benchmedia/h264_aac_1080p_30s.mp4"
WORK="$(mktemp -d)"
trap 'rm -rf "$WORK"' EXIT

[ -x "$TOOL" ] || { echo "transcode_vs_ffmpeg: no $TOOL: build the vccodecs target first" >&2; exit 1; }
command -v ffmpeg > /dev/null || { echo "transcode_vs_ffmpeg: no ffmpeg on the PATH" >&2; exit 1; }
[ -x /usr/bin/time ] || { echo "transcode_vs_ffmpeg: no /usr/bin/time (Debian package time)" >&2; exit 1; }
[ -s "$FILE" ] || bash "$ROOT/bench/make_bench_media.sh" "$(dirname "$FILE")"

TOOL_CMD=("$TOOL" transcode "$FILE" "$WORK/vccodecs.mp4" --vcodec libx264 --preset veryfast --vbitrate 6M
          --acodec aac --abitrate 128k)
FFMPEG_CMD=(ffmpeg -hide_banner -loglevel error -nostdin -y -i "$FILE" -c:v libx264 -preset veryfast -b:v 6M
            -c:a aac -b:a 128k "$WORK/ffmpeg.mp4")

# "SECONDS KILOBYTES" of one run (wall time, peak resident set); a failing
# command stops the script.
measure() {
  if ! /usr/bin/time -f '%e %M' -o "$WORK/time" "$@" > /dev/null 2> "$WORK/err"; then
    echo "transcode_vs_ffmpeg: failed: $*" >&2
    cat "$WORK/err" >&2
    exit 1
  fi
  cat "$WORK/time"
}

median() { printf '%s\n' "$@" | sort -g | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }

declare -a tool_s=() tool_kb=() ffmpeg_s=() ffmpeg_kb=()
for ((i = 1; i <= RUNS; i++)); do
  read -r ts tk < <(measure "${TOOL_CMD[@]}")
  read -r fs fk < <(measure "${FFMPEG_CMD[@]}")
  tool_s+=("$ts"); tool_kb+=("$tk"); ffmpeg_s+=("$fs"); ffmpeg_kb+=("$fk")
  printf 'run %d: vccodecs %6.2f s %7d KiB   ffmpeg %6.2f s %7d KiB\n' "$i" "$ts" "$tk" "$fs" "$fk"
done
ts=$(median "${tool_s[@]}"); tk=$(median "${tool_kb[@]}")
fs=$(median "${ffmpeg_s[@]}"); fk=$(median "${ffmpeg_kb[@]}")
printf '\nfile: %s, medians of %d runs\n' "$FILE" "$RUNS"
printf '%-22s %12s %14s\n' "" "wall (s)" "peak (MiB)"
printf '%-22s %12.2f %14.1f\n' "vccodecs transcode" "$ts" "$(echo "$tk / 1024" | bc -l)"
printf '%-22s %12.2f %14.1f\n' "ffmpeg" "$fs" "$(echo "$fk / 1024" | bc -l)"
printf '%-22s %12.3f %14.3f   (goal: 1.00 or less)\n' "vccodecs / ffmpeg" "$(echo "$ts / $fs" | bc -l)" \
  "$(echo "$tk / $fk" | bc -l)"
