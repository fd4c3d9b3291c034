#!/usr/bin/env bash
# The whole test suite, as CI runs it, in stages:
#   default   Linux build (RelWithDebInfo) and its suites, one ctest line per test
#   package   the default build installed into a temporary prefix, which is then
#             moved, with the build folder hidden: examples/ built against it,
#             the transcode example run and its output checked with ffprobe,
#             a one-file host built with pkg-config
#   fuzz      the property parser under libFuzzer (VC_FUZZ_SECONDS, default 60)
#   asan      address and undefined-behaviour sanitizers: build and suites
#   tsan      thread sanitizer: build and suites
#   clang     clang with the thread-safety analysis as errors: build only
#             (VC_CLANG_TESTS=1 runs its suites too)
#   windows   MinGW-w64 build, its suite under Wine
# VC_STAGES picks some of them ("default tsan"); the elapsed seconds of each
# step are printed as it ends and again at the end. VC_WERROR=ON (the
# default) turns warnings into errors, as in CI.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/configure.sh

STAGES=${VC_STAGES:-default package fuzz asan tsan clang windows}
STEP_NAMES=()
STEP_SECONDS=()
WINE_PREFIX_DIR=""

summary() {
  local rc=$?
  if [[ -n "$WINE_PREFIX_DIR" ]]; then
    /usr/lib/wine/wineserver -k > /dev/null 2>&1 || true
    rm -rf "$WINE_PREFIX_DIR"
  fi
  echo "== Elapsed seconds per step"
  local i
  for i in "${!STEP_NAMES[@]}"; do
    printf '   %-16s %5d\n' "${STEP_NAMES[$i]}" "${STEP_SECONDS[$i]}"
  done
  printf '   %-16s %5d\n' "total" "$SECONDS"
  if [[ $rc -ne 0 ]]; then echo "== FAILED (exit $rc)"; fi
}
trap summary EXIT

# step NAME COMMAND...: runs one step and records how long it took.
step() {
  local name=$1
  shift
  echo "== $name"
  local t0=$SECONDS
  "$@"
  local dt=$((SECONDS - t0))
  STEP_NAMES+=("$name")
  STEP_SECONDS+=("$dt")
  echo "== $name: ${dt} s"
}

build() {
  vc_configure "$1"
  cmake --build --preset "$1"
}

wine_ctest() {
  WINE_PREFIX_DIR="$(mktemp -d /tmp/vc-wine-XXXXXX)"
  export WINEPREFIX="$WINE_PREFIX_DIR" WINEDEBUG=-all
  /usr/lib/wine/wine64 wineboot -i > /dev/null 2>&1 || true
  ctest --preset windows
}

# "codec,frames" of one stream of a file, e.g. "h264,50".
probe_stream() {
  ffprobe -v error -select_streams "$2" -show_entries stream=codec_name,nb_frames -of csv=p=0 "$1"
}

# Runs in a subshell so that its traps and exports stay there. The build
# folder is renamed while the installed tree is used, so that anything that
# still points into it fails here rather than at a customer.
package_check() (
  set -euo pipefail
  local build=build/default
  local hidden=build/default.package-hidden
  local work
  work="$(mktemp -d /tmp/vc-package-XXXXXX)"
  trap 'if [[ -d $hidden ]]; then mv "$hidden" "$build"; fi; rm -rf "$work"' EXIT
  trap 'exit 130' INT TERM
  if [[ ! -f $build/media/h264_aac.mp4 ]]; then bash tests/media/make_media.sh "$build/media" > /dev/null; fi
  cp "$build/media/h264_aac.mp4" "$work/input.mp4"
  cmake --install "$build" --prefix "$work/staged" > /dev/null
  mv "$work/staged" "$work/sdk"
  mv "$build" "$hidden"
  local sdk=$work/sdk

  # Run paths must be relative to the binary: an absolute one leads back to
  # the build machine.
  local f bad
  for f in "$sdk"/bin/* "$sdk"/lib/*.so "$sdk"/lib/corvane-codecs/*; do
    bad=$(readelf -d "$f" | grep -E '\((RUNPATH|RPATH)\)' | grep -vE '\[(\$ORIGIN[^]:]*:?)+\]$' || true)
    if [[ -n $bad ]]; then
      echo "package: $f has a run path outside \$ORIGIN: $bad" >&2
      return 1
    fi
  done

  # Only the manifest beside the runtime serves the classes.
  mkdir -p "$work/registry"
  export CORVANE_REGISTRY_ROOT=$work/registry
  "$sdk/bin/vccodecs" info > "$work/info.txt"
  if ! grep -q "module   $sdk/" "$work/info.txt"; then
    echo "package: the installed tool did not load the installed core module:" >&2
    cat "$work/info.txt" >&2
    return 1
  fi

  cmake -S examples -B "$work/examples" -G Ninja -DCMAKE_PREFIX_PATH="$sdk" > /dev/null
  cmake --build "$work/examples"
  if ! CORVANE_LOG_LEVEL=4 "$work/examples/vctranscode" "$work/input.mp4" "$work/output.mp4" 2> "$work/transcode.log"; then
    echo "package: vctranscode failed; the end of its log:" >&2
    grep -v 'hr=8007044C' "$work/transcode.log" | tail -n 20 >&2
    return 1
  fi
  local in_video out_video out_audio
  in_video=$(probe_stream "$work/input.mp4" v:0)
  out_video=$(probe_stream "$work/output.mp4" v:0)
  out_audio=$(probe_stream "$work/output.mp4" a:0)
  echo "package: input video $in_video; output video $out_video, audio $out_audio"
  # Every picture comes out again as H.264; the audio is AAC.
  if [[ $out_video != "h264,${in_video#*,}" || $out_audio != aac,* || ${out_audio#*,} -lt 1 ]]; then
    echo "package: the transcoded file is not what was asked for" >&2
    return 1
  fi

  c++ -std=c++20 -Wall -Wextra -Werror examples/pkgconfig_check.cpp \
    $(PKG_CONFIG_PATH="$sdk/lib/pkgconfig" pkg-config --cflags --libs corvane-codecs) -o "$work/pkgconfig_check"
  LD_LIBRARY_PATH="$sdk/lib" "$work/pkgconfig_check"
)

step deps bash scripts/deps.sh
for stage in $STAGES; do
  case "$stage" in
    default | asan | tsan)
      step "$stage build" build "$stage"
      step "$stage tests" ctest --preset "$stage"
      ;;
    clang)
      step "clang build" build clang
      if [[ "${VC_CLANG_TESTS:-0}" == 1 ]]; then step "clang tests" ctest --preset clang; fi
      ;;
    package)
      step "package build" build default
      step package package_check
      ;;
    fuzz)
      step fuzz bash fuzz/run.sh "${VC_FUZZ_SECONDS:-60}"
      ;;
    windows)
      step "windows build" build windows
      step "windows tests" wine_ctest
      ;;
    *)
      echo "unknown stage: $stage" >&2
      exit 2
      ;;
  esac
done
